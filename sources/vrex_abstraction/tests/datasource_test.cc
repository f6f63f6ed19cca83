// DataSource: the cursor rule, short reads, growth steps, Optimize, and files read as one.
#include "abstraction/datasource.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "abstraction/errors.h"

namespace vrex {
namespace abstraction {
namespace {

struct SourceDeleter {
  void operator()(DataSource* source) const { DataSource::FreeInstance(source); }
};
using SourcePtr = std::unique_ptr<DataSource, SourceDeleter>;

// A file under /tmp holding `bytes`, removed with the object.
class TempFile {
 public:
  explicit TempFile(const std::vector<unsigned char>& bytes) {
    char name[] = "/tmp/vidora_ds_XXXXXX";
    const int fd = mkstemp(name);
    EXPECT_GE(fd, 0);
    if (!bytes.empty()) {
      EXPECT_EQ(write(fd, bytes.data(), bytes.size()), ssize_t(bytes.size()));
    }
    close(fd);
    _path = name;
  }
  ~TempFile() { unlink(_path.c_str()); }
  const std::string& path() const { return _path; }

 private:
  std::string _path;
};

std::vector<unsigned char> Counting(size_t size, unsigned char first = 0) {
  std::vector<unsigned char> bytes(size);
  std::iota(bytes.begin(), bytes.end(), first);
  return bytes;
}

TEST(DataSourceTest, CursorClampsOnEveryKind) {
  const std::vector<unsigned char> bytes = Counting(64);
  TempFile file(bytes);
  int err = 0;
  std::vector<SourcePtr> sources;
  sources.emplace_back(DataSource::GetInstance(64L));
  sources.emplace_back(DataSource::GetInstance(bytes.data(), bytes.size(), err));
  sources.emplace_back(DataSource::GetInstance(file.path().c_str(), err));
  sources.emplace_back(DataSource::GetInstance(std::vector<std::string>{file.path(), file.path()}, err));
  for (SourcePtr& source : sources) {
    ASSERT_NE(source, nullptr);
    const long size = source->Size();
    EXPECT_EQ(source->Cursor(-5), 0);
    EXPECT_EQ(source->Cursor(), 0);
    EXPECT_EQ(source->Cursor(size + 1), size);
    EXPECT_EQ(source->Available(), 0);
    EXPECT_EQ(source->Cursor(10), 10);
    EXPECT_EQ(source->Available(), size - 10);
  }
}

TEST(DataSourceTest, BigEndianReadsOnEveryKind) {
  const std::vector<unsigned char> bytes = {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08,
                                            0x09, 0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F};
  TempFile first({bytes.begin(), bytes.begin() + 5});
  TempFile second({bytes.begin() + 5, bytes.end()});
  int err = 0;
  std::vector<SourcePtr> sources;
  sources.emplace_back(DataSource::GetInstance(0L));
  sources.back()->AppendBufferNonBlocking(bytes.data(), bytes.size());
  sources.emplace_back(DataSource::GetInstance(bytes.data(), bytes.size(), err));
  TempFile whole(bytes);
  sources.emplace_back(DataSource::GetInstance(whole.path().c_str(), err));
  sources.emplace_back(DataSource::GetInstance(std::vector<std::string>{first.path(), second.path()}, err));
  for (SourcePtr& source : sources) {
    ASSERT_NE(source, nullptr);
    EXPECT_EQ(source->ReadUInt8(), 0x01);
    EXPECT_EQ(source->ReadUInt16(), 0x0203);
    EXPECT_EQ(source->ReadUInt32(), 0x04050607u);  // crosses the seam of the two files
    EXPECT_EQ(source->ReadUInt64(), 0x08090A0B0C0D0E0Full);
    EXPECT_EQ(source->Available(), 0);
  }
}

TEST(DataSourceTest, MemoryQueueGrowsIn64KiBSteps) {
  SourcePtr queue(DataSource::GetInstance(0L));
  EXPECT_EQ(queue->Size(), 0);
  const std::vector<unsigned char> chunk = Counting(1000);
  EXPECT_EQ(queue->AppendBufferNonBlocking(chunk.data(), chunk.size()), 1000);
  EXPECT_EQ(queue->Size(), 1000);
  EXPECT_EQ(queue->Cursor(), 0);
  // The first append allocated 65,536 bytes; zero-copy peek of all content stays valid until
  // the next growth, so the pointer is stable while appends fit.
  int err = 0;
  const unsigned char* before = queue->PeekBuffer(nullptr, 0, queue->Size(), err);
  ASSERT_NE(before, nullptr);
  std::vector<unsigned char> fill(65536 - 1000, 0xAB);
  EXPECT_EQ(queue->AppendBufferNonBlocking(fill.data(), fill.size()), long(fill.size()));
  EXPECT_EQ(queue->PeekBuffer(nullptr, 0, queue->Size(), err), before);
  // One more byte grows it to max(1.5 * 65536, 65537) with the low 16 bits cleared + 65536.
  unsigned char one = 7;
  EXPECT_EQ(queue->AppendBufferNonBlocking(&one, 1), 1);
  EXPECT_EQ(queue->Size(), 65537);
  const unsigned char* after = queue->PeekBuffer(nullptr, 0, queue->Size(), err);
  EXPECT_EQ(memcmp(after, chunk.data(), chunk.size()), 0);
  EXPECT_EQ(after[65536], 7);
}

TEST(DataSourceTest, PreallocatedQueueHoldsZerosUntilCleared) {
  SourcePtr queue(DataSource::GetInstance(2048L));
  EXPECT_EQ(queue->Size(), 2048);
  std::vector<unsigned char> out(2048, 0xFF);
  EXPECT_EQ(queue->ReadBuffer(out.data(), out.size()), 2048);
  EXPECT_EQ(out, std::vector<unsigned char>(2048, 0));
  queue->Clear();
  EXPECT_EQ(queue->Size(), 0);
  EXPECT_EQ(queue->Cursor(), 0);
}

TEST(DataSourceTest, OptimizeMovesOnlyWithoutOverlap) {
  struct row_t {
    long read;
    long unread;
    long cursorAfter;
  };
  const row_t rows[] = {{10, 11, 10}, {11, 10, 0}, {0, 5, 0}, {8, 0, 0}};
  for (const row_t& row : rows) {
    SourcePtr queue(DataSource::GetInstance(0L));
    const std::vector<unsigned char> bytes = Counting(row.read + row.unread);
    queue->AppendBufferNonBlocking(bytes.data(), bytes.size());
    std::vector<unsigned char> sink(row.read + 1);
    EXPECT_EQ(queue->ReadBuffer(sink.data(), row.read), row.read);
    EXPECT_EQ(queue->Optimize(), row.unread);
    EXPECT_EQ(queue->Cursor(), row.cursorAfter) << row.read << "/" << row.unread;
    EXPECT_EQ(queue->Available(), row.unread);
    if (row.unread > 0) {
      EXPECT_EQ(queue->ReadUInt8(), bytes[row.read]);
    }
  }
}

TEST(DataSourceTest, ReadOutcomesOnMemoryKinds) {
  const std::vector<unsigned char> bytes = Counting(8);
  int err = 0;
  SourcePtr constant(DataSource::GetInstance(bytes.data(), bytes.size(), err));
  SourcePtr queue(DataSource::GetInstance(0L));
  queue->AppendBufferNonBlocking(bytes.data(), bytes.size());
  for (DataSource* source : {constant.get(), queue.get()}) {
    unsigned char out[16];
    EXPECT_EQ(source->ReadBuffer(out, 9), ERR_ABSTRACTION_INVALID_PARAMETERS);
    EXPECT_EQ(source->Cursor(), 0);
    EXPECT_EQ(source->ReadBuffer(out, 8), 8);
    EXPECT_EQ(source->ReadBuffer(out, 0), 0);  // 0 bytes at the end succeed
    EXPECT_EQ(source->PeekBuffer(out, 4, 5, err), nullptr);
    EXPECT_EQ(err, ERR_ABSTRACTION_INVALID_PARAMETERS);
    const unsigned char* peeked = source->PeekBuffer(nullptr, 6, 2, err);
    ASSERT_NE(peeked, nullptr);
    EXPECT_EQ(err, 0);
    EXPECT_EQ(peeked[0], 6);
    EXPECT_EQ(source->PeekBuffer(out, 6, 2, err), out);
    EXPECT_EQ(out[1], 7);
  }
  EXPECT_EQ(constant->AppendBufferNonBlocking(bytes.data(), 1), ERR_ABSTRACTION_PUT_NOT_SUPPORTED);

  // An empty queue that never had a buffer still answers a peek of nothing with `dst`.
  SourcePtr fresh(DataSource::GetInstance(0L));
  unsigned char out[1];
  EXPECT_EQ(fresh->PeekBuffer(out, 0, 0, err), out);
  EXPECT_EQ(err, 0);
  EXPECT_EQ(fresh->PeekBuffer(out, 0, 1, err), nullptr);
  EXPECT_EQ(err, ERR_ABSTRACTION_INVALID_PARAMETERS);
}

TEST(DataSourceTest, AppendDataSourceMovesWhatIsAvailable) {
  const std::vector<unsigned char> bytes = Counting(10);
  int err = 0;
  SourcePtr from(DataSource::GetInstance(bytes.data(), bytes.size(), err));
  from->Cursor(4);
  SourcePtr queue(DataSource::GetInstance(0L));
  EXPECT_EQ(queue->AppendDataSourceNonBlocking(from.get(), 100), 6);
  EXPECT_EQ(from->Available(), 0);
  EXPECT_EQ(queue->ReadUInt16(), 0x0405);
}

TEST(DataSourceTest, FileReadsFailShortAndKeepTheCursor) {
  TempFile file(Counting(100));
  int err = 0;
  SourcePtr source(DataSource::GetInstance(file.path().c_str(), err));
  ASSERT_NE(source, nullptr);
  EXPECT_EQ(source->Size(), 100);
  unsigned char out[100];
  EXPECT_EQ(source->Cursor(90), 90);
  EXPECT_LT(source->ReadBuffer(out, 20), 0);
  EXPECT_EQ(source->Cursor(), 90);
  EXPECT_EQ(source->PeekBuffer(nullptr, 0, 4, err), nullptr);
  EXPECT_EQ(err, ERR_ABSTRACTION_INVALID_PARAMETERS);
  EXPECT_EQ(source->PeekBuffer(out, 98, 4, err), nullptr);
  EXPECT_EQ(err, ERR_ABSTRACTION_INVALID_PARAMETERS);
  EXPECT_EQ(source->PeekBuffer(out, 50, 2, err), out);
  EXPECT_EQ(out[1], 51);
  EXPECT_EQ(source->Cursor(), 90);
  EXPECT_EQ(source->AppendBufferNonBlocking(out, 1), ERR_ABSTRACTION_PUT_NOT_SUPPORTED);

  // Truncated after opening: the size stays, a read at the old end fails and keeps the cursor;
  // a change of the bytes is seen at once.
  ASSERT_EQ(truncate(file.path().c_str(), 60), 0);
  EXPECT_EQ(source->Size(), 100);
  source->Cursor(56);
  EXPECT_LT(source->ReadBuffer(out, 8), 0);
  EXPECT_EQ(source->Cursor(), 56);
  EXPECT_EQ(source->PeekBuffer(out, 90, 4, err), nullptr);
  EXPECT_EQ(err, ERR_ABSTRACTION_RANGE_NOT_AVAILABLE);
  EXPECT_EQ(source->ReadBuffer(out, 4), 4);
  EXPECT_EQ(out[3], 59);
}

TEST(DataSourceTest, FileFactoryFailures) {
  int err = 0;
  EXPECT_EQ(DataSource::GetInstance("", err), nullptr);
  EXPECT_EQ(err, ERR_ABSTRACTION_INVALID_PARAMETERS);
  EXPECT_EQ(DataSource::GetInstance("/nonexistent/vidora/file.vrx", err), nullptr);
  EXPECT_EQ(err, errors::SystemError(ENOENT));
  EXPECT_EQ(DataSource::GetInstance(std::vector<std::string>{}, err), nullptr);
  EXPECT_EQ(err, ERR_ABSTRACTION_INVALID_PARAMETERS);
  TempFile good(Counting(4));
  EXPECT_EQ(DataSource::GetInstance(std::vector<std::string>{good.path(), "/nonexistent/x"}, err),
            nullptr);
  EXPECT_EQ(err, errors::SystemError(ENOENT));
  DataSource::FreeInstance(nullptr);
}

TEST(DataSourceTest, MultiFileLeavesOutEmptyFilesAndReadsAcrossSeams) {
  TempFile first(Counting(10, 0));
  TempFile empty({});
  TempFile third(Counting(10, 10));
  int err = 0;
  SourcePtr source(DataSource::GetInstance(
      std::vector<std::string>{first.path(), empty.path(), third.path()}, err));
  ASSERT_NE(source, nullptr);
  EXPECT_EQ(source->Size(), 20);
  EXPECT_EQ(source->MultifileBaseOffset(), 0);
  source->Cursor(6);
  unsigned char out[20];
  EXPECT_EQ(source->ReadBuffer(out, 8), 8);
  EXPECT_EQ(std::vector<unsigned char>(out, out + 8), Counting(8, 6));
  EXPECT_EQ(source->Cursor(), 14);
  EXPECT_EQ(source->MultifileBaseOffset(), 10);
  EXPECT_EQ(source->ReadBuffer(out, 7), ERR_ABSTRACTION_INVALID_PARAMETERS);
  EXPECT_EQ(source->Cursor(), 14);
  EXPECT_EQ(source->PeekBuffer(out, 8, 4, err), out);
  EXPECT_EQ(std::vector<unsigned char>(out, out + 4), Counting(4, 8));
  EXPECT_EQ(source->Cursor(), 14);
  source->Cursor(10);
  EXPECT_EQ(source->ReadBuffer(out, 10), 10);
  EXPECT_EQ(source->Available(), 0);

  SourcePtr allEmpty(DataSource::GetInstance(std::vector<std::string>{empty.path(), empty.path()}, err));
  ASSERT_NE(allEmpty, nullptr);
  EXPECT_EQ(allEmpty->Size(), 0);
  EXPECT_EQ(allEmpty->ReadBuffer(out, 0), 0);
}

TEST(DataSourceDeathTest, IntegerReadPastTheEndIsFatal) {
  const unsigned char bytes[3] = {1, 2, 3};
  int err = 0;
  SourcePtr source(DataSource::GetInstance(bytes, sizeof(bytes), err));
  source->Cursor(1);
  EXPECT_DEATH(source->ReadUInt32(), "Bounds error: _cursor: 1; sizeof\\(T\\): 4; _size: 3");
}

}  // namespace
}  // namespace abstraction
}  // namespace vrex
