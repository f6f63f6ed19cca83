// Bounds-checked reads for the MP4 box parsers.
#include "mp4box/payload_reader.h"

namespace vrex {
namespace mediaformats {
namespace internal {
namespace mp4box {

uint64_t payload_reader_t::Read(size_t width) {
  const uint8_t* p = Bytes(width);
  uint64_t v = 0;
  if (p == nullptr) return 0;
  for (size_t i = 0; i < width; ++i) v = (v << 8) | p[i];
  return v;
}

const uint8_t* payload_reader_t::Bytes(size_t count) {
  if (_failed || count > _size - _pos) {
    _failed = true;
    return nullptr;
  }
  const uint8_t* p = _data + _pos;
  _pos += count;
  return p;
}

bool payload_reader_t::Fits(uint64_t count, size_t itemSize) {
  if (!_failed && count <= remaining() / itemSize) return true;
  _failed = true;
  return false;
}

}  // namespace mp4box
}  // namespace internal
}  // namespace mediaformats
}  // namespace vrex
