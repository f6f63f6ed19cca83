// VREXFileDeleteContent through VREXFileUtils on managed files appended from the ffmpeg-made
// fixtures: each case cuts a different thing, and the frame walk, the partitions and their
// seek tables must then hold exactly what lies outside the cut, in a file of the same size
// that recover's walk finds sound and the appender takes on. Also the footer compaction's
// writes, zero fill, and a reader that keeps its place while cuts run.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <map>
#include <thread>

#include "abstraction/filelock.h"
#include "abstraction/write_hook.h"
#include "mediaformats/errors.h"
#include "mediaformats/vrx/vrex_file_utils.h"
#include "vrx_cut_util.h"
#include "vrxfile/vrex_file_appender.h"
#include "vrxfile/vrex_file_appender_cache.h"

namespace vrex {
namespace mediaformats {
namespace {

using namespace vrx_testing;

// Partitions of sources numbered 0 and 1, 2, 4 and 5, 7: one second each, n * 4 s after the
// base; so P0 spans 0..4966 ms (with a gap inside), P1 8000..8966, P2 16000..20966, P3
// 28000..28966, and 3 to 7 s of nothing between them.
const std::vector<std::vector<int>> kLayout = {{0, 1}, {2}, {4, 5}, {7}};

long At(long millis) { return CutFile::Base() + millis; }

cut_t Whole(size_t p) { return {cut_t::kWhole, p}; }
cut_t Head(size_t p, long end) { return {cut_t::kHead, p, -1, At(end)}; }
cut_t Tail(size_t p, long start) { return {cut_t::kTail, p, At(start), -1}; }
cut_t Middle(size_t p, long start, long end) { return {cut_t::kMiddle, p, At(start), At(end)}; }

struct case_t {
  const char* name;
  long start, end;  // absolute ms
  std::vector<cut_t> steps;
};

const std::vector<case_t>& Cases() {
  static const std::vector<case_t> cases = {
      {"the oldest content, up to a key frame, which stays", 0, At(8500), {Whole(0), Head(1, 8500)}},
      {"the oldest content, up to a frame inside a GOP: the whole GOP goes", 0, At(8533), {Whole(0), Head(1, 8533)}},
      {"the newest content from a key frame, which goes", At(20500), At(99999), {Tail(2, 20500), Whole(3)}},
      {"the newest content from a frame inside a GOP", At(20600), At(99999), {Tail(2, 20600), Whole(3)}},
      {"within one GOP: to the next key frame", At(4100), At(4200), {Middle(0, 4100, 4200)}},
      {"over a key frame inside a partition", At(4400), At(4600), {Middle(0, 4400, 4600)}},
      {"within one GOP with no frame in it", At(4480), At(4490), {}},
      {"between two partitions", At(10000), At(15000), {}},
      {"over a gap inside a partition", At(1500), At(3500), {}},
      {"before everything", At(-5000), At(-1000), {}},
      {"after everything", At(50000), At(60000), {}},
      {"everything", 0, At(99999), {Whole(0), Whole(1), Whole(2), Whole(3)}},
      {"a partition and the gaps around it", At(7000), At(12000), {Whole(1)}},
      {"two partitions across gaps", At(7000), At(25000), {Whole(1), Whole(2)}},
      {"a tail, a gap and a head", At(8600), At(16600), {Tail(1, 8600), Head(2, 16600)}},
      {"a whole partition and the head of the next", At(8000), At(16600), {Whole(1), Head(2, 16600)}},
  };
  return cases;
}

TEST(VrxDeleteTest, EachCutLeavesExactlyWhatLiesOutsideIt) {
  for (const case_t& c : Cases()) {
    SCOPED_TRACE(c.name);
    CutFile file(kLayout);
    const file_state_t want = file.After(c.steps);
    ASSERT_EQ(VREXFileUtils::VRXFileDeleteContent(file.path(), c.start, c.end, false), 0);
    EXPECT_EQ(file.Mismatch(want), "");
    EXPECT_EQ(VREXFileUtils::VRXFileCheckPartitions(file.path()), 0);
    // The appender takes the file on: a new partition goes behind the last one kept, or at
    // offset 0 when none is left.
    const auto more = WriteSource(NumberedShape(20));
    const Bytes fixed(12, 7);
    EXPECT_GT(VREXFileUtils::VRXFileAppend(more->file.path(), file.path(), fixed.data(), nullptr, 0, true), 0);
    const file_state_t after = ReadState(file.path());
    ASSERT_EQ(after.partitions.size(), want.partitions.size() + 1);
    EXPECT_EQ(after.partitions.back().offset,
              want.partitions.empty() ? 0 : want.partitions.back().offset + want.partitions.back().size);
    EXPECT_EQ(after.frames.size(), want.frames.size() + more->recording.frames.size());
    EXPECT_EQ(VREXFileUtils::VRXFileClose(file.path()), 0);
  }
}

TEST(VrxDeleteTest, CutsOneAfterAnotherAddUp) {
  CutFile file(kLayout);
  const std::vector<std::pair<case_t, int>> steps = {{Cases()[4], 0}, {Cases()[14], 0}, {Cases()[0], 0}};
  std::vector<cut_t> all;
  for (const auto& step : steps) {
    SCOPED_TRACE(step.first.name);
    all.insert(all.end(), step.first.steps.begin(), step.first.steps.end());
    ASSERT_EQ(VREXFileUtils::VRXFileDeleteContent(file.path(), step.first.start, step.first.end, false), 0);
    EXPECT_EQ(file.Mismatch(file.After(all)), "");
  }
  // Once more over what is gone already: nothing changes.
  const Bytes before = ReadFileBytes(file.path());
  ASSERT_EQ(VREXFileUtils::VRXFileDeleteContent(file.path(), 0, At(8500), false), 0);
  EXPECT_EQ(ReadFileBytes(file.path()), before);
}

// Every skip packet of the file, walked packet by packet: its payload bytes.
std::vector<Bytes> SkipPayloads(const std::string& path) {
  const Bytes bytes = ReadFileBytes(path);
  std::vector<Bytes> out;
  for (const vrx_packet_t& packet : WalkPackets(bytes)) {
    if (packet.Tid() == VRX_TID_SKIP) {
      out.emplace_back(bytes.begin() + packet.offset + 12, bytes.begin() + packet.offset + packet.packetSize - 4);
    }
  }
  return out;
}

TEST(VrxDeleteTest, ZeroFillZeroesWhatWasGivenBack) {
  for (const bool zero : {false, true}) {
    SCOPED_TRACE(zero ? "zero fill" : "no zero fill");
    CutFile file(kLayout);
    const case_t& c = Cases()[14];
    ASSERT_EQ(VREXFileUtils::VRXFileDeleteContent(file.path(), c.start, c.end, zero), 0);
    EXPECT_EQ(file.Mismatch(file.After(c.steps)), "");
    bool allZero = true;
    for (const Bytes& payload : SkipPayloads(file.path())) {
      allZero = allZero && std::all_of(payload.begin(), payload.end(), [](unsigned char b) { return b == 0; });
    }
    EXPECT_EQ(allZero, zero) << "the old frames stay under their skip packets unless zeroed";
  }
}

// Writes made by the file operations, by length.
std::vector<long>* writeLengths = nullptr;
void RecordWrite(int, long length) {
  if (writeLengths != nullptr) writeLengths->push_back(length);
}

TEST(VrxDeleteTest, AFooterOfTwentyThousandEntriesCompactsInPlace) {
  // One partition of 20,000 one-frame GOPs, each with its sync node, then free space.
  ByteSink sink;
  int err = 0;
  auto writer = WriterVREX::Create(0xFFFFFFFF, &sink, err);
  WriterVREX::partition_info_t info;
  writer->OpenPartition(&info);
  const Bytes payload(12, 0x5A);
  constexpr long kCount = 20000;
  for (long i = 0; i < kCount; ++i) {
    media::clock_sync_t sync;
    sync.sc = media::timestamp_t(i * 3000, 90000);
    sync.wc = media::timestamp_t(CutFile::Base() + i * 100, 1000);
    writer->WriteClockSync(sync);
    writer->WriteVideoData(payload.data(), payload.size(), media::dts_cts_t(i * 3000, 90000), true);
  }
  writer->ClosePartition();
  Bytes bytes;
  PlacePartition(bytes, sink.bytes);
  const long partitionSize = static_cast<long>(bytes.size());
  const Bytes chain = SkipRun(1 << 20);
  bytes.insert(bytes.end(), chain.begin(), chain.end());
  TempFile file(bytes);
  const file_state_t before = ReadState(file.path());
  ASSERT_EQ(before.partitions.size(), 1u);
  ASSERT_EQ(before.partitions[0].seekPoints.size(), static_cast<size_t>(kCount));

  std::vector<long> lengths;
  writeLengths = &lengths;
  abstraction::internal::SetWriteHook(RecordWrite);
  ASSERT_EQ(VREXFileUtils::VRXFileDeleteContent(file.path(), 0, CutFile::Base() + 100, false), 0);
  abstraction::internal::SetWriteHook(nullptr);
  writeLengths = nullptr;
  // The first GOP under a skip packet (trailer, then header); the entries move down through
  // four buffers; the shorter footer's words, the 16-byte skip packet behind it, and its
  // payload size last.
  const long rest = (kCount - 1) * 16;
  EXPECT_EQ(lengths, (std::vector<long>{4, 12, 80000, 80000, 80000, rest - 240000, 8, 4, 12, 4}));

  const file_state_t after = ReadState(file.path());
  ASSERT_EQ(after.partitions.size(), 1u);
  const partition_record_t& p = after.partitions[0];
  EXPECT_EQ(p.size, partitionSize - 16);
  ASSERT_EQ(p.seekPoints.size(), static_cast<size_t>(kCount - 1));
  for (long i = 0; i < kCount - 1; ++i) {
    ASSERT_EQ(p.seekPoints[i]._offset, before.partitions[0].seekPoints[i + 1]._offset) << i;
    ASSERT_EQ(p.seekPoints[i]._wallClockMillis, before.partitions[0].seekPoints[i + 1]._wallClockMillis) << i;
  }
  const Bytes now = ReadFileBytes(file.path());
  const long end = p.offset + p.size;
  EXPECT_EQ(abstraction::LoadBE32(&now[end - 8]), static_cast<uint32_t>(rest));
  EXPECT_EQ(abstraction::LoadBE32(&now[end - 4]), abstraction::LoadBE32(&bytes[partitionSize - 4]) - 16);
  EXPECT_TRUE(std::equal(kSkipPacketHeader, kSkipPacketHeader + 8, now.begin() + end)) << "an empty skip packet";
  EXPECT_EQ(abstraction::LoadBE32(&now[end + 8]), 0u);
  EXPECT_EQ(abstraction::LoadBE32(&now[end + 12]), 12u);
  EXPECT_EQ(after.frames.size(), before.frames.size() - 1);
}

TEST(VrxDeleteTest, AReaderThatKeepsItsPlaceAcrossCutsNeverMeetsABrokenPacket) {
  // A reader reads a few frames at a time under a shared lock and keeps its cursor while
  // cuts run under the exclusive lock, as a long export gives way to others.
  CutFile file(kLayout);
  std::map<long, frame_record_t> original;
  for (const frame_record_t& frame : file.before().frames) original[frame.offset] = frame;
  std::atomic<bool> done(false);
  std::atomic<long> framesRead(0), passes(0), bad(0);
  std::thread reader([&] {
    int err = 0;
    auto walk = ReaderVREX::Create(nullptr, file.path().c_str(), true, 0, -1, err);
    while (!done && walk) {
      abstraction::file_lock_t lock;
      if (lock.Init(file.path().c_str(), true) < 0 || lock.Lock() < 0) break;
      int got = 0;
      std::vector<frame_record_t> frames = ReadAll(*walk, err, 3);
      for (const frame_record_t& frame : frames) {
        const auto known = original.find(frame.offset);
        if (known == original.end() || known->second.bytes != frame.bytes || known->second.dts != frame.dts) ++bad;
        ++got;
      }
      if (err != 0) ++bad;
      framesRead += got;
      lock.Unlock();
      if (got < 3 && err == 0) {
        ++passes;
        walk->SeekToRawOffset(0);
      }
      std::this_thread::yield();
    }
  });
  for (const size_t index : {4, 5, 14, 2, 0}) {
    abstraction::file_lock_t lock;
    ASSERT_EQ(lock.Init(file.path().c_str(), false), 0);
    ASSERT_EQ(lock.Lock(), 0);
    const case_t& c = Cases()[index];
    EXPECT_EQ(VREXFileUtils::VRXFileDeleteContent(file.path(), c.start, c.end, false), 0) << c.name;
    lock.Unlock();
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  while (passes < 3) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  done = true;
  reader.join();
  EXPECT_EQ(bad, 0) << "of " << framesRead << " frames in " << passes << " passes";
}

}  // namespace
}  // namespace mediaformats
}  // namespace vrex
