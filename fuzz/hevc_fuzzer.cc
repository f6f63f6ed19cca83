// Feeds arbitrary bytes to the H.265 codec info builder and, as Annex B, to the parser.
#include <cstddef>
#include <cstdint>

#include "media/codec_info.h"
#include "media/hevc/codec_info_h265.h"
#include "media/hevc/parser.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  int error = 0;
  vrex::media::codec_info_t::FreeInstance(
      vrex::media::codec_info_video_h265_t::GetInstance(data, size, 90000, error));
  HEVC::Parser parser;
  parser.process(data, size);
  parser.processNALUnit(data, size, HEVC::Parser::Info());
  return 0;
}
