// What the data source kinds share: the cursor clamp, and bounded reads from a byte range
// for the two memory kinds.
#pragma once

#include <cstring>

#include "abstraction/errors.h"
#include "abstraction/logging.h"

namespace vrex {
namespace abstraction {
namespace internal {

// The cursor rule of every kind: a position clamped to 0..size.
inline long ClampToSize(long pos, long size) { return pos < 0 ? 0 : (pos > size ? size : pos); }

inline long ReadBytes(const unsigned char* base, unsigned long size, unsigned long& cursor,
                      unsigned char* dst, unsigned long count) {
  if (count > size - cursor) return VREX_ERROR(ERR_ABSTRACTION_INVALID_PARAMETERS);
  if (count > 0) memcpy(dst, base + cursor, count);
  cursor += count;
  return static_cast<long>(count);
}

inline const unsigned char* PeekBytes(const unsigned char* base, unsigned long size,
                                      unsigned char* dst, long offset, unsigned long count,
                                      int& err) {
  err = 0;
  if (offset < 0 || static_cast<unsigned long>(offset) > size ||
      count > size - static_cast<unsigned long>(offset)) {
    err = VREX_ERROR(ERR_ABSTRACTION_INVALID_PARAMETERS);
    return nullptr;
  }
  if (dst == nullptr) return base == nullptr ? nullptr : base + offset;
  if (count > 0) memcpy(dst, base + offset, count);
  return dst;
}

// Copies the `width` bytes of an integer at the cursor; `sizeName` names the size field in the
// fatal record of an overrun.
inline void ReadIntegerFromBytes(const unsigned char* base, unsigned long size,
                                 unsigned long& cursor, unsigned char* dst, unsigned width,
                                 const char* sizeName) {
  VREX_ASSERT(width <= size - cursor)
      << "Bounds error: _cursor: " << cursor << "; sizeof(T): " << width << "; " << sizeName
      << ": " << size;
  memcpy(dst, base + cursor, width);
  cursor += width;
}

}  // namespace internal
}  // namespace abstraction
}  // namespace vrex
