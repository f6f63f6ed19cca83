// Feeds arbitrary bytes to the AAC codec info builder (as ADTS and as a config), ADTS
// stripping and the two NAL framing converters.
#include <cstddef>
#include <cstdint>

#include "media/aac/adts.h"
#include "media/aac/codec_info_aac.h"
#include "media/nalu.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  int error = 0;
  for (bool isConfig : {false, true})
    vrex::media::codec_info_t::FreeInstance(
        vrex::media::codec_info_audio_aac_t::GetInstance(data, size, isConfig, error));
  unsigned long left = size;
  vrex::mediaformats::internal::StripAdts(data, left, error);
  static vrex::media::nalu_avcc_to_b_t toAnnexB;
  static vrex::media::nalu_b_to_avcc_t toAvcc;
  toAnnexB.Work(data, size);
  toAvcc.Work(data, size);
  return 0;
}
