// Feeds arbitrary bytes to the AV1 codec info builder, the reusable parser state and
// StripAV1.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "media/av1/av1.h"
#include "media/av1/codec_info_av1.h"
#include "media/codec_info.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  int error = 0;
  vrex::media::codec_info_t::FreeInstance(
      vrex::media::codec_info_video_av1_t::GetInstance(data, size, 90000, error));
  // One state across inputs, as a stream would use it.
  static ms::media::av1::State state;
  state.Parse(data, size);
  std::vector<uint8_t> out;
  ms::media::av1::StripAV1(data, size, out);
  return 0;
}
