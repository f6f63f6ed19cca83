// The four big-endian integer reads of a data source kind, made from its one
// ReadIntegerBytes(dst, width), which fills `width` bytes at the cursor or fails fatally.
#pragma once

#include <cstdint>

#include "abstraction/byte_order.h"

namespace vrex {
namespace abstraction {
namespace internal {

template <typename Kind, typename Base>
class WithIntegerReads : public Base {
 public:
  uint8_t ReadUInt8() override { return Read<uint8_t>(); }
  uint16_t ReadUInt16() override { return Read<uint16_t>(); }
  uint32_t ReadUInt32() override { return Read<uint32_t>(); }
  uint64_t ReadUInt64() override { return Read<uint64_t>(); }

 private:
  template <typename T>
  T Read() {
    unsigned char bytes[sizeof(T)];
    static_cast<Kind&>(*this).ReadIntegerBytes(bytes, sizeof(T));
    return LoadBE<T>(bytes);
  }
};

}  // namespace internal
}  // namespace abstraction
}  // namespace vrex
