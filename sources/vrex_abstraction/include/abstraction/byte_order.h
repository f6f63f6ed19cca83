// Big-endian loads and stores: every integer in VRX files and in the engine protocol is
// big-endian, whatever the host.
#pragma once

#include <cstdint>

namespace vrex {
namespace abstraction {

inline uint16_t LoadBE16(const unsigned char* p) {
  return static_cast<uint16_t>((p[0] << 8) | p[1]);
}
inline uint32_t LoadBE32(const unsigned char* p) {
  return (static_cast<uint32_t>(p[0]) << 24) | (static_cast<uint32_t>(p[1]) << 16) |
         (static_cast<uint32_t>(p[2]) << 8) | p[3];
}
inline uint64_t LoadBE64(const unsigned char* p) {
  return (static_cast<uint64_t>(LoadBE32(p)) << 32) | LoadBE32(p + 4);
}

inline void StoreBE16(unsigned char* p, uint16_t v) {
  p[0] = static_cast<unsigned char>(v >> 8);
  p[1] = static_cast<unsigned char>(v);
}
inline void StoreBE32(unsigned char* p, uint32_t v) {
  p[0] = static_cast<unsigned char>(v >> 24);
  p[1] = static_cast<unsigned char>(v >> 16);
  p[2] = static_cast<unsigned char>(v >> 8);
  p[3] = static_cast<unsigned char>(v);
}
inline void StoreBE64(unsigned char* p, uint64_t v) {
  StoreBE32(p, static_cast<uint32_t>(v >> 32));
  StoreBE32(p + 4, static_cast<uint32_t>(v));
}

// Loads an unsigned big-endian integer of the width of T.
template <typename T>
T LoadBE(const unsigned char* p) {
  static_assert(sizeof(T) == 1 || sizeof(T) == 2 || sizeof(T) == 4 || sizeof(T) == 8, "width");
  if (sizeof(T) == 1) return static_cast<T>(p[0]);
  if (sizeof(T) == 2) return static_cast<T>(LoadBE16(p));
  if (sizeof(T) == 4) return static_cast<T>(LoadBE32(p));
  return static_cast<T>(LoadBE64(p));
}

}  // namespace abstraction
}  // namespace vrex
