// VREXFileUtils on real files: the sizes a managed file may have, the appender cache around each operation (close, create over a cached file, a
// maintenance operation while an append runs), the record of executed appends, and reindex
// rebuilding seek tables that were zeroed by hand.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "abstraction/byte_order.h"
#include "mediaformats/errors.h"
#include "mediaformats/vrx/vrex_file_utils.h"
#include "vrx_cut_util.h"
#include "vrxfile/vrex_file_appender.h"
#include "vrxfile/vrex_file_appender_cache.h"

namespace vrex {
namespace mediaformats {
namespace {

using namespace vrx_testing;
using internal::VREXFileAppender;
using internal::VREXFileAppenderCache;

const Bytes kFixed(12, 0);

long Append(const source_t& src, const std::string& dst, bool createNew = false) {
  return VREXFileUtils::VRXFileAppend(src.file.path(), dst, kFixed.data(), nullptr, 0, createNew);
}

TEST(VrxFileUtilsTest, CreateTakesOnlyManagedSizes) {
  const struct {
    long size;
    int result;
  } rows[] = {
      {1048575, ERR_MEDIAFORMATS_INVALID_FILE_SIZE}, {1052673, ERR_MEDIAFORMATS_INVALID_FILE_SIZE},
      {1048576 - 4096, ERR_MEDIAFORMATS_INVALID_FILE_SIZE}, {0, ERR_MEDIAFORMATS_INVALID_FILE_SIZE},
      {-4096, ERR_MEDIAFORMATS_INVALID_FILE_SIZE}, {1048576, 0}, {1052672, 0}, {8 << 20, 0},
  };
  for (const auto& row : rows) {
    TempFile file;
    unlink(file.path().c_str());
    EXPECT_EQ(VREXFileUtils::VRXFileCreate(file.path(), row.size, 0640), row.result) << row.size;
    if (row.result != 0) {
      EXPECT_NE(access(file.path().c_str(), F_OK), 0) << "no file made for " << row.size;
      continue;
    }
    std::string error;
    EXPECT_EQ(WalkSkipChain(file.path(), 0, error), 0) << error;
    struct stat info;
    ASSERT_EQ(stat(file.path().c_str(), &info), 0);
    EXPECT_EQ(info.st_size, row.size);
    EXPECT_EQ(info.st_mode & 0777, 0640u);
  }
}

TEST(VrxFileUtilsTest, CreateOverACachedFileDropsItsAppender) {
  CutFile file({{0, 1}});
  const auto more = WriteSource(NumberedShape(5));
  int err = 0;
  std::weak_ptr<VREXFileAppender> cached = VREXFileAppender::Create(IdOf(file.path()), err);
  ASSERT_FALSE(cached.expired());
  const ino_t inode = IdOf(file.path()).inode;
  ASSERT_EQ(VREXFileUtils::VRXFileCreate(file.path(), 1 << 20, 0640), 0);
  EXPECT_TRUE(cached.expired());
  EXPECT_EQ(IdOf(file.path()).inode, inode) << "the same file, refilled";
  EXPECT_EQ(file.Mismatch(file_state_t()), "");
  ASSERT_GT(Append(*more, file.path()), 0);
  EXPECT_EQ(ReadState(file.path()).partitions.at(0).offset, 0) << "the first partition again";
}

TEST(VrxFileUtilsTest, MaintenanceWaitsForNoAppendOfThisProcess) {
  CutFile file({{0, 1}});
  const Bytes before = ReadFileBytes(file.path());
  int err = 0;
  std::shared_ptr<VREXFileAppender> running = VREXFileAppender::Create(IdOf(file.path()), err);
  last_partition_info_t info;
  const int busy = ERR_MEDIAFORMATS_FILE_LOCKED_BY_MAINTENANCE;
  EXPECT_EQ(VREXFileUtils::VRXFileDeleteContent(file.path(), 0, CutFile::Base() + 99999, false), busy);
  EXPECT_EQ(VREXFileUtils::VRXFileClear(file.path(), false), busy);
  EXPECT_EQ(VREXFileUtils::VRXFileRecover(file.path(), &info), busy);
  EXPECT_EQ(VREXFileUtils::VRXFileCheckPartitions(file.path()), busy);
  EXPECT_EQ(ReadFileBytes(file.path()), before);
  running.reset();
  EXPECT_EQ(VREXFileUtils::VRXFileRecover(file.path(), &info), 0);
  EXPECT_EQ(info.bounds._offset, 0);
  EXPECT_EQ(info.startMillis, file.before().partitions[0].seekPoints[0]._wallClockMillis);
  EXPECT_EQ(info.endMillis, file.before().frames.back().wallClock);
  EXPECT_EQ(file.Mismatch(file.before()), "") << "a sound file is kept as it was";
}

TEST(VrxFileUtilsTest, ASourceIsAppendedOnce) {
  Destination a(1 << 20), b(1 << 20);
  const auto first = WriteSource(NumberedShape(0));
  ASSERT_GT(Append(*first, a.path()), 0);
  EXPECT_EQ(Append(*first, a.path()), ERR_MEDIAFORMATS_DOUBLE_APPEND);
  EXPECT_EQ(Append(*first, b.path()), ERR_MEDIAFORMATS_DOUBLE_APPEND) << "to any file";

  // A source removed and made again is new only once a sweep has seen it gone; every append
  // sweeps.
  const auto second = WriteSource(NumberedShape(2));
  ASSERT_GT(Append(*second, a.path()), 0);
  unlink(second->file.path().c_str());
  second->file.Write(second->recording.bytes);
  EXPECT_EQ(Append(*second, a.path()), ERR_MEDIAFORMATS_DOUBLE_APPEND);
  unlink(second->file.path().c_str());
  const auto third = WriteSource(NumberedShape(3));
  ASSERT_GT(Append(*third, a.path()), 0);
  second->file.Write(second->recording.bytes);
  EXPECT_GT(Append(*second, a.path()), 0);
  EXPECT_EQ(Mismatch(a.path(), {{kFixed, {}, {first.get(), second.get(), third.get(), second.get()}}}), "");
  // A failed append does not count (vrx_maintenance.test.js tries a source without a sync node).
}

// Zeroes every seek entry of every partition of `path`.
void ZeroSeekTables(const std::string& path) {
  Bytes bytes = ReadFileBytes(path);
  for (const partition_record_t& p : ReadState(path).partitions) {
    const long table = p.offset + p.size - 8 - static_cast<long>(p.seekPoints.size()) * 16;
    std::fill(bytes.begin() + table, bytes.begin() + p.offset + p.size - 8, 0);
  }
  testing::WriteFileBytes(path, bytes);
}

TEST(VrxFileUtilsTest, ReindexRebuildsZeroedTablesAsTheWriterWroteThem) {
  CutFile file({{0, 1}, {2}, {4, 5}});
  const Bytes written = ReadFileBytes(file.path());
  ZeroSeekTables(file.path());
  const Bytes zeroed = ReadFileBytes(file.path());
  ASSERT_NE(zeroed, written);
  ASSERT_EQ(VREXFileUtils::VRXFileReindex(file.path(), true), 0);
  EXPECT_EQ(ReadFileBytes(file.path()), zeroed) << "a dry run writes nothing";
  ASSERT_EQ(VREXFileUtils::VRXFileReindex(file.path(), false), 0);
  EXPECT_EQ(ReadFileBytes(file.path()), written);
}

TEST(VrxFileUtilsTest, ReindexRepeatsTheLastEntryFoundOverTheRest) {
  // Key frames without a sync node of their own make entries for the writer, not for
  // reindex: the table keeps its size and repeats the one entry found.
  shape_t shape = NumberedShape(0);
  shape.syncBeforeKey = false;
  shape.frameCount = 60;
  const auto source = WriteSource(shape);
  Destination dst(1 << 20);
  ASSERT_GT(dst.Append(source->file.path(), true), 0);
  VREXFileAppenderCache::Evict(dst.id());
  const file_state_t before = ReadState(dst.path());
  ASSERT_EQ(before.partitions.at(0).seekPoints.size(), 4u);
  ASSERT_EQ(VREXFileUtils::VRXFileReindex(dst.path(), false), 0);
  const file_state_t after = ReadState(dst.path());
  ASSERT_EQ(after.partitions.at(0).seekPoints.size(), 4u);
  for (const seek_point_t& point : after.partitions[0].seekPoints) {
    EXPECT_EQ(point._wallClockMillis, before.partitions[0].seekPoints[0]._wallClockMillis);
    EXPECT_EQ(point._offset, before.partitions[0].seekPoints[0]._offset);
  }
  EXPECT_EQ(after.frames.size(), before.frames.size());
}

}  // namespace
}  // namespace mediaformats
}  // namespace vrex
