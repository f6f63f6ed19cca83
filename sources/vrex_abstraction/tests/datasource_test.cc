// DataSource: the cursor rule, short reads, growth steps, Optimize, files read as one, and
// the file kinds' read-ahead against the bytes of the files.
#include "abstraction/datasource.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "abstraction/errors.h"
#include "temp_dir.h"

namespace vrex {
namespace abstraction {
namespace {

struct SourceDeleter {
  void operator()(DataSource* source) const { DataSource::FreeInstance(source); }
};
using SourcePtr = std::unique_ptr<DataSource, SourceDeleter>;

std::vector<unsigned char> Counting(size_t size, unsigned char first = 0) {
  std::vector<unsigned char> bytes(size);
  std::iota(bytes.begin(), bytes.end(), first);
  return bytes;
}

// Cursor clamping and big-endian reads on each kind; the file kinds meet them again, at every
// read-ahead edge, in EveryReadPatternGivesTheFileBytes.
TEST(DataSourceTest, CursorClampsAndBigEndianReadsOnEveryKind) {
  const std::vector<unsigned char> bytes = Counting(15, 1);
  TempDir dir;
  int err = 0;
  std::vector<SourcePtr> sources;
  sources.emplace_back(DataSource::GetInstance(0L));
  sources.back()->AppendBufferNonBlocking(bytes.data(), bytes.size());
  sources.emplace_back(DataSource::GetInstance(bytes.data(), bytes.size(), err));
  sources.emplace_back(DataSource::GetInstance(dir.File("whole", bytes).c_str(), err));
  sources.emplace_back(DataSource::GetInstance(
      {dir.File("first", Counting(5, 1)), dir.File("second", Counting(10, 6))}, err));
  for (SourcePtr& source : sources) {
    ASSERT_NE(source, nullptr);
    EXPECT_EQ(source->Size(), 15);
    EXPECT_EQ(source->Cursor(-5), 0);
    EXPECT_EQ(source->Cursor(16), 15);
    EXPECT_EQ(source->Available(), 0);
    EXPECT_EQ(source->Cursor(0), 0);
    EXPECT_EQ(source->ReadUInt8(), 0x01);
    EXPECT_EQ(source->ReadUInt16(), 0x0203);
    EXPECT_EQ(source->ReadUInt32(), 0x04050607u);  // crosses the seam of the two files
    EXPECT_EQ(source->ReadUInt64(), 0x08090A0B0C0D0E0Full);
    EXPECT_EQ(source->Available(), 0);
    EXPECT_EQ(source->DropReadAhead(), 0);  // nothing changed: nothing moves
    EXPECT_EQ(source->Size(), 15);
    EXPECT_EQ(source->Cursor(), 15);
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

// The walk in EveryReadPatternGivesTheFileBytes checks that failed reads keep the cursor;
// here are the codes of the failures, and a file cut after it was opened.
TEST(DataSourceTest, FileReadFailures) {
  TempDir dir;
  const std::string path = dir.File("f", Counting(100));
  int err = 0;
  SourcePtr source(DataSource::GetInstance(path.c_str(), err));
  ASSERT_NE(source, nullptr);
  unsigned char out[100];
  EXPECT_EQ(source->PeekBuffer(nullptr, 0, 4, err), nullptr);  // a file needs `dst`
  EXPECT_EQ(err, ERR_ABSTRACTION_INVALID_PARAMETERS);
  EXPECT_EQ(source->PeekBuffer(out, 98, 4, err), nullptr);
  EXPECT_EQ(err, ERR_ABSTRACTION_INVALID_PARAMETERS);
  EXPECT_EQ(source->AppendBufferNonBlocking(out, 1), ERR_ABSTRACTION_PUT_NOT_SUPPORTED);

  // Truncated after opening, before anything was read ahead: the size stays, a read at the
  // old end fails and keeps the cursor.
  source.reset(DataSource::GetInstance(path.c_str(), err));
  ASSERT_EQ(truncate(path.c_str(), 60), 0);
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
  TempDir dir;
  EXPECT_EQ(DataSource::GetInstance({dir.File("good", Counting(4)), "/nonexistent/x"}, err), nullptr);
  EXPECT_EQ(err, errors::SystemError(ENOENT));
  DataSource::FreeInstance(nullptr);
}

// Reads across the seams are the walk's (EveryReadPatternGivesTheFileBytes); here are the base
// offset, the code of a read past the end, and files that are all empty.
TEST(DataSourceTest, MultiFileBaseOffsetsAndEmptyFiles) {
  TempDir dir;
  const std::string empty = dir.File("empty");
  int err = 0;
  SourcePtr source(
      DataSource::GetInstance({dir.File("first", Counting(10)), empty, dir.File("third", Counting(10))}, err));
  ASSERT_NE(source, nullptr);
  EXPECT_EQ(source->Size(), 20);
  EXPECT_EQ(source->MultifileBaseOffset(), 0);
  source->Cursor(6);
  unsigned char out[20];
  EXPECT_EQ(source->ReadBuffer(out, 8), 8);
  EXPECT_EQ(source->MultifileBaseOffset(), 10);
  EXPECT_EQ(source->ReadBuffer(out, 7), ERR_ABSTRACTION_INVALID_PARAMETERS);
  EXPECT_EQ(source->Cursor(), 14);

  SourcePtr allEmpty(DataSource::GetInstance({empty, empty}, err));
  ASSERT_NE(allEmpty, nullptr);
  EXPECT_EQ(allEmpty->Size(), 0);
  EXPECT_EQ(allEmpty->ReadBuffer(out, 0), 0);
}

// Random bytes: a read from the wrong offset shows as wrong bytes, which a counting pattern
// could repeat.
std::vector<unsigned char> RandomBytes(size_t size, unsigned seed) {
  std::mt19937 random(seed);
  std::vector<unsigned char> bytes(size);
  for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(random());
  return bytes;
}

// A walk of seeks, reads, peeks and integer reads with a fixed seed, each checked against the
// bytes, on the file and on the same bytes split over three files (the middle one empty).
// Counts and positions straddle the read-ahead edges (pages, the first and the largest fill)
// and the seam; then small steps walk off the end. VIDORA_LONG_TESTS=1 walks 50 times longer.
TEST(DataSourceReadAheadTest, EveryReadPatternGivesTheFileBytes) {
  const std::vector<unsigned char> bytes = RandomBytes(1200007, 1);
  const long size = static_cast<long>(bytes.size()), seam = 262149;
  TempDir dir;
  int err = 0;
  SourcePtr sources[] = {
      SourcePtr(DataSource::GetInstance(dir.File("whole", bytes).c_str(), err)),
      SourcePtr(DataSource::GetInstance(
          {dir.File("first", std::string(bytes.begin(), bytes.begin() + seam)), dir.File("empty"),
           dir.File("last", std::string(bytes.begin() + seam, bytes.end()))},
          err))};
  const long counts[] = {0, 1, 2, 3, 4, 7, 8, 31, 4095, 4096, 4097, 16383, 16385,
                         65535, 65536, 65537, 262143, 262144, 262145, 300001};
  const long edges[] = {4096, 16384, 65536, 262144, seam, 524288, size};
  const int steps = getenv("VIDORA_LONG_TESTS") != nullptr ? 200000 : 4000;
  std::vector<unsigned char> out(300001);
  for (SourcePtr& source : sources) {
    std::mt19937 random(7);
    long cursor = 0;
    for (int step = 0; step < steps; ++step) {
      const long count = counts[random() % (sizeof(counts) / sizeof(counts[0]))];
      const long near = cursor + static_cast<long>(random() % 600001) - 300000;  // either way
      const long edge = edges[random() % (sizeof(edges) / sizeof(edges[0]))] - random() % 9;
      const long at = random() % 2 ? near : edge;
      const int op = random() % 4;
      if (op == 0) {  // a seek, past either end too
        cursor = std::max(0L, std::min(at, size));
        ASSERT_EQ(source->Cursor(at), cursor) << step;
      } else if (op < 3) {  // a read at the cursor, or a peek at `at`
        const long offset = op == 1 ? cursor : at;
        const bool fits = offset >= 0 && offset <= size && count <= size - offset;
        const bool done = op == 1 ? source->ReadBuffer(out.data(), count) == count
                                  : source->PeekBuffer(out.data(), at, count, err) != nullptr;
        ASSERT_EQ(done, fits) << step << ": " << count << " at " << offset;
        ASSERT_TRUE(!fits || memcmp(out.data(), &bytes[offset], count) == 0) << step;
        if (fits && op == 1) cursor += count;
        ASSERT_EQ(source->Cursor(), cursor) << step;
      } else {  // a big-endian integer across an edge
        const long width = 1L << (random() % 4);
        cursor = source->Cursor(edge - random() % width);
        if (source->Available() < width) continue;
        uint64_t want = 0;
        for (long i = 0; i < width; ++i) want = want << 8 | bytes[cursor + i];
        cursor += width;
        ASSERT_EQ(width == 1   ? source->ReadUInt8()
                  : width == 2 ? source->ReadUInt16()
                  : width == 4 ? source->ReadUInt32()
                               : source->ReadUInt64(), want) << step;
      }
    }
    for (const long step : {1L, 7L, 1000L, 4095L}) {
      for (cursor = source->Cursor(size - 20000 - step / 2); cursor + step <= size; cursor += step) {
        ASSERT_EQ(source->ReadBuffer(out.data(), step), step) << cursor;
        ASSERT_EQ(memcmp(out.data(), &bytes[cursor], step), 0) << cursor << " step " << step;
      }
      EXPECT_LT(source->ReadBuffer(out.data(), step), 0) << step;
      EXPECT_EQ(source->Cursor(), cursor) << step;
    }
  }
}

// Another writer rewrites a file that the source has read ahead, to a new length. The source
// answers from what it holds until DropReadAhead; after the drop it reads the files as they
// are now, a multi-file source with its base offsets moved.
TEST(DataSourceReadAheadTest, DropReadAheadSeesAnotherWritersChanges) {
  struct row_t {
    bool multi;
    size_t changed;  // which file
    long newLength;  // of that file
  };
  const row_t rows[] = {{false, 0, 400000}, {false, 0, 20000}, {true, 0, 90000},
                        {true, 2, 300000}, {true, 1, 0}, {true, 0, 0}};
  for (const row_t& row : rows) {
    const std::string what = std::to_string(row.changed) + " to " + std::to_string(row.newLength);
    std::vector<std::vector<unsigned char>> pieces = {RandomBytes(40000, 2), RandomBytes(60000, 3),
                                                      RandomBytes(30000, 5)};
    pieces.resize(row.multi ? 3 : 1);
    TempDir dir;
    std::vector<std::string> paths;
    long before = 0, at = 19000;  // `at`: 19,000 bytes into the file that changes
    for (size_t i = 0; i < pieces.size(); ++i) {
      paths.push_back(dir.File(std::to_string(i), pieces[i]));
      if (i < row.changed) at += static_cast<long>(pieces[i].size());
      before += static_cast<long>(pieces[i].size());
    }
    int err = 0;
    SourcePtr source(row.multi ? DataSource::GetInstance(paths, err)
                               : DataSource::GetInstance(paths[0].c_str(), err));
    std::vector<unsigned char> held(1000), out(before + 400000);
    for (long from = at - 19000; from <= at; from += 1000) {  // a walk: read ahead from 16 KiB on
      ASSERT_NE(source->PeekBuffer(held.data(), from, 1000, err), nullptr) << what;
    }
    source->Cursor(before);
    pieces[row.changed] = RandomBytes(row.newLength, 4);
    dir.File(std::to_string(row.changed), pieces[row.changed]);
    ASSERT_NE(source->PeekBuffer(out.data(), at, 1000, err), nullptr) << what;
    EXPECT_EQ(std::vector<unsigned char>(out.begin(), out.begin() + 1000), held) << what;
    EXPECT_EQ(source->Size(), before) << what;

    EXPECT_EQ(source->DropReadAhead(), 0) << what;
    std::vector<unsigned char> after;
    for (const auto& piece : pieces) after.insert(after.end(), piece.begin(), piece.end());
    const long size = static_cast<long>(after.size());
    EXPECT_EQ(source->Size(), size) << what;
    EXPECT_EQ(source->Cursor(), std::min(before, size)) << what;
    for (const long from : {std::min(at, size - 1000), 0L, size - 1000}) {  // held, first, moved
      ASSERT_NE(source->PeekBuffer(out.data(), from, size - from, err), nullptr) << what;
      EXPECT_EQ(memcmp(out.data(), &after[from], size - from), 0) << what << " from " << from;
    }
  }
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
