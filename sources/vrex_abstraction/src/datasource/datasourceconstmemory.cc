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

void DataSourceConstMemory::ReadIntegerBytes(unsigned char* dst, unsigned width) {
  ReadIntegerFromBytes(_data, _size, _cursor, dst, width, "_size");
}

}  // namespace internal
}  // namespace abstraction
}  // namespace vrex
