// A most-significant-bit-first reader over a byte range, with the Exp-Golomb codes of
// H.264/H.265. It never reads past `sizeBits`; a failed read leaves the cursor where it was.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ms {
namespace media {

struct BitsReaderState {
  const uint8_t* pData = nullptr;
  uint64_t sizeBits = 0;
  uint64_t cursorBits = 0;

  BitsReaderState() = default;
  BitsReaderState(const uint8_t* data, size_t sizeBytes)
      : pData(data), sizeBits(static_cast<uint64_t>(sizeBytes) * 8) {}

  uint64_t RemainingBits() const { return sizeBits - cursorBits; }

  // Reads `n` bits into `out`. Returns 0, ERR_ABSTRACTION_INVALID_PARAMETERS when `n` exceeds
  // the width of T, or ERR_ABSTRACTION_RANGE_NOT_AVAILABLE when fewer than `n` bits remain.
  template <typename T>
  int ReadBits(size_t n, T& out) {
    uint64_t value = 0;
    const int err = ReadBitsImpl(n, sizeof(T) * 8, value);
    if (err == 0) out = static_cast<T>(value);
    return err;
  }

  // Skips `n` bits; the same errors as ReadBits when fewer remain.
  int SkipBits(uint64_t n);

  // ue(v): at most 63 leading zero bits; the 64th gives ERR_ABSTRACTION_INVALID_PARAMETERS with
  // the cursor on that bit. Running out gives ERR_ABSTRACTION_RANGE_NOT_AVAILABLE.
  int ReadUEG(unsigned long& out);
  // se(v), mapped from ue(v) as the standards do: 1, -1, 2, -2, ...
  int ReadSEG(long& out);

 private:
  int ReadBitsImpl(size_t n, size_t width, uint64_t& out);
};

}  // namespace media
}  // namespace ms
