// The AV1 parsers' bit reader (AV1 specification 4.10 and 8.1). It throws std::runtime_error
// with the failure text; each obp_* function catches at its edge.
#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>

#include "media/av1/av1.h"

namespace ms {
namespace media {
namespace av1 {
namespace internal {

class BitReader {
 public:
  BitReader(const uint8_t* data, size_t size) : _data(data), _sizeBits(uint64_t{size} * 8) {}

  // f(n), n up to 32.
  uint32_t f(unsigned n) {
    if (n > 32) throw std::runtime_error("w - 1 <= 32");
    if (n > _sizeBits - _cursor) throw std::runtime_error("Ran out of bytes in buffer.");
    uint32_t value = 0;
    for (unsigned i = 0; i < n; ++i, ++_cursor)
      value = (value << 1) | ((_data[_cursor >> 3] >> (7 - (_cursor & 7))) & 1u);
    return value;
  }

  // uvlc(): values of 32 or more leading zeros read as 2^32 - 1.
  uint32_t uvlc() {
    unsigned leadingZeros = 0;
    while (!f(1)) {
      if (++leadingZeros > 63) throw std::runtime_error("Invalid VLC.");
    }
    if (leadingZeros >= 32) return UINT32_MAX;
    return static_cast<uint32_t>(f(leadingZeros) + ((uint64_t{1} << leadingZeros) - 1));
  }

 private:
  const uint8_t* _data;
  uint64_t _sizeBits;
  uint64_t _cursor = 0;
};

// Copies `text` into the caller's error buffer, cut to its size.
void SetError(OBPError* err, const char* text);

}  // namespace internal
}  // namespace av1
}  // namespace media
}  // namespace ms
