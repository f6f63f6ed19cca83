// DataSourceMemory: a growable byte queue, read at the front and appended at the back.
#pragma once

#include "datasource/integer_reads.h"
#include "abstraction/datasource.h"

namespace vrex {
namespace abstraction {
namespace internal {

class DataSourceMemory : public WithIntegerReads<DataSourceMemory, DataSource> {
 public:
  // `size` zero bytes, all published; none for size < 1.
  explicit DataSourceMemory(long size);
  ~DataSourceMemory() override;
  DataSourceMemory(const DataSourceMemory&) = delete;
  DataSourceMemory& operator=(const DataSourceMemory&) = delete;

  long MultifileBaseOffset() const override { return 0; }
  long Cursor() const override { return static_cast<long>(_cursor); }
  long Cursor(long pos) override;
  long Size() const override { return static_cast<long>(_published); }
  void Clear() override;
  long Optimize() override;
  int DropReadAhead() override { return 0; }
  long ReadBuffer(unsigned char* dst, unsigned long count) override;
  const unsigned char* PeekBuffer(unsigned char* dst, long offset, unsigned long count,
                                  int& err) override;
  long AppendBufferNonBlocking(const void* src, unsigned long count) override;
  long AppendDataSourceNonBlocking(DataSource* src, unsigned long count) override;

  // Fills `width` bytes at the cursor and advances it; a read past the end is fatal.
  void ReadIntegerBytes(unsigned char* dst, unsigned width);

 private:
  // Grows the buffer for the low 31 bits of `count` more bytes, in 64 KiB steps and by at
  // least half; returns that truncated count.
  unsigned long EnsureSize(unsigned long count);

  unsigned char* _buffer = nullptr;
  unsigned long _capacity = 0;
  unsigned long _published = 0;  // valid bytes; what Size() returns
  unsigned long _cursor = 0;     // invariant: _cursor <= _published <= _capacity
};

}  // namespace internal
}  // namespace abstraction
}  // namespace vrex
