// The H.265 parser's bit reader.
#include "media/hevc/bitstream_reader.h"

#include <stdexcept>

namespace HEVC {

BitstreamReader::BitstreamReader(const unsigned char* data, size_t dataSize)
    : pData(data), size(dataSize), position(0), bitsLeft(7) {}

size_t BitstreamReader::available() const {
  if (position >= size) return 0;
  return (size - position - 1) * 8 + static_cast<size_t>(bitsLeft) + 1;
}

size_t BitstreamReader::availableInNalU() const {
  size_t end = position;
  while (end + 2 < size && !(pData[end] == 0 && pData[end + 1] == 0 && pData[end + 2] <= 1)) ++end;
  if (end + 2 >= size) end = size;
  if (position >= end) return 0;
  return (end - position - 1) * 8 + static_cast<size_t>(bitsLeft) + 1;
}

void BitstreamReader::NextByte() {
  bitsLeft = 7;
  ++position;
  // Emulation prevention: a 03 after two zero bytes is not data.
  if (position >= 2 && position < size && pData[position] == 3 && pData[position - 1] == 0 &&
      pData[position - 2] == 0)
    ++position;
}

bool BitstreamReader::getBit() {
  if (position >= size) throw std::runtime_error("BitstreamReader: not enough data");
  const bool bit = (pData[position] >> bitsLeft) & 1;
  if (bitsLeft == 0)
    NextByte();
  else
    --bitsLeft;
  return bit;
}

uint32_t BitstreamReader::getBits(size_t num) {
  if (num > 32) throw std::invalid_argument("BitstreamReader: num <= 32");
  uint32_t value = 0;
  for (size_t i = 0; i < num; ++i) value = (value << 1) | (getBit() ? 1u : 0u);
  return value;
}

void BitstreamReader::skipBits(size_t num) {
  for (size_t i = 0; i < num; ++i) getBit();
}

uint32_t BitstreamReader::showBits(size_t num) {
  const size_t savedPosition = position;
  const int savedBitsLeft = bitsLeft;
  uint32_t value = 0;
  try {
    value = getBits(num);
  } catch (...) {
    position = savedPosition;
    bitsLeft = savedBitsLeft;
    throw;
  }
  position = savedPosition;
  bitsLeft = savedBitsLeft;
  return value;
}

uint32_t BitstreamReader::getU32() {
  size_t leadingZeros = 0;
  while (!getBit()) {
    if (++leadingZeros >= 32) throw std::range_error("Golomb: size of value more then 32 bits");
  }
  if (leadingZeros == 0) return 0;
  return static_cast<uint32_t>((uint64_t{1} << leadingZeros) - 1 + getBits(leadingZeros));
}

int32_t BitstreamReader::getI32() {
  const uint32_t k = getU32();
  return (k & 1) ? static_cast<int32_t>((k + 1) / 2) : -static_cast<int32_t>(k / 2);
}

}  // namespace HEVC
