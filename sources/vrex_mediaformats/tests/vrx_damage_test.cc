// ReaderVREX on damaged files: every truncation of a small managed file and thousands of
// random byte flips. The reader must answer with an error or frames that are really there:
// never a crash, an out-of-bounds read (the sanitizer build checks) or an endless loop.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <random>

#include "mediaformats/vrx/reader_vrex.h"
#include "vrx_recording.h"
#include "vrx_test_util.h"

namespace vrex {
namespace mediaformats {
namespace {

using namespace vrx_testing;

// Two partitions (the second fragmented), skip packets between, a short tail chain.
Bytes SmallManagedFile() {
  Bytes file;
  shape_t first;
  first.name = "first";
  first.frameCount = 16;
  PlacePartition(file, MakeRecording(first).bytes);
  const Bytes between = SkipRun(20);
  file.insert(file.end(), between.begin(), between.end());
  shape_t second = first;
  second.firstFrame = 30;
  second.frameCount = 3;
  second.fragmentLimit = 256;
  second.withCts = true;
  second.wallClockBase += 1000;
  PlacePartition(file, MakeRecording(second).bytes);
  const Bytes tail = SkipRun(64);
  file.insert(file.end(), tail.begin(), tail.end());
  return file;
}

struct outcome_t {
  std::vector<frame_record_t> frames;
  int framesErr = 0;
  std::vector<partition_t> partitions;
  int partitionsErr = 0;
};

// Everything a caller does with a reader, with a bound on every loop.
outcome_t Exercise(const std::string& path, long fileSize) {
  outcome_t outcome;
  int err = 0;
  auto reader = ReaderVREX::Create(nullptr, path.c_str(), true, 0, -1, err);
  if (reader == nullptr) {
    EXPECT_LT(err, 0);
    outcome.partitionsErr = outcome.framesErr = err;
    return outcome;
  }
  const long bound = fileSize / 12 + 2;
  for (long i = 0; i < bound; ++i) {
    const partition_t* partition = reader->ReadPartition(PARTITION_LAST_TIMESTAMP_ALL_BUT_AUDIO, err);
    if (partition == nullptr) break;
    EXPECT_GE(partition->_offset, 0);
    EXPECT_LE(partition->_offset + partition->_size, fileSize);
    outcome.partitions.push_back(*partition);
  }
  outcome.partitionsErr = err;
  EXPECT_LE(static_cast<long>(outcome.partitions.size()), bound);

  EXPECT_EQ(reader->SeekToRawOffset(0), 0);
  outcome.frames = ReadAll(*reader, err, bound + 1);
  for (const frame_record_t& frame : outcome.frames) {
    EXPECT_LE(frame.offset + static_cast<long>(frame.bytes.size()), fileSize);
  }
  outcome.framesErr = err;
  EXPECT_LE(static_cast<long>(outcome.frames.size()), bound);

  for (long target : {0L, 1763800000000L, 1763800000400L, 1763800009999L}) {
    for (snap_to_idr_t mode : {SNAP_TO_IDR_BEFORE, SNAP_TO_IDR_AFTER, SNAP_TO_IDR_CLOSEST}) {
      if (reader->SeekToWallClock(target, mode).second == 0) reader->ReadFrame(err);
    }
  }
  std::vector<fragment_t> fragments;
  reader->ListFragments(0, 0, fragments);
  EXPECT_LE(static_cast<long>(fragments.size()), bound);
  for (const fragment_t& fragment : fragments) EXPECT_LE(fragment.start, fragment.end);
  long start = -1, stop = -1;
  reader->GetStartStopTimestamp(start, stop);
  reader->SeekToWc(1763800000000L);
  return outcome;
}

TEST(VrxDamageTest, EveryTruncationReadsAPrefixOrFails) {
  const Bytes full = SmallManagedFile();
  TempFile file(full);
  const outcome_t whole = Exercise(file.path(), full.size());
  ASSERT_EQ(whole.partitions.size(), 2u);
  ASSERT_EQ(whole.partitionsErr, 0);
  ASSERT_EQ(whole.framesErr, 0);
  ASSERT_GT(whole.frames.size(), 20u);
  for (long size = static_cast<long>(full.size()) - 1; size >= 0; --size) {
    ASSERT_EQ(truncate(file.path().c_str(), size), 0);
    const outcome_t cut = Exercise(file.path(), size);
    // What is read of a prefix is what is in the whole file: frames and partitions in order.
    ASSERT_LE(cut.frames.size(), whole.frames.size()) << size;
    for (size_t i = 0; i < cut.frames.size(); ++i) {
      EXPECT_EQ(cut.frames[i].bytes, whole.frames[i].bytes) << size << " frame " << i;
      EXPECT_EQ(cut.frames[i].dts, whole.frames[i].dts) << size << " frame " << i;
      EXPECT_EQ(cut.frames[i].offset, whole.frames[i].offset) << size << " frame " << i;
    }
    ASSERT_LE(cut.partitions.size(), whole.partitions.size());
    for (size_t i = 0; i < cut.partitions.size(); ++i) {
      EXPECT_EQ(cut.partitions[i]._offset, whole.partitions[i]._offset) << size;
      EXPECT_EQ(cut.partitions[i]._size, whole.partitions[i]._size) << size;
      EXPECT_EQ(cut.partitions[i]._seekPointsCount, whole.partitions[i]._seekPointsCount) << size;
    }
    // Cut inside the tail chain, all frames are still there.
    const partition_t& last = whole.partitions.back();
    if (size >= last._offset + last._size) {
      EXPECT_EQ(cut.frames.size(), whole.frames.size()) << size;
      EXPECT_EQ(cut.framesErr, 0) << size;
    }
  }
}

TEST(VrxDamageTest, RandomByteFlipsNeverCrashTheReader) {
  const Bytes full = SmallManagedFile();
  TempFile file(full);
  const int fd = open(file.path().c_str(), O_WRONLY);
  ASSERT_GE(fd, 0);
  std::mt19937 random(20261122);
  std::uniform_int_distribution<long> position(0, static_cast<long>(full.size()) - 1);
  std::uniform_int_distribution<int> bits(1, 255);
  for (int flip = 0; flip < 3000; ++flip) {
    const long at = position(random);
    const unsigned char damaged = full[at] ^ static_cast<unsigned char>(bits(random));
    ASSERT_EQ(pwrite(fd, &damaged, 1, at), 1);
    Exercise(file.path(), full.size());
    ASSERT_EQ(pwrite(fd, &full[at], 1, at), 1);
    if (::testing::Test::HasFailure()) {
      ADD_FAILURE() << "flip " << flip << " at " << at;
      break;
    }
  }
  close(fd);
}

}  // namespace
}  // namespace mediaformats
}  // namespace vrex
