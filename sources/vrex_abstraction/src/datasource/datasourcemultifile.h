// DataSourceMultiFile: several files read as one long file, in the order given, all through
// one read-ahead window.
#pragma once

#include <string>
#include <vector>

#include "datasource/integer_reads.h"
#include "datasource/read_ahead_window.h"
#include "datasource/read_only_source.h"

namespace vrex {
namespace abstraction {
namespace internal {

class DataSourceMultiFile : public WithIntegerReads<DataSourceMultiFile, ReadOnlyDataSource> {
 public:
  DataSourceMultiFile() = default;
  ~DataSourceMultiFile() override;
  DataSourceMultiFile(const DataSourceMultiFile&) = delete;
  DataSourceMultiFile& operator=(const DataSourceMultiFile&) = delete;

  // Opens every file; empty ones are left out. Returns 0 or the first failure.
  int Initialize(const std::vector<std::string>& paths);

  long MultifileBaseOffset() const override;
  long Cursor() const override { return _cursor; }
  long Cursor(long pos) override;
  long Size() const override { return _totalSize; }
  long ReadBuffer(unsigned char* dst, unsigned long count) override;
  const unsigned char* PeekBuffer(unsigned char* dst, long offset, unsigned long count,
                                  int& err) override;
  // Forgets the window, takes every file's size anew and lays the files out again by them.
  int DropReadAhead() override;

  // Fills `width` bytes at the cursor and advances it; a read past the end is fatal.
  void ReadIntegerBytes(unsigned char* dst, unsigned width);

 private:
  // Makes the next file that is not empty current at its start when the current one is
  // exhausted (a file may be empty once its size was taken anew).
  int MoveToNextFileIfExhausted();

  ReadAheadWindow _window;          // shared by the files; declared first, destroyed last
  std::vector<DataSource*> _files;  // owned
  std::vector<long> _baseOffsets;   // where each file starts in the concatenation
  size_t _current = 0;
  long _cursor = 0;
  long _totalSize = 0;
};

}  // namespace internal
}  // namespace abstraction
}  // namespace vrex
