// DataSourceConstMemory: a read-only window on memory that the caller owns.
#pragma once

#include "datasource/integer_reads.h"
#include "datasource/read_only_source.h"

namespace vrex {
namespace abstraction {
namespace internal {

class DataSourceConstMemory : public WithIntegerReads<DataSourceConstMemory, ReadOnlyDataSource> {
 public:
  DataSourceConstMemory(const void* data, unsigned long size);

  long Cursor() const override { return static_cast<long>(_cursor); }
  long Cursor(long pos) override;
  long Size() const override { return static_cast<long>(_size); }
  long ReadBuffer(unsigned char* dst, unsigned long count) override;
  const unsigned char* PeekBuffer(unsigned char* dst, long offset, unsigned long count,
                                  int& err) override;

  // Fills `width` bytes at the cursor and advances it; a read past the end is fatal.
  void ReadIntegerBytes(unsigned char* dst, unsigned width);

 private:

  const unsigned char* _data;  // not owned
  unsigned long _size;
  unsigned long _cursor = 0;
};

}  // namespace internal
}  // namespace abstraction
}  // namespace vrex
