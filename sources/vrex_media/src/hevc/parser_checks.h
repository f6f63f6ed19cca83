// Limits and the failure helper shared by the H.265 parser's files.
#pragma once

#include <cstdint>
#include <stdexcept>

namespace HEVC {
namespace internal {

constexpr uint32_t kMaxSubLayers = 7;

// Throws, to be caught in Parser::processNALUnit, when a value breaks the standard's limits.
inline void Require(bool condition, const char* what) {
  if (!condition) throw std::runtime_error(what);
}

}  // namespace internal
}  // namespace HEVC
