// NAL unit framing conversion, run on every frame served.
#include "media/nalu.h"

#include <cstring>

#include "abstraction/byte_order.h"
#include "media/errors.h"

namespace vrex {
namespace media {

namespace {
// The pattern that ends each start code; a 4-byte start code has one more zero in front.
const uint8_t kDelimiter[3] = {0, 0, 1};

// Finds 00 00 01 in [from, end); returns end when absent.
const uint8_t* FindDelimiter(const uint8_t* from, const uint8_t* end) {
  while (end - from >= 3) {
    const void* hit = std::memchr(from + 2, kDelimiter[2], static_cast<size_t>(end - from - 2));
    if (hit == nullptr) return end;
    const uint8_t* one = static_cast<const uint8_t*>(hit);
    if (one[-1] == 0 && one[-2] == 0) return one - 2;
    from = one - 1;
  }
  return end;
}
}  // namespace

resizing_buffer_t::~resizing_buffer_t() { delete[] pData; }

void resizing_buffer_t::EnsureCapacity(uint64_t size) {
  if (size <= capacity) return;
  delete[] pData;
  pData = new uint8_t[size];
  capacity = size;
}

int nalu_avcc_to_b_t::Work(const uint8_t* data, size_t size) {
  used = 0;
  EnsureCapacity(size);
  if (size <= 4) return VREX_ERROR(ERR_MEDIA_INVALID_NALU);
  size_t cursor = 0;
  while (size - cursor > 4) {
    const uint32_t length = abstraction::LoadBE32(data + cursor);
    if (length > size - cursor - 4) return VREX_ERROR(ERR_MEDIA_INVALID_NALU);
    static const uint8_t kStartCode[4] = {0, 0, 0, 1};
    std::memcpy(pData + cursor, kStartCode, 4);
    std::memcpy(pData + cursor + 4, data + cursor + 4, length);
    cursor += 4 + static_cast<size_t>(length);
  }
  if (cursor != size) return VREX_ERROR(ERR_MEDIA_INVALID_NALU);
  used = size;
  return 0;
}

int nalu_b_to_avcc_t::Work(const uint8_t* data, size_t size) {
  // Each start code of 3 bytes or more yields 4 bytes of length, and input that starts
  // without one gains 4: size + size / 3 + 4 bounds the output.
  EnsureCapacity(static_cast<uint64_t>(size) + size / 3 + 4);
  used = 0;
  const uint8_t* end = data + size;
  const uint8_t* cursor = data;
  while (cursor < end) {
    const uint8_t* match = FindDelimiter(cursor, end);
    size_t length = static_cast<size_t>(match - cursor);
    if (match != end && length > 0 && match[-1] == 0) --length;
    if (length > 0) {
      abstraction::StoreBE32(pData + used, static_cast<uint32_t>(length));
      std::memcpy(pData + used + 4, cursor, length);
      used += 4 + length;
    }
    if (match == end) break;
    cursor = match + sizeof(kDelimiter);
  }
  return 0;
}

}  // namespace media
}  // namespace vrex
