// H.264 syntax shared by the SPS and PPS parsers, and the NAL unit type names.
#include "h264_syntax.h"

#include "abstraction/logging.h"
#include "media/errors.h"
#include "media/h264/h264.h"

namespace ms {
namespace media {
namespace h264 {

const char* NalUnitTypeToString(unsigned type) {
  static const char* const kNames[] = {
      "Unspecified",     "Slice",         "DPA",         "DPB",           "DPC",
      "IDR Slice",       "SEI",           "SPS",         "PPS",           "AUD",
      "End of Sequence", "End of Stream", "Filler Data", "SPS Extension", "Prefix NAL Unit",
      "Subset SPS",      "Depth SPS"};
  return type < sizeof(kNames) / sizeof(kNames[0]) ? kNames[type] : "Unknown";
}

int SkipScalingList(BitsReaderState& bits, size_t sizeOfList, const char* context) {
  long lastScale = 8;
  long nextScale = 8;
  for (size_t j = 0; j < sizeOfList && nextScale != 0; ++j) {
    long delta = 0;
    const int err = bits.ReadSEG(delta);
    if (err < 0) {
      LOGE << "<-# " << context << " FAILED! Cannot read delta_scale errorCode=" << err;
      return err;
    }
    if (delta < -128 || delta > 127) {
      LOGE << "<-# " << context << " FAILED! Invalid delta_scale value " << delta << " at index "
           << j << " delta=" << delta;
      return VREX_ERROR(vrex::media::ERR_MEDIA_CODEC_PARAMETERS);
    }
    nextScale = (lastScale + delta + 256) % 256;
    if (nextScale != 0) lastScale = nextScale;
  }
  return 0;
}

int SkipScalingLists(BitsReaderState& bits, size_t count, const char* context,
                     std::vector<uint64_t>* flags) {
  for (size_t i = 0; i < count; ++i) {
    uint64_t present = 0;
    const int err = bits.ReadBits(1, present);
    if (err < 0) {
      LOGE << "<-# " << context << " FAILED! Cannot read scaling_list_present_flag[" << i
           << "] errorCode=" << err;
      return err;
    }
    if (flags != nullptr) flags->push_back(present);
    if (present) VREX_CHECK(SkipScalingList(bits, i < 6 ? 16 : 64, context));
  }
  return 0;
}

size_t StripEmulationPrevention(uint8_t* data, size_t size) {
  size_t out = 0;
  size_t zeros = 0;
  for (size_t in = 0; in < size; ++in) {
    if (zeros >= 2 && data[in] == 3) {
      zeros = 0;
      continue;
    }
    zeros = data[in] == 0 ? zeros + 1 : 0;
    data[out++] = data[in];
  }
  return out;
}

}  // namespace h264
}  // namespace media
}  // namespace ms
