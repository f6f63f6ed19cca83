// interval_t: intersection and text.
#include "abstraction/interval.h"

#include <algorithm>

namespace vrex {
namespace abstraction {

interval_t interval_t::Intersect(const interval_t& other) const {
  if (!IsValid() || !other.IsValid()) return interval_t();
  const interval_t common(std::max(left, other.left), std::min(right, other.right));
  return common.IsValid() ? common : interval_t();
}

std::string interval_t::ToString() const {
  return "[" + std::to_string(left) + ", " + std::to_string(right) + "]";
}

}  // namespace abstraction
}  // namespace vrex
