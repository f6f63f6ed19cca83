// The bit reader shared by the H.264 and AAC parsers.
#include "media/bitsreaderstate.h"

#include "abstraction/errors.h"

namespace ms {
namespace media {

using vrex::abstraction::ERR_ABSTRACTION_INVALID_PARAMETERS;
using vrex::abstraction::ERR_ABSTRACTION_RANGE_NOT_AVAILABLE;

int BitsReaderState::ReadBitsImpl(size_t n, size_t width, uint64_t& out) {
  if (n > width || n > 64) return VREX_ERROR(ERR_ABSTRACTION_INVALID_PARAMETERS);
  if (n > RemainingBits()) return VREX_ERROR(ERR_ABSTRACTION_RANGE_NOT_AVAILABLE);
  uint64_t value = 0;
  uint64_t cursor = cursorBits;
  size_t left = n;
  while (left > 0) {
    const unsigned bitInByte = static_cast<unsigned>(cursor & 7);
    const unsigned take =
        static_cast<unsigned>(left < static_cast<size_t>(8 - bitInByte) ? left : 8 - bitInByte);
    const unsigned byte = pData[cursor >> 3];
    const unsigned bits = (byte >> (8 - bitInByte - take)) & ((1u << take) - 1);
    value = (value << take) | bits;
    cursor += take;
    left -= take;
  }
  cursorBits = cursor;
  out = value;
  return 0;
}

int BitsReaderState::SkipBits(uint64_t n) {
  if (n > RemainingBits()) return VREX_ERROR(ERR_ABSTRACTION_RANGE_NOT_AVAILABLE);
  cursorBits += n;
  return 0;
}

int BitsReaderState::ReadUEG(unsigned long& out) {
  const uint64_t start = cursorBits;
  unsigned leadingZeros = 0;
  for (;;) {
    if (cursorBits >= sizeBits) {
      cursorBits = start;
      return VREX_ERROR(ERR_ABSTRACTION_RANGE_NOT_AVAILABLE);
    }
    const bool bit = (pData[cursorBits >> 3] >> (7 - (cursorBits & 7))) & 1;
    if (bit) break;
    if (leadingZeros == 63) return VREX_ERROR(ERR_ABSTRACTION_INVALID_PARAMETERS);
    ++leadingZeros;
    ++cursorBits;
  }
  ++cursorBits;  // the terminating one
  uint64_t suffix = 0;
  const int err = ReadBitsImpl(leadingZeros, 64, suffix);
  if (err < 0) {
    cursorBits = start;
    return err;
  }
  out = static_cast<unsigned long>(((uint64_t{1} << leadingZeros) - 1) + suffix);
  return 0;
}

int BitsReaderState::ReadSEG(long& out) {
  unsigned long k = 0;
  VREX_CHECK(ReadUEG(k));
  out = (k & 1) ? static_cast<long>((k + 1) / 2) : -static_cast<long>(k / 2);
  return 0;
}

}  // namespace media
}  // namespace ms
