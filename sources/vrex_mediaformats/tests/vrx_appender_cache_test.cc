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

file_id_t IdOf(const std::string& path) {
  file_id_t id;
  EXPECT_EQ(id.Init(path), 0);
  return id;
}

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
      // Spoil the last trailer of the chain: a new appender would refuse the file, the cached
      // one does not look at it again, and its next append writes it anew.
      const int fd = open(dst.path().c_str(), O_WRONLY);
      ASSERT_EQ(pwrite(fd, "\x33\x33\x33\x33", 4, (1 << 20) - 4), 4);
      close(fd);
      EXPECT_EQ(VREXFileAppender::Create(IdOf(dst.path()), err), nullptr) << "a second user";
      EXPECT_EQ(err, ERR_MEDIAFORMATS_SIMULTANEOUS_APPEND);
    }
  }
  EXPECT_EQ(Mismatch(dst.path(), {want}), "");
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
