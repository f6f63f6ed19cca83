// A module's table of error texts: index 0 is "OK", the last entry "unknown", and any
// number past the end reads as that last entry.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vrex {
namespace errors {

template <size_t N>
const char* DescribeFromTable(const char* const (&table)[N], uint16_t number) {
  static_assert(N >= 2, "a table holds at least OK and unknown");
  return table[number < N ? number : N - 1];
}

}  // namespace errors
}  // namespace vrex
