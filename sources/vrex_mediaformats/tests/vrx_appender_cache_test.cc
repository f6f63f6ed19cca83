// VREXFileAppenderCache: one appender per file across appends, two paths of one file,
// reservations of maintenance, a second user, and the sweep of idle entries.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <thread>

#include "mediaformats/errors.h"
#include "vrx_append_util.h"
#include "vrxfile/vrex_file_appender.h"
#include "vrxfile/vrex_file_appender_cache.h"

namespace vrex {
namespace mediaformats {
namespace {

using namespace vrx_testing;
using abstraction::file_id_t;
using internal::VREXFileAppender;
using internal::VREXFileAppenderCache;

TEST(VrxAppenderCacheTest, OneAppenderServesManyAppendsWithoutRereadingTheFile) {
  Destination dst(1 << 20);
  std::vector<std::unique_ptr<source_t>> sources;
  expected_partition_t want;
  const VREXFileAppender* first = nullptr;
  for (int n = 0; n < 30; ++n) {
    int err = 0;
    std::shared_ptr<VREXFileAppender> appender = VREXFileAppender::Create(dst.id(), err);
    ASSERT_NE(appender, nullptr);
    if (first == nullptr) first = appender.get();
    EXPECT_EQ(appender.get(), first) << "the cached appender every time";
    sources.push_back(WriteSource(NumberedShape(n)));
    ASSERT_GT(appender->Append(sources.back()->file.path(), want.fixed.data(), nullptr, 0, false), 0);
    want.sources.emplace_back(sources.back().get());
    if (n == 0) {
      EXPECT_EQ(VREXFileAppender::Create(IdOf(dst.path()), err), nullptr) << "a second user";
      EXPECT_EQ(err, ERR_MEDIAFORMATS_SIMULTANEOUS_APPEND);
    }
  }
  EXPECT_EQ(Mismatch(dst.path(), {want}), "");
}

TEST(VrxAppenderCacheTest, ATailChangedByAnotherProcessIsReadAgain) {
  // Another process appends, then cuts the head of the tail partition (its footer shrinks),
  // between two appends of this one; this process's next append must go behind both.
  Destination dst(1 << 20);
  std::vector<std::unique_ptr<source_t>> sources;
  for (int n = 0; n < 4; ++n) sources.push_back(WriteSource(NumberedShape(n)));
  ASSERT_GT(dst.Append(sources[0]->file.path(), false), 0);
  int err = 0;
  const VREXFileAppender* cached = VREXFileAppender::Create(dst.id(), err).get();
  ASSERT_EQ(RunTool({"append", dst.path(), sources[1]->file.path()}), 0);
  ASSERT_GT(dst.Append(sources[2]->file.path(), false), 0);
  EXPECT_NE(VREXFileAppender::Create(dst.id(), err).get(), cached) << "read again";
  const std::vector<expected_partition_t> three = {{Bytes(12, 0), {}, {sources[0].get(), sources[1].get(), sources[2].get()}}};
  EXPECT_EQ(Mismatch(dst.path(), three), "");
  // Cut up to the second source's first key frame: the first source's frames and seek
  // points go, and the footer gives their entries' bytes to the free space.
  const long secondStart = sources[1]->recording.keyWallClocks[0];
  ASSERT_EQ(RunTool({"delete", dst.path(), "0", std::to_string(secondStart)}), 0);
  ASSERT_GT(dst.Append(sources[3]->file.path(), false), 0);
  auto reader = ReaderVREX::Create(nullptr, dst.path().c_str(), true, 0, -1, err);
  const partition_t* partition = reader->ReadPartition(PARTITION_LAST_TIMESTAMP_NONE, err);
  ASSERT_NE(partition, nullptr);
  std::vector<long> wallClocks;
  for (unsigned long i = 0; i < partition->_seekPointsCount; ++i) wallClocks.push_back(partition->_pSeekPoints[i]._wallClockMillis);
  std::vector<long> want;
  for (int n = 1; n < 4; ++n) want.insert(want.end(), sources[n]->recording.keyWallClocks.begin(), sources[n]->recording.keyWallClocks.end());
  EXPECT_EQ(wallClocks, want) << "no entry of the cut GOPs comes back";
  EXPECT_EQ(reader->ReadPartition(PARTITION_LAST_TIMESTAMP_NONE, err), nullptr);
  EXPECT_EQ(err, 0);
  std::string error;
  EXPECT_GE(WalkSkipChain(dst.path(), partition->_offset + partition->_size, error), 0) << error;
}

TEST(VrxAppenderCacheTest, ASpoiledTailIsNotWrittenOver) {
  Destination dst(1 << 20);
  const auto first = WriteSource(NumberedShape(0));
  const auto second = WriteSource(NumberedShape(1));
  ASSERT_GT(dst.Append(first->file.path(), false), 0);
  // The last trailer of the chain, as a torn write leaves it: the cached appender sees that
  // the end of the file is no longer what it left, and reads it again, which fails.
  const int fd = open(dst.path().c_str(), O_WRONLY);
  ASSERT_EQ(pwrite(fd, "\x33\x33\x33\x33", 4, (1 << 20) - 4), 4);
  close(fd);
  const Bytes before = ReadFileBytes(dst.path());
  EXPECT_EQ(dst.Append(second->file.path(), false), ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT);
  EXPECT_EQ(ReadFileBytes(dst.path()), before);
}

TEST(VrxAppenderCacheTest, TwoPathsOfOneFile) {
  Destination dst(1 << 20);
  const std::string link = dst.path() + ".link";
  ASSERT_EQ(::link(dst.path().c_str(), link.c_str()), 0);
  const file_id_t linkId = IdOf(link);
  int err = 0;
  ASSERT_NE(VREXFileAppender::Create(dst.id(), err), nullptr);
  EXPECT_EQ(VREXFileAppender::Create(linkId, err), nullptr);
  EXPECT_EQ(err, ERR_MEDIAFORMATS_APPENDER_PATH_MISMATCH);
  const std::map<std::string, std::string>& extra = ::vrex::errors::GetErrorInfo()->extraInfo;
  EXPECT_EQ(extra.at("existingPath"), dst.path());
  EXPECT_EQ(extra.at("newPath"), link);
  char inode[24];
  snprintf(inode, sizeof inode, "0x%lx", static_cast<unsigned long>(dst.id().inode));
  EXPECT_EQ(extra.at("inode"), inode);
  EXPECT_EQ(extra.count("dev"), 1u);
  EXPECT_EQ(VREXFileAppenderCache::Evict(linkId), ERR_MEDIAFORMATS_APPENDER_PATH_MISMATCH);
  EXPECT_EQ(VREXFileAppenderCache::Evict(dst.id()), 0);
  EXPECT_NE(VREXFileAppender::Create(linkId, err), nullptr) << "once evicted, the other path";
  EXPECT_EQ(VREXFileAppenderCache::Evict(linkId), 0);
  unlink(link.c_str());
}

TEST(VrxAppenderCacheTest, ReservationKeepsAppendsOut) {
  Destination dst(1 << 20);
  const auto source = WriteSource(NumberedShape(0));
  int err = 0;
  std::shared_ptr<VREXFileAppender> running = VREXFileAppender::Create(dst.id(), err);
  EXPECT_EQ(VREXFileAppenderCache::EvictAndLock(dst.id()), ERR_MEDIAFORMATS_FILE_LOCKED_BY_MAINTENANCE)
      << "not while an append runs";
  running.reset();
  ASSERT_EQ(VREXFileAppenderCache::EvictAndLock(dst.id()), 0);
  const Bytes before = ReadFileBytes(dst.path());
  EXPECT_EQ(dst.Append(source->file.path(), true), ERR_MEDIAFORMATS_FILE_LOCKED_BY_MAINTENANCE);
  EXPECT_EQ(ReadFileBytes(dst.path()), before);
  VREXFileAppenderCache::Clear(-1);
  EXPECT_EQ(dst.Append(source->file.path(), true), ERR_MEDIAFORMATS_FILE_LOCKED_BY_MAINTENANCE)
      << "a sweep leaves reservations";
  ASSERT_EQ(VREXFileAppenderCache::Evict(dst.id()), 0);
  EXPECT_GT(dst.Append(source->file.path(), true), 0);
  EXPECT_EQ(Mismatch(dst.path(), {{Bytes(12, 0), {}, {source.get()}}}), "");
}

TEST(VrxAppenderCacheTest, ClearDropsOnlyIdleEntries) {
  Destination old(1 << 20), recent(1 << 20), held(1 << 20);
  int err = 0;
  std::weak_ptr<VREXFileAppender> oldOne = VREXFileAppender::Create(old.id(), err);
  std::this_thread::sleep_for(std::chrono::milliseconds(1100));
  std::weak_ptr<VREXFileAppender> recentOne = VREXFileAppender::Create(recent.id(), err);
  std::shared_ptr<VREXFileAppender> heldOne = VREXFileAppender::Create(held.id(), err);
  ASSERT_FALSE(oldOne.expired() || recentOne.expired() || !heldOne);
  VREXFileAppenderCache::Clear(1);
  EXPECT_TRUE(oldOne.expired()) << "idle for more than a second: dropped, descriptors closed";
  EXPECT_FALSE(recentOne.expired());
  const VREXFileAppender* recentRaw = recentOne.lock().get();
  EXPECT_EQ(VREXFileAppender::Create(recent.id(), err).get(), recentRaw);
  VREXFileAppenderCache::Clear(-1);
  EXPECT_TRUE(recentOne.expired());
  EXPECT_EQ(VREXFileAppender::Create(held.id(), err), nullptr) << "still in the cache, in use";
  EXPECT_EQ(err, ERR_MEDIAFORMATS_SIMULTANEOUS_APPEND);
}

}  // namespace
}  // namespace mediaformats
}  // namespace vrex
