// A bounds-checked big-endian reader over a box payload held in memory. A read past the end
// sets a sticky flag and returns zeros, so a parser reads its fields and checks ok() once.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vrex {
namespace mediaformats {
namespace internal {
namespace mp4box {

class payload_reader_t {
 public:
  payload_reader_t(const uint8_t* data, size_t size) : _data(data), _size(size) {}

  uint8_t U8() { return static_cast<uint8_t>(Read(1)); }
  uint16_t U16() { return static_cast<uint16_t>(Read(2)); }
  uint32_t U24() { return static_cast<uint32_t>(Read(3)); }
  uint32_t U32() { return static_cast<uint32_t>(Read(4)); }
  uint64_t U64() { return Read(8); }
  // 64 bits when `wide`, else 32.
  uint64_t Uint(bool wide) { return wide ? U64() : U32(); }
  // Points at `count` bytes and steps over them; null (and failed) when they are not there.
  const uint8_t* Bytes(size_t count);
  void Skip(size_t count) { Bytes(count); }

  // True when `count` items of `itemSize` bytes remain; marks the reader failed otherwise.
  // Checked before a table is allocated.
  bool Fits(uint64_t count, size_t itemSize);
  size_t remaining() const { return _size - _pos; }
  size_t position() const { return _pos; }
  bool ok() const { return !_failed; }
  void Fail() { _failed = true; }

 private:
  uint64_t Read(size_t width);

  const uint8_t* _data;
  size_t _size;
  size_t _pos = 0;
  bool _failed = false;
};

}  // namespace mp4box
}  // namespace internal
}  // namespace mediaformats
}  // namespace vrex
