// Feeds arbitrary bytes to the H.264 codec info builder and the SPS/PPS parsers.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "media/codec_info.h"
#include "media/h264/codec_info_h264.h"
#include "media/h264/h264.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  int error = 0;
  vrex::media::codec_info_t::FreeInstance(
      vrex::media::codec_info_video_h264_t::GetInstance(data, size, 90000, error));
  ms::media::h264::sps_t sps;
  ms::media::h264::ParseSPS(data, size, sps);
  ms::media::h264::pps_t pps;
  ms::media::h264::ParsePPS(data, size, size > 0 ? data[0] & 3 : 1, pps);
  std::vector<uint8_t> copy(data, data + size);
  ms::media::h264::StripEmulationPrevention(copy.data(), copy.size());
  return 0;
}
