// vrx_packet_t: header parsing and packet size.
#include "mediaformats/vrx/vrx_packet.h"

#include <algorithm>

#include "abstraction/byte_order.h"
#include "abstraction/datasource.h"
#include "mediaformats/errors.h"
#include "mediaformats/vrx/vrx_format.h"

namespace vrex {
namespace mediaformats {

using abstraction::LoadBE32;
using abstraction::LoadBE64;

namespace {
// Payload size offset by index: bits 15,14 of the flags (index bits 5,4), explicit clock rate
// (bit 3), bits 11,10,9 (bits 2,1,0). -1 where no writer goes.
struct payload_offsets_t {
  signed char at[64];
  constexpr payload_offsets_t() : at() {
    for (int i = 0; i < 64; ++i) at[i] = -1;
    // Continuation fragments: no header fields.
    at[0x00] = 8;  // 0,0
    at[0x10] = 8;  // 0,1
    // Frame start: 1,1 complete (base 8) and 1,0 first fragment (base 12, with frame size).
    for (int fragment = 2; fragment <= 3; ++fragment) {
      const int base = fragment == 3 ? 8 : 12;
      for (int explicitRate = 0; explicitRate <= 1; ++explicitRate) {
        const int rate = explicitRate ? 4 : 0;
        const int index = (fragment << 4) | (explicitRate << 3);
        if (!explicitRate) at[index | 0] = static_cast<signed char>(base);
        at[index | 4] = static_cast<signed char>(base + rate + 4);      // DTS32
        at[index | 5] = static_cast<signed char>(base + rate + 8);      // DTS32 CTS
        at[index | 6] = static_cast<signed char>(base + rate + 8);      // DTS64
        at[index | 7] = static_cast<signed char>(base + rate + 12);     // DTS64 CTS
      }
    }
  }
};
constexpr payload_offsets_t kPayloadOffsets;
}  // namespace

bool vrx_packet_t::IsStart() const { return (flags & VRX_FLAG_FRAME_START) != 0; }
bool vrx_packet_t::IsEnd() const { return (flags & VRX_FLAG_FRAME_END) != 0; }
bool vrx_packet_t::IsKey() const { return (flags & VRX_FLAG_KEY) != 0; }

int vrx_packet_t::GetPayloadSizeOffset(uint16_t flags) {
  const int index = ((flags >> 10) & 0x30) |
                    ((flags & VRX_FLAG_CLOCK_CODE_MASK) == VRX_CLOCK_CODE_EXPLICIT ? 8 : 0) |
                    ((flags >> 9) & 0x07);
  return kPayloadOffsets.at[index];
}

int vrx_packet_t::Parse(const unsigned char* bytes, unsigned long count, long at, long end) {
  offset = at;
  if (count < 8) return 0;
  word = LoadBE32(bytes);
  flags = static_cast<uint16_t>((bytes[4] << 8) | bytes[5]);
  sequence = static_cast<uint16_t>((bytes[6] << 8) | bytes[7]);
  const int sizeOffset = GetPayloadSizeOffset(flags);
  if (sizeOffset < 0) return VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT);
  if (at + sizeOffset + 3 >= end || count < static_cast<unsigned long>(sizeOffset) + 4) return 0;

  const unsigned code = flags & VRX_FLAG_CLOCK_CODE_MASK;
  unsigned pos = 8;
  dts = -1;
  cts = 0;
  frameSize = 0;
  clockRate = GetClockRate(code);
  if (flags & VRX_FLAG_FRAME_START) {
    if (code == VRX_CLOCK_CODE_EXPLICIT) {
      clockRate = LoadBE32(bytes + pos);
      pos += 4;
    }
    if (flags & VRX_FLAG_DTS) {
      if (flags & VRX_FLAG_DTS_64) {
        // Unsigned in the file; a value past int64 cannot be a time.
        const uint64_t value = LoadBE64(bytes + pos);
        dts = value > static_cast<uint64_t>(INT64_MAX) ? -1 : static_cast<int64_t>(value);
        pos += 8;
      } else {
        dts = LoadBE32(bytes + pos);
        pos += 4;
      }
      if (flags & VRX_FLAG_CTS) {
        cts = LoadBE32(bytes + pos);
        pos += 4;
      }
    }
    if (!(flags & VRX_FLAG_FRAME_END)) {
      frameSize = LoadBE32(bytes + pos);
      pos += 4;
    }
  }
  payloadSize = LoadBE32(bytes + sizeOffset);
  const uint32_t padding = (4 - payloadSize % 4) % 4;
  tail = padding + ((flags & VRX_FLAG_TRAILER) ? 4 : 0);
  headerSize = sizeOffset + 4;
  packetSize = headerSize + static_cast<long>(payloadSize) + tail;
  return packetSize <= end - at ? 1 : 0;
}

int vrx_packet_t::Read(abstraction::DataSource* source, const unsigned char* bytes,
                       unsigned long count) {
  const long at = source->Cursor();
  const long end = source->Size();
  const int parsed = Parse(bytes, count, at, end);
  if (parsed != 1) return parsed;
  if (!(flags & (VRX_FLAG_FRAME_START | VRX_FLAG_TRAILER))) {
    // Until the word after it is there, a continuation is not known to be whole.
    if (packetSize + 4 > end - at) return 0;
    unsigned char trailer[4];
    int err = 0;
    if (source->PeekBuffer(trailer, at + packetSize, 4, err) == nullptr) return err;
    if (LoadBE32(trailer) == static_cast<uint64_t>(packetSize)) {
      tail += 4;
      packetSize += 4;
    }
  }
  source->Cursor(at + headerSize);
  return 1;
}

int vrx_packet_t::Read(abstraction::DataSource* source) {
  unsigned char bytes[kMaxHeaderSize];
  const unsigned long count =
      static_cast<unsigned long>(std::min<long>(kMaxHeaderSize, source->Available()));
  int err = 0;
  if (count > 0 && source->PeekBuffer(bytes, source->Cursor(), count, err) == nullptr) return err;
  return Read(source, bytes, count);
}

}  // namespace mediaformats
}  // namespace vrex
