// DataSourceConstMemory: reads over caller memory without copying it.
#include "datasource/datasourceconstmemory.h"

#include "datasource/memory_bytes.h"

namespace vrex {
namespace abstraction {
namespace internal {

DataSourceConstMemory::DataSourceConstMemory(const void* data, unsigned long size)
    : _data(static_cast<const unsigned char*>(data)), _size(data != nullptr ? size : 0) {}

long DataSourceConstMemory::Cursor(long pos) {
  _cursor = static_cast<unsigned long>(ClampToSize(pos, Size()));
  return static_cast<long>(_cursor);
}

long DataSourceConstMemory::ReadBuffer(unsigned char* dst, unsigned long count) {
  return ReadBytes(_data, _size, _cursor, dst, count);
}

const unsigned char* DataSourceConstMemory::PeekBuffer(unsigned char* dst, long offset,
                                                       unsigned long count, int& err) {
  return PeekBytes(_data, _size, dst, offset, count, err);
}

template <typename T>
T DataSourceConstMemory::Read() {
  return ReadBigEndian<T>(_data, _size, _cursor, "_size");
}

uint8_t DataSourceConstMemory::ReadUInt8() { return Read<uint8_t>(); }
uint16_t DataSourceConstMemory::ReadUInt16() { return Read<uint16_t>(); }
uint32_t DataSourceConstMemory::ReadUInt32() { return Read<uint32_t>(); }
uint64_t DataSourceConstMemory::ReadUInt64() { return Read<uint64_t>(); }

}  // namespace internal
}  // namespace abstraction
}  // namespace vrex
