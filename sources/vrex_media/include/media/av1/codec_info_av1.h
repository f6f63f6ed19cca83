// AV1 codec information from one key frame: resolution, frame rate, the av1C body and the
// "av01." codec string.
#pragma once

#include <cstddef>
#include <cstdint>

#include "media/av1/av1.h"
#include "media/codec_info.h"

namespace vrex {
namespace media {

class codec_info_video_av1_t : public codec_info_video_t {
 public:
  codec_info_video_av1_t();
  codec_info_video_av1_t(const codec_info_video_av1_t& other);

  // From a frame flagged key (the flag is trusted, not the stream) of at least 12 bytes
  // holding a sequence header and a frame header. Returns a new object (release with
  // FreeInstance) or null with `error` = ERR_MEDIA_INVALID_FRAME.
  static codec_info_video_av1_t* GetInstance(const frame_t& frame, int& error);
  static codec_info_video_av1_t* GetInstance(const unsigned char* data, size_t size,
                                             unsigned clockRate, int& error);

  // Reads `size` bytes at the cursor of `source`.
  int Init(abstraction::DataSource* source, unsigned clockRate, size_t size);
  int Init(const uint8_t* data, size_t size, unsigned clockRate);

  ms::media::av1::State _state;

 private:
  int ParseObus(const uint8_t* data, size_t size);
  void ComputeISO14496();
};

}  // namespace media
}  // namespace vrex
