// DataSourceMemory: the reassembly buffer of every track and the seek table of every open
// partition, so it grows geometrically and never shrinks.
#include "datasource/datasourcememory.h"

#include <algorithm>
#include <cstring>

#include "datasource/memory_bytes.h"

namespace vrex {
namespace abstraction {
namespace internal {

DataSourceMemory::DataSourceMemory(long size) {
  if (size < 1) return;
  _buffer = new unsigned char[size]();
  _capacity = static_cast<unsigned long>(size);
  _published = _capacity;
}

DataSourceMemory::~DataSourceMemory() { delete[] _buffer; }

long DataSourceMemory::Cursor(long pos) {
  _cursor = static_cast<unsigned long>(ClampToSize(pos, Size()));
  return static_cast<long>(_cursor);
}

void DataSourceMemory::Clear() {
  _published = 0;
  _cursor = 0;
}

long DataSourceMemory::Optimize() {
  const unsigned long unread = _published - _cursor;
  // The bytes move only when source and destination do not overlap.
  if (unread > _cursor) return static_cast<long>(unread);
  if (unread > 0) memcpy(_buffer, _buffer + _cursor, unread);
  _published = unread;
  _cursor = 0;
  return static_cast<long>(unread);
}

long DataSourceMemory::ReadBuffer(unsigned char* dst, unsigned long count) {
  return ReadBytes(_buffer, _published, _cursor, dst, count);
}

const unsigned char* DataSourceMemory::PeekBuffer(unsigned char* dst, long offset,
                                                  unsigned long count, int& err) {
  return PeekBytes(_buffer, _published, dst, offset, count, err);
}

unsigned long DataSourceMemory::EnsureSize(unsigned long count) {
  count &= 0x7FFFFFFFul;
  if (_capacity - _published >= count) return count;
  const unsigned long grown = std::max(_capacity + _capacity / 2, _published + count);
  const unsigned long capacity = (grown & ~0xFFFFul) + 0x10000ul;
  unsigned char* buffer = new unsigned char[capacity];
  if (_capacity > 0) memcpy(buffer, _buffer, _capacity);
  delete[] _buffer;
  _buffer = buffer;
  _capacity = capacity;
  return count;
}

long DataSourceMemory::AppendBufferNonBlocking(const void* src, unsigned long count) {
  count = EnsureSize(count);
  if (count > 0) memcpy(_buffer + _published, src, count);
  _published += count;
  return static_cast<long>(count);
}

long DataSourceMemory::AppendDataSourceNonBlocking(DataSource* src, unsigned long count) {
  count = std::min(count, static_cast<unsigned long>(src->Available()));
  count = EnsureSize(count);
  const long copied = src->ReadBuffer(_buffer + _published, count);
  if (copied < 0) return copied;
  _published += static_cast<unsigned long>(copied);
  return copied;
}

void DataSourceMemory::ReadIntegerBytes(unsigned char* dst, unsigned width) {
  ReadIntegerFromBytes(_buffer, _published, _cursor, dst, width, "_published");
}

}  // namespace internal
}  // namespace abstraction
}  // namespace vrex
