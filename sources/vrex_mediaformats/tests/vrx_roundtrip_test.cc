// Write, then read back: the ffmpeg-made H.264 and AAC fixtures through WriterVREX in many
// shapes, managed files laid out as the appender does, and wall-clock seeking over them.
#include <gtest/gtest.h>

#include "mediaformats/errors.h"
#include "mediaformats/vrx/reader_vrex.h"
#include "vrx_recording.h"
#include "vrx_test_util.h"

namespace vrex {
namespace mediaformats {
namespace {

using namespace vrx_testing;

constexpr long kBase = 1763800000000;

std::vector<frame_record_t> VideoOnly(const std::vector<frame_record_t>& frames) {
  std::vector<frame_record_t> video;
  for (const frame_record_t& frame : frames) {
    if (frame.tid == VRX_TID_H264_AVCC) video.push_back(frame);
  }
  return video;
}

TEST(VrxRoundTripTest, ShapesReadBackFrameForFrame) {
  const auto shape = [](const char* name, void (*set)(shape_t&)) {
    shape_t made{name};
    set(made);
    return made;
  };
  const shape_t shapes[] = {
      shape("90 kHz, 32-bit DTS", [](shape_t&) {}),
      shape("64-bit DTS", [](shape_t& s) { s.dtsBase = 0x100000000LL + 7; }),
      shape("CTS", [](shape_t& s) { s.withCts = true; }),
      shape("explicit clock rates", [](shape_t& s) { s.videoRate = 25000; s.audioRate = 22000; }),
      shape("fragments of 100 bytes", [](shape_t& s) { s.fragmentLimit = 100; s.withCts = true; }),
      shape("one sync node", [](shape_t& s) { s.syncBeforeKey = false; }),
      shape("nanosecond and microsecond clocks", [](shape_t& s) { s.videoRate = 1000000000; s.audioRate = 1000000; }),
      shape("fragments of 7 bytes, 64-bit DTS", [](shape_t& s) { s.fragmentLimit = 7; s.dtsBase = 0x1FFFFFFFFLL; }),
  };
  for (const shape_t& shape : shapes) {
    const recording_t recording = MakeRecording(shape);
    TempFile file(recording.bytes);
    auto reader = Open(file.path());
    ASSERT_NE(reader, nullptr) << shape.name;
    int err = 0;
    const partition_t* partition = reader->ReadPartition(PARTITION_LAST_TIMESTAMP_VIDEO_AND_IMAGES, err);
    ASSERT_NE(partition, nullptr) << shape.name << " " << std::hex << err;
    EXPECT_EQ(partition->_offset, 0);
    EXPECT_EQ(partition->_size, static_cast<long>(recording.bytes.size()));
    EXPECT_EQ(partition->_fixedMetadata[11], 12);
    // One entry per key frame; each one is the sync node right before it, or the frame itself.
    ASSERT_EQ(partition->_seekPointsCount, recording.keyWallClocks.size()) << shape.name;
    for (size_t i = 0; i < partition->_seekPointsCount; ++i) {
      EXPECT_EQ(partition->_pSeekPoints[i]._wallClockMillis, recording.keyWallClocks[i]);
    }
    // The walk for the last wall clock starts at the last seek point, which has a clock only
    // when a sync node stands there.
    EXPECT_EQ(partition->_lastWallClockMillis,
              shape.syncBeforeKey ? VideoOnly(recording.frames).back().wallClock : -1);
    EXPECT_EQ(reader->ReadPartition(PARTITION_LAST_TIMESTAMP_NONE, err), nullptr);
    EXPECT_EQ(err, 0);

    ASSERT_EQ(reader->SeekToRawOffset(0), 0);
    ExpectFrames(ReadAll(*reader, err), recording.frames, shape.name);
    EXPECT_EQ(err, 0) << shape.name;

    // Entering at any seek point meets the sync node, then the key frame.
    for (size_t i = 0; i < partition->_seekPointsCount; ++i) {
      ASSERT_EQ(reader->SeekToRawOffset(partition->_pSeekPoints[i]._offset), 0);
      media::frame_t* frame = reader->ReadFrame(err);
      ASSERT_NE(frame, nullptr);
      EXPECT_TRUE(frame->keyFrame);
      EXPECT_EQ(frame->clockSync->ComputeWallClock(frame->dtsCts.Dts(), 1000),
                recording.keyWallClocks[i]) << shape.name << " " << i;
    }
  }
}

TEST(VrxRoundTripTest, PushReaderSeesTheSameFramesInAnyChunking) {
  shape_t shape;
  shape.name = "push";
  shape.fragmentLimit = 300;
  const recording_t recording = MakeRecording(shape);
  for (size_t chunk : {1ul, 7ul, 4096ul, recording.bytes.size()}) {
    RecordingObserver observer;
    int err = 0;
    auto reader = ReaderVREX::Create(&observer, err);
    ASSERT_NE(reader, nullptr);
    for (size_t at = 0; at < recording.bytes.size(); at += chunk) {
      const size_t count = std::min(chunk, recording.bytes.size() - at);
      ASSERT_EQ(reader->FeedData(recording.bytes.data() + at, count), static_cast<long>(count));
    }
    ASSERT_EQ(observer.payloads.size(), recording.frames.size()) << chunk;
    for (size_t i = 0; i < recording.frames.size(); ++i) {
      EXPECT_EQ(observer.payloads[i], recording.frames[i].bytes) << chunk << " " << i;
    }
    EXPECT_EQ(observer.events.front(), "header");
    EXPECT_EQ(observer.events.back(), "footer");
    EXPECT_EQ(reader->GetAvailableDataSize(), 0);
  }
}

// A managed file as the appender leaves it: two partitions without a gap in time, a third
// after `gapMillis`, skip packets between the first two and a tail chain. As one file, or with the third
// partition in a second file.
struct managed_t {
  std::vector<Bytes> files;
  std::vector<recording_t> partitions;
  std::vector<long> partitionOffsets;  // in the concatenation
  std::vector<long> keyWallClocks;
};

managed_t MakeManaged(long gapMillis, bool twoFiles) {
  managed_t managed;
  const int firsts[] = {0, 30, 60};
  Bytes file;
  long fileBase = 0;
  for (int p = 0; p < 3; ++p) {
    shape_t shape;
    shape.name = "managed";
    shape.firstFrame = firsts[p];
    shape.frameCount = 30;
    shape.wallClockBase = kBase + firsts[p] * 1000L / 30 + (p == 2 ? gapMillis : 0);
    managed.partitions.push_back(MakeRecording(shape));
    if (p == 2 && twoFiles) {
      const Bytes tail = SkipRun(4096);
      file.insert(file.end(), tail.begin(), tail.end());
      fileBase += static_cast<long>(file.size());
      managed.files.push_back(file);
      file.clear();
    }
    managed.partitionOffsets.push_back(fileBase + static_cast<long>(file.size()));
    PlacePartition(file, managed.partitions.back().bytes);
    if (p == 0) {
      const Bytes between = SkipRun(32);
      file.insert(file.end(), between.begin(), between.end());
    }
    const std::vector<long>& keys = managed.partitions.back().keyWallClocks;
    managed.keyWallClocks.insert(managed.keyWallClocks.end(), keys.begin(), keys.end());
  }
  const Bytes tail = SkipRun(0x10000);
  file.insert(file.end(), tail.begin(), tail.end());
  managed.files.push_back(file);
  return managed;
}

struct managed_files_t {
  explicit managed_files_t(const managed_t& managed) {
    for (const Bytes& bytes : managed.files) {
      files.emplace_back(new TempFile(bytes));
      paths.push_back(files.back()->path());
    }
  }
  std::unique_ptr<ReaderVREX> Open(ReaderVREX::Observer* observer = nullptr) const {
    int err = 0;
    auto reader = ReaderVREX::Create(observer, paths, true, 0, -1, err);
    EXPECT_EQ(err, 0);
    return reader;
  }
  std::vector<std::unique_ptr<TempFile>> files;
  std::vector<std::string> paths;
};

TEST(VrxManagedFileTest, PartitionsFramesAndRanges) {
  for (bool twoFiles : {false, true}) {
    const managed_t managed = MakeManaged(30000, twoFiles);
    const managed_files_t files(managed);
    auto reader = files.Open();
    int err = 0;
    std::vector<frame_record_t> all;
    for (size_t p = 0; p < 3; ++p) {
      const partition_t* partition = reader->ReadPartition(PARTITION_LAST_TIMESTAMP_ALL_BUT_AUDIO, err);
      ASSERT_NE(partition, nullptr) << p << " " << std::hex << err;
      const recording_t& recording = managed.partitions[p];
      EXPECT_EQ(partition->_offset, managed.partitionOffsets[p]);
      EXPECT_EQ(partition->_size, static_cast<long>(recording.bytes.size()));
      ASSERT_EQ(partition->_seekPointsCount, recording.keyWallClocks.size());
      for (size_t i = 0; i < partition->_seekPointsCount; ++i) {
        EXPECT_EQ(partition->_pSeekPoints[i]._wallClockMillis, recording.keyWallClocks[i]);
        EXPECT_GT(partition->_pSeekPoints[i]._offset, partition->_offset);
        EXPECT_LT(partition->_pSeekPoints[i]._offset, partition->_contents._offset + partition->_contents._size);
      }
      EXPECT_EQ(partition->_lastWallClockMillis, VideoOnly(recording.frames).back().wallClock);
      all.insert(all.end(), recording.frames.begin(), recording.frames.end());
    }
    EXPECT_EQ(reader->ReadPartition(PARTITION_LAST_TIMESTAMP_NONE, err), nullptr);
    EXPECT_EQ(err, 0);
    ASSERT_EQ(reader->SeekToRawOffset(0), 0);
    ExpectFrames(ReadAll(*reader, err), all, twoFiles ? "two files" : "one file");

    long start = -1, stop = -1;
    EXPECT_EQ(reader->GetStartStopTimestamp(start, stop), 0);
    EXPECT_EQ(start, kBase);
    long last = -1;
    for (const frame_record_t& frame : managed.partitions[2].frames) last = std::max(last, frame.wallClock);
    EXPECT_EQ(stop, last);

    std::vector<fragment_t> fragments;
    EXPECT_EQ(reader->ListFragments(0, 0, fragments), 0);
    ASSERT_EQ(fragments.size(), 3u);  // spans never cross partitions
    EXPECT_EQ(fragments[0].start, kBase);
    EXPECT_EQ(fragments[0].end, managed.partitions[0].keyWallClocks.back());
    EXPECT_EQ(fragments[2].start, managed.partitions[2].keyWallClocks.front());
    fragments.clear();
    const long from = managed.partitions[1].keyWallClocks[1];
    EXPECT_EQ(reader->ListFragments(from, managed.partitions[2].keyWallClocks[0], fragments), 0);
    ASSERT_EQ(fragments.size(), 2u);
    EXPECT_EQ(fragments[0].start, from);
    EXPECT_EQ(fragments[1].start, managed.partitions[2].keyWallClocks[0]);
    EXPECT_EQ(fragments[1].end, managed.partitions[2].keyWallClocks[0]);
  }
}

TEST(VrxManagedFileTest, EmptyManagedFileHasNoPartitions) {
  TempFile file(SkipRun(1 << 20));
  auto reader = Open(file.path());
  int err = 0;
  EXPECT_EQ(reader->ReadPartition(PARTITION_LAST_TIMESTAMP_NONE, err), nullptr);
  EXPECT_EQ(err, 0);
  EXPECT_EQ(reader->ReadFrame(err), nullptr);
  EXPECT_EQ(err, 0);
  EXPECT_EQ(reader->SeekToWallClock(kBase, SNAP_TO_IDR_CLOSEST).second, ERR_MEDIAFORMATS_WALL_CLOCK_NOT_FOUND);
}

TEST(VrxManagedFileTest, SeekToWcNeedsAnExactSeekPoint) {
  const managed_t managed = MakeManaged(0, false);
  const managed_files_t files(managed);
  auto reader = files.Open();
  int err = 0;
  EXPECT_EQ(reader->SeekToWc(kBase), ERR_MEDIAFORMATS_SEEK_FAILED);  // no partition read yet
  const partition_t* partition = reader->ReadPartition(PARTITION_LAST_TIMESTAMP_NONE, err);
  ASSERT_NE(partition, nullptr);
  ASSERT_GE(partition->_seekPointsCount, 2u);
  for (size_t i = 0; i < partition->_seekPointsCount; ++i) {
    const seek_point_t point = partition->_pSeekPoints[i];
    ASSERT_EQ(reader->SeekToWc(point._wallClockMillis), 0);
    EXPECT_EQ(reader->GetCurrentRawOffset(), point._offset);
    EXPECT_EQ(reader->SeekToWc(point._wallClockMillis + 1), ERR_MEDIAFORMATS_SEEK_FAILED);
  }
}

// What SeekToWallClock should answer, from the list of key frame wall clocks.
long ExpectedSeek(const std::vector<long>& keys, long target, snap_to_idr_t mode) {
  long before = -1, after = -1;
  for (long key : keys) {
    if (key == target) return key;
    if (key < target) before = key;
    if (key > target && after < 0) after = key;
  }
  if (after < 0) return before;
  if (before < 0) return after;
  if (mode == SNAP_TO_IDR_BEFORE) return before;
  if (mode == SNAP_TO_IDR_AFTER) return after;
  return target - before <= 4999 ? before : after;
}

TEST(VrxSeekTest, EveryModeAtBetweenBeforeAndAfterSeekPoints) {
  for (bool twoFiles : {false, true}) {
    const managed_t managed = MakeManaged(30000, twoFiles);
    const managed_files_t files(managed);
    auto reader = files.Open();
    std::vector<long> targets = {0, kBase - 100000, kBase - 1, kBase + 1000000};
    for (long key : managed.keyWallClocks) {
      for (long delta : {-4999L, -251L, -1L, 0L, 1L, 250L, 4999L, 5001L}) targets.push_back(key + delta);
    }
    for (long target : targets) {
      for (snap_to_idr_t mode : {SNAP_TO_IDR_BEFORE, SNAP_TO_IDR_AFTER, SNAP_TO_IDR_CLOSEST}) {
        const long expected = ExpectedSeek(managed.keyWallClocks, target, mode);
        const std::pair<long, int> found = reader->SeekToWallClock(target, mode);
        ASSERT_EQ(found.second, 0) << target << " mode " << mode;
        EXPECT_EQ(found.first, expected) << "target " << target - kBase << " mode " << mode
                                         << (twoFiles ? " two files" : " one file");
        int err = 0;
        media::frame_t* frame = reader->ReadFrame(err);
        ASSERT_NE(frame, nullptr);
        EXPECT_TRUE(frame->keyFrame);
        EXPECT_EQ(frame->clockSync->ComputeWallClock(frame->dtsCts.Dts(), 1000), expected);
      }
    }
    EXPECT_EQ(reader->SeekToWallClock(-1, SNAP_TO_IDR_BEFORE).second, ERR_MEDIAFORMATS_INCORRECT_PARAMETERS);
    // A mode outside the three answers -1 at an exact match.
    const std::pair<long, int> odd = reader->SeekToWallClock(managed.keyWallClocks[3], static_cast<snap_to_idr_t>(7));
    EXPECT_EQ(odd, std::make_pair(-1L, 0));
  }
}

TEST(VrxSeekTest, ClosestKeepsTheKeyFrameBeforeWithinFiveSeconds) {
  struct row_t {
    long gap;       // from the last key frame of the second partition to the first of the third
    long fromLast;  // target, after that last key frame
    long expectedFromLast;
  };
  const row_t rows[] = {
      {5100, 5000, 5100},  // before is 5,000 ms away, after 100 ms: after
      {5000, 4999, 0},     // before is 4,999 ms away, after 1 ms: before
      {20000, 4999, 0},
  };
  for (const row_t& row : rows) {
    const managed_t managed = MakeManaged(0, false);
    const long lastOfSecond = managed.partitions[1].keyWallClocks.back();
    // Third partition starts `gap` after that key frame.
    const managed_t gapped = MakeManaged(lastOfSecond + row.gap - (kBase + 2000), false);
    const managed_files_t files(gapped);
    auto reader = files.Open();
    const std::pair<long, int> found = reader->SeekToWallClock(lastOfSecond + row.fromLast, SNAP_TO_IDR_CLOSEST);
    EXPECT_EQ(found.second, 0);
    EXPECT_EQ(found.first, lastOfSecond + row.expectedFromLast) << row.gap;
  }
}

TEST(VrxSeekTest, ReaderWindowLimitsTheFrames) {
  const managed_t managed = MakeManaged(0, false);
  const managed_files_t files(managed);
  int err = 0;
  const long offset = managed.partitionOffsets[1];
  const long length = static_cast<long>(managed.partitions[1].bytes.size());
  auto reader = ReaderVREX::Create(nullptr, files.paths[0].c_str(), true, offset, length, err);
  ASSERT_NE(reader, nullptr);
  EXPECT_EQ(reader->GetCurrentRawOffset(), offset);
  ExpectFrames(ReadAll(*reader, err), managed.partitions[1].frames, "window");
  EXPECT_EQ(reader->SeekToRawOffset(offset - 4), ERR_MEDIAFORMATS_INCORRECT_OFFSET);
  EXPECT_EQ(reader->SeekToRawOffset(offset + length + 1), ERR_MEDIAFORMATS_INCORRECT_OFFSET);
}

}  // namespace
}  // namespace mediaformats
}  // namespace vrex
