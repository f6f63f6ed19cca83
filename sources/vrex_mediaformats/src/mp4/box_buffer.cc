// Big-endian serialisation and in-place size patching for the box writers.
#include "mp4/box_buffer.h"

#include <cstring>

#include "abstraction/logging.h"

namespace vrex {
namespace mediaformats {
namespace internal {

void BoxBuffer::Put16(uint16_t v) {
  Put8(v >> 8);
  Put8(v & 0xff);
}

void BoxBuffer::Put24(uint32_t v) {
  Put8((v >> 16) & 0xff);
  Put16(v & 0xffff);
}

void BoxBuffer::Put32(uint32_t v) {
  Put16(v >> 16);
  Put16(v & 0xffff);
}

void BoxBuffer::Put64(uint64_t v) {
  Put32(static_cast<uint32_t>(v >> 32));
  Put32(static_cast<uint32_t>(v));
}

void BoxBuffer::PutBytes(const void* data, size_t size) {
  const uint8_t* p = static_cast<const uint8_t*>(data);
  _bytes.insert(_bytes.end(), p, p + size);
}

size_t BoxBuffer::BeginBox(const char* fourcc) {
  size_t start = _bytes.size();
  Put32(0);
  PutFourcc(fourcc);
  return start;
}

size_t BoxBuffer::BeginFullBox(const char* fourcc, uint8_t version, uint32_t flags) {
  size_t start = BeginBox(fourcc);
  Put8(version);
  Put24(flags);
  return start;
}

void BoxBuffer::EndBox(size_t start) {
  size_t totalWritten = _bytes.size() - start;
  VREX_ASSERT(totalWritten <= 0x7fffffff);
  Patch32(start, static_cast<uint32_t>(totalWritten));
}

void BoxBuffer::Patch32(size_t at, uint32_t v) {
  VREX_ASSERT(at + 4 <= _bytes.size());
  for (int i = 0; i < 4; ++i) _bytes[at + i] = static_cast<uint8_t>(v >> (24 - 8 * i));
}

void BoxBuffer::Patch64(size_t at, uint64_t v) {
  Patch32(at, static_cast<uint32_t>(v >> 32));
  Patch32(at + 4, static_cast<uint32_t>(v));
}

void PutUnityMatrix(BoxBuffer& out) {
  static const uint32_t kMatrix[9] = {0x00010000, 0, 0, 0, 0x00010000, 0, 0, 0, 0x40000000};
  for (uint32_t v : kMatrix) out.Put32(v);
}

}  // namespace internal
}  // namespace mediaformats
}  // namespace vrex
