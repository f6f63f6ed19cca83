// DataSourceFile: a read-only file, read through a read-ahead window. Every read is positioned
// (pread), so the descriptor's kernel position carries no state. The size is taken at open;
// what the window holds and the size stay as they were until DropReadAhead.
#pragma once

#include <memory>

#include "datasource/integer_reads.h"
#include "datasource/read_ahead_window.h"
#include "datasource/read_only_source.h"

namespace vrex {
namespace abstraction {
namespace internal {

class DataSourceFile : public WithIntegerReads<DataSourceFile, ReadOnlyDataSource> {
 public:
  // `window`: the window to read through, shared with the other files of a concatenation and
  // outliving this object; null gives the file one of its own.
  explicit DataSourceFile(ReadAheadWindow* window = nullptr);
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
  // Forgets the window and takes the size anew; a cursor past the new end moves to it.
  int DropReadAhead() override;

  // Fills `width` bytes at the cursor and advances it; a read past the end is fatal.
  void ReadIntegerBytes(unsigned char* dst, unsigned width);

 private:
  std::unique_ptr<ReadAheadWindow> _ownWindow;  // when none was given
  ReadAheadWindow* _window;
  int _fd = -1;
  long _cursor = 0;
  long _size = 0;
};

}  // namespace internal
}  // namespace abstraction
}  // namespace vrex
