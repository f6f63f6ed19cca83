// H.264 codec information from one key frame in 4-byte length-prefixed form: resolution,
// frame rate, the avcC body and the "avc1." codec string.
#pragma once

#include <cstddef>
#include <cstdint>

#include "media/codec_info.h"

namespace vrex {
namespace media {

class codec_info_video_h264_t : public codec_info_video_t {
 public:
  codec_info_video_h264_t();
  // Duplicates the configuration record, the codec string and both NAL unit copies.
  codec_info_video_h264_t(const codec_info_video_h264_t& other);
  ~codec_info_video_h264_t() override;

  // From a key frame of at least 12 bytes (payload, codec config or data source). Returns a
  // new object (release with FreeInstance) or null with `error` set: ERR_MEDIA_INVALID_FRAME
  // for an unusable frame or no SPS/PPS pair, ERR_MEDIA_NOT_IMPLEMENTED for start-code input,
  // ERR_MEDIA_CODEC_PARAMETERS for a rejected SPS, or the bit reader's codes.
  static codec_info_video_h264_t* GetInstance(const frame_t& frame, int& error);
  // The same from a memory block holding length-prefixed NAL units.
  static codec_info_video_h264_t* GetInstance(const unsigned char* data, size_t size,
                                              unsigned clockRate, int& error);

  // Reads all that remains of `source` from its cursor into memory: meant for a source that
  // holds one frame (GetInstance(frame) reads only the frame's bytes).
  int Init(abstraction::DataSource* source, unsigned clockRate);
  int Init(const uint8_t* data, size_t size, unsigned clockRate);

  uint8_t* _pSPS = nullptr;  // from the NAL header byte, emulation prevention removed
  uint64_t _spsSize = 0;
  uint8_t* _pPPS = nullptr;
  uint64_t _ppsSize = 0;

 private:
  int DetectSPSPPSBoundsSizedNal(const uint8_t* data, size_t size);
  int ParseSPSPPS();
  int ParseSPS();
  int ParsePPS();
  void ComputeISO14496();
};

}  // namespace media
}  // namespace vrex
