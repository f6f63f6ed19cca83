// H.265 codec information from one key frame in 4-byte length-prefixed form: coded size,
// frame rate, the hvcC body and the "hev1." codec string.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "media/codec_info.h"
#include "media/hevc/hevc.h"

namespace vrex {
namespace media {

class codec_info_video_h265_t : public codec_info_video_t {
 public:
  codec_info_video_h265_t();
  // Duplicates the configuration record, the codec string, the three units and the parsed
  // parameter sets.
  codec_info_video_h265_t(const codec_info_video_h265_t& other);

  // From a key frame (payload, codec config or data source) whose first NAL units, after at
  // most 10 others, are VPS, SPS and PPS in that order. Returns a new object (release with
  // FreeInstance) or null with `error` = ERR_MEDIA_INVALID_FRAME.
  static codec_info_video_h265_t* GetInstance(const frame_t& frame, int& error);
  static codec_info_video_h265_t* GetInstance(const unsigned char* data, size_t size,
                                              unsigned clockRate, int& error);

  // Reads all that remains of `source` from its cursor into memory: meant for a source that
  // holds one frame (GetInstance(frame) reads only the frame's bytes).
  int Init(abstraction::DataSource* source, unsigned clockRate);
  int Init(const uint8_t* data, size_t size, unsigned clockRate);

  // The three units as they stood in the stream, from the NAL header on.
  std::vector<uint8_t> _vps;
  std::vector<uint8_t> _sps;
  std::vector<uint8_t> _pps;
  std::shared_ptr<HEVC::VPS> _pVPS;
  std::shared_ptr<HEVC::SPS> _pSPS;
  std::shared_ptr<HEVC::PPS> _pPPS;

 private:
  // Returns the offset of the VPS's length field.
  long JumpToVps(const uint8_t* data, size_t size);
  int ParseVpsSpsPps(const uint8_t* data, size_t size);
  void ComputeISO14496();
};

}  // namespace media
}  // namespace vrex
