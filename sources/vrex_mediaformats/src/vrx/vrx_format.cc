// Track ids, clock codes and skip packet sizes of the .vrx format.
#include "mediaformats/vrx/vrx_format.h"

#include "mediaformats/errors.h"

namespace vrex {
namespace mediaformats {

namespace {
// Indexed by clock code; codes 0, 1 and 15 have no rate of their own.
const uint32_t kClockRates[16] = {0,      0,      1000,   8000,    11025,   12000,
                                  16000,  22050,  24000,  32000,   44100,   48000,
                                  90000,  1000000, 1000000000, 0};
}  // namespace

VREXPayloadType PayloadTypeOfTid(uint16_t tid) {
  switch (tid) {
    case VRX_TID_TID_MAP: return VRX_PAYLOAD_TID_MAP;
    case VRX_TID_MILESTONE: return VRX_PAYLOAD_MILESTONE;
    case VRX_TID_SKIP: return VRX_PAYLOAD_SKIP;
    case VRX_TID_H264_AVCC: return VRX_PAYLOAD_VIDEO_H264_NALU_AVCC;
    case VRX_TID_PARTITION_HEADER: return VRX_PAYLOAD_PARTITION_HEADER;
    case VRX_TID_PARTITION_FOOTER: return VRX_PAYLOAD_PARTITION_FOOTER;
    case VRX_TID_AAC_ADTS: return VRX_PAYLOAD_AUDIO_AAC_ADTS;
    case VRX_TID_H264_ANNEXB: return VRX_PAYLOAD_VIDEO_H264_NALU_B;
    case VRX_TID_OPUS: return VRX_PAYLOAD_AUDIO_OPUS;
    case VRX_TID_H265_AVCC: return VRX_PAYLOAD_VIDEO_H265_NALU_AVCC;
    case VRX_TID_AV1: return VRX_PAYLOAD_VIDEO_AV1;
    case VRX_TID_SNAPSHOT_META: return VRX_PAYLOAD_SNAPSHOT_META;
    case VRX_TID_IMAGE_JPEG: return VRX_PAYLOAD_IMAGE_JPEG;
    case VRX_TID_SC_TO_WC: return VRX_PAYLOAD_SC_TO_WC;
    default: return VRX_PAYLOAD_UNDEFINED;
  }
}

bool IsMediaTid(uint16_t tid) {
  switch (tid) {
    case VRX_TID_H264_AVCC:
    case VRX_TID_AAC_ADTS:
    case VRX_TID_H264_ANNEXB:
    case VRX_TID_OPUS:
    case VRX_TID_H265_AVCC:
    case VRX_TID_AV1:
    case VRX_TID_IMAGE_JPEG:
      return true;
    default:
      return false;
  }
}

uint32_t MakePacketWord(uint16_t tid) {
  const uint32_t check = VRX_MARKER ^ (tid >> 8) ^ (tid & 0xFF);
  return (static_cast<uint32_t>(VRX_MARKER) << 24) | (static_cast<uint32_t>(tid) << 8) | check;
}

bool IsPacketWordValid(const unsigned char* first4) {
  return (first4[0] & 0xF0) == 0xA0 && (first4[0] ^ first4[1] ^ first4[2]) == first4[3];
}

uint32_t GetClockRate(unsigned code) { return kClockRates[code & 0x0F]; }

unsigned GetClockCode(uint32_t rate) {
  if (rate == 0) return VRX_CLOCK_CODE_NONE;
  for (unsigned code = 2; code < 15; ++code) {
    if (kClockRates[code] == rate) return code;
  }
  return VRX_CLOCK_CODE_EXPLICIT;
}

long GetSkipPacketPayloadLength(long total) {
  if (total < kEmptySkipPacketSize || total % 4 != 0) {
    return VREX_ERROR(ERR_MEDIAFORMATS_INVALID_FILE_SIZE);
  }
  if (total <= kFullSkipPacketSize) return total - kEmptySkipPacketSize;
  // Beyond one full packet: leave at least room for an empty one behind it.
  if (total - kFullSkipPacketSize < kEmptySkipPacketSize) return total - 2 * kEmptySkipPacketSize;
  return kFullSkipPacketSize - kEmptySkipPacketSize;
}

}  // namespace mediaformats
}  // namespace vrex
