// A closed interval of file offsets, indexes or wall clocks: [left, right], both ends included.
#pragma once

#include <string>

namespace vrex {
namespace abstraction {

struct interval_t {
  long left = -1;
  long right = -1;

  interval_t() = default;
  interval_t(long l, long r) : left(l), right(r) {}

  // Valid when left is not negative and right is not below left.
  bool IsValid() const { return left >= 0 && right >= left; }
  // right - left + 1, or -1 for an invalid interval.
  long Size() const { return IsValid() ? right - left + 1 : -1; }
  // The part both hold, or the invalid (-1, -1) when they share nothing or either is invalid.
  interval_t Intersect(const interval_t& other) const;
  // "[left, right]", for logs.
  std::string ToString() const;

  bool operator==(const interval_t& other) const {
    return left == other.left && right == other.right;
  }
};

}  // namespace abstraction
}  // namespace vrex
