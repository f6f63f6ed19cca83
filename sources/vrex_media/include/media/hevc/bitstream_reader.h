// A most-significant-bit-first reader over one H.265 NAL unit that drops emulation
// prevention bytes (00 00 03) as it goes. It throws: only the H.265 parser uses it, and the
// parser catches at its edge.
#pragma once

#include <cstddef>
#include <cstdint>

namespace HEVC {

class BitstreamReader {
 public:
  BitstreamReader(const unsigned char* data, size_t size);

  // Bits left to the end of the data.
  size_t available() const;
  // Bits left up to the next start code (00 00 01 or 00 00 00 01), or to the end.
  size_t availableInNalU() const;
  // Each throws std::runtime_error("BitstreamReader: not enough data") at the end.
  bool getBit();
  // `num` at most 32, else std::invalid_argument.
  uint32_t getBits(size_t num);
  void skipBits(size_t num);
  // Peeks without moving.
  uint32_t showBits(size_t num);
  // ue(v); std::range_error at 32 or more leading zeros.
  uint32_t getU32();
  // se(v).
  int32_t getI32();

  const unsigned char* pData;
  size_t size;
  size_t position;  // byte index
  int bitsLeft;     // bit index within the byte, from 7 down

 private:
  void NextByte();
};

}  // namespace HEVC
