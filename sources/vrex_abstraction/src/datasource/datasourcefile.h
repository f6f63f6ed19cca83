// DataSourceFile: a read-only file. Every read is positioned (pread), so the descriptor's
// kernel position carries no state and a file changed by another writer between two reads
// is read as it now is. The size is taken once, at open.
#pragma once

#include "datasource/integer_reads.h"
#include "datasource/read_only_source.h"

namespace vrex {
namespace abstraction {
namespace internal {

class DataSourceFile : public WithIntegerReads<DataSourceFile, ReadOnlyDataSource> {
 public:
  DataSourceFile() = default;
  ~DataSourceFile() override;
  DataSourceFile(const DataSourceFile&) = delete;
  DataSourceFile& operator=(const DataSourceFile&) = delete;

  // Opens `path` read-only and takes its size. Returns 0 or a negative code.
  int Initialize(const char* path);

  long Cursor() const override { return _cursor; }
  long Cursor(long pos) override;
  long Size() const override { return _fd < 0 ? 0 : _size; }
  long ReadBuffer(unsigned char* dst, unsigned long count) override;
  const unsigned char* PeekBuffer(unsigned char* dst, long offset, unsigned long count,
                                  int& err) override;

  // Fills `width` bytes at the cursor and advances it; a read past the end is fatal.
  void ReadIntegerBytes(unsigned char* dst, unsigned width);

 private:

  int _fd = -1;
  long _cursor = 0;
  long _size = 0;
};

}  // namespace internal
}  // namespace abstraction
}  // namespace vrex
