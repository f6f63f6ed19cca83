// VREXFileRecover on files made by the appender and then damaged by hand, one case per thing
// recover can fix and per thing it cannot; Check() must not change a byte. Also recover
// killed at each of its own writes, then run again.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdlib>

#include "abstraction/byte_order.h"
#include "mediaformats/errors.h"
#include "mediaformats/vrx/vrx_packet.h"
#include "vrx_append_util.h"
#include "vrxfile/vrex_file_appender.h"
#include "vrxfile/vrex_file_appender_cache.h"
#include "vrxfile/vrex_file_recover.h"

namespace vrex {
namespace mediaformats {
namespace {

using namespace vrx_testing;
using internal::VREXFileRecover;

// Three partitions made by the appender: {s0, s1}, {s2}, {s3, s4}, then free space.
struct damaged_t {
  std::vector<std::unique_ptr<source_t>> sources;
  std::unique_ptr<Destination> file;
  std::vector<partition_t> partitions;
  Bytes bytes;

  damaged_t() {
    file.reset(new Destination(256 * 1024));
    for (int n = 0; n < 5; ++n) {
      sources.push_back(WriteSource(NumberedShape(n, n * 7, 25 + n)));
      EXPECT_GT(file->Append(sources.back()->file.path(), n == 2 || n == 3), 0);
    }
    internal::VREXFileAppenderCache::Evict(file->id());
    int err = 0;
    partitions = ReadPartitions(file->path(), err);
    bytes = ReadFileBytes(file->path());
  }
  long End(size_t i) const { return partitions[i]._offset + partitions[i]._size; }
  long Footer(size_t i) const { return partitions[i]._contents._offset + partitions[i]._contents._size; }
  // The model: the partitions kept, the last one's last source short of `dropped` frames.
  std::vector<expected_partition_t> Kept(size_t count, size_t dropped) const {
    const std::vector<std::vector<int>> layout = {{0, 1}, {2}, {3, 4}};
    std::vector<expected_partition_t> model;
    for (size_t i = 0; i < count; ++i) {
      model.push_back({});
      for (int n : layout[i]) model.back().sources.emplace_back(sources[n].get());
    }
    if (!model.empty()) {
      appended_t& last = model.back().sources.back();
      last.frames = last.source->frameEnds.size() - dropped;
    }
    return model;
  }
};

void Fill(Bytes& bytes, long at, long count, unsigned char value) {
  std::fill(bytes.begin() + at, bytes.begin() + at + count, value);
}

// Lays skip packets over every sync node of partition `i`.
void DropSyncNodes(damaged_t& file, size_t i) {
  for (const vrx_packet_t& packet : WalkPackets(file.bytes, file.partitions[i]._contents._offset, file.Footer(i))) {
    if (packet.Tid() == VRX_TID_SC_TO_WC) {
      const Bytes skip = SkipRun(packet.packetSize);
      std::copy(skip.begin(), skip.end(), file.bytes.begin() + packet.offset);
    }
  }
}

int CheckOf(const std::string& path) {
  last_partition_info_t info;
  return VREXFileRecover(path, &info).Check();
}

bool AppenderAccepts(const abstraction::file_id_t& id) {
  int err = 0;
  const bool accepted = internal::VREXFileAppender::Create(id, err) != nullptr;
  internal::VREXFileAppenderCache::Evict(id);
  return accepted;
}

TEST(VrxRecoverTest, FixesWhatItCanAndLeavesWhatItCannot) {
  const int kBad = ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT;
  const int kNone = ERR_MEDIAFORMATS_DELETE_OFFSET;
  const size_t kUnfixable = 99;  // recover leaves the file as it is
  struct row_t {
    const char* name;
    void (*damage)(damaged_t&);
    int check, recover;
    size_t kept, salvageKept;  // partitions kept by recover, and with salvage
    size_t dropped;            // frames the last partition kept loses at its end
  };
  const row_t rows[] = {
      {"sound", [](damaged_t&) {}, 0, 0, 3, 3, 0},
      {"torn last packet",
       [](damaged_t& f) {
         const source_t& last = *f.sources[4];
         Fill(f.bytes, f.Footer(2) - last.contentsSize + last.frameEnds[last.frameEnds.size() - 2], 4, 0);
       },
       0, 0, 3, 3, 1},
      {"footer contents length wrong", [](damaged_t& f) { Fill(f.bytes, f.Footer(2) + 16, 8, 0x11); }, 0, 0, 3, 3, 0},
      {"footer table length wrong", [](damaged_t& f) { Fill(f.bytes, f.End(2) - 8, 4, 0x08); }, 0, 0, 3, 3, 0},
      {"seek table out of step",
       [](damaged_t& f) {
         for (long at = f.Footer(2) + 24; at < f.End(2) - 8; at += 16) {
           abstraction::StoreBE64(&f.bytes[at + 8], abstraction::LoadBE64(&f.bytes[at + 8]) + 999);
         }
       },
       0, 0, 3, 3, 0},
      {"tail chain missing", [](damaged_t& f) { Fill(f.bytes, f.End(2), 16, 0); }, kBad, 0, 3, 3, 0},
      {"tail chain broken at the end", [](damaged_t& f) { Fill(f.bytes, f.bytes.size() - 4, 4, 0x33); }, 0, 0, 3, 3, 0},
      {"garbage after the last partition",
       [](damaged_t& f) {
         for (long i = 0; i < 1000; ++i) f.bytes[f.End(2) + i] = static_cast<unsigned char>(rand());
       },
       kBad, 0, 3, 3, 0},
      {"tail footer lost", [](damaged_t& f) { Fill(f.bytes, f.Footer(2), f.End(2) - f.Footer(2), 0); }, kBad, 0, 2, 3, 0},
      // Dropped whole, after which the partition to describe is gone: the repair stands.
      {"tail partition without sync nodes", [](damaged_t& f) { DropSyncNodes(f, 2); }, 0,
       ERR_MEDIAFORMATS_DELETE_PARTITION, 2, 2, 0},
      {"first partition unreadable", [](damaged_t& f) { Fill(f.bytes, f.Footer(0), 8, 0); }, kBad, kNone, kUnfixable, 1, 0},
      {"nothing but free space", [](damaged_t& f) { f.bytes = SkipRun(f.bytes.size()); }, 0, kNone, 0, 0, 0},
  };
  for (const row_t& row : rows) {
    for (const bool salvage : {false, true}) {
      SCOPED_TRACE(std::string(row.name) + (salvage ? " with salvage" : ""));
      damaged_t file;
      row.damage(file);
      TempFile damaged(file.bytes);
      const std::string& path = damaged.path();
      EXPECT_EQ(CheckOf(path), row.check);
      EXPECT_EQ(ReadFileBytes(path), file.bytes) << "Check changes nothing";
      last_partition_info_t info;
      const int recovered = VREXFileRecover(path, &info, salvage).Recover();
      const size_t kept = salvage ? row.salvageKept : row.kept;
      if (kept == kUnfixable) {
        EXPECT_EQ(recovered, row.recover);
        EXPECT_EQ(ReadFileBytes(path), file.bytes);
        continue;
      }
      EXPECT_EQ(recovered, salvage && kept != row.kept ? 0 : row.recover);
      EXPECT_EQ(Mismatch(path, file.Kept(kept, kept == 3 ? row.dropped : 0), false), "");
      EXPECT_EQ(CheckOf(path), 0);
      const abstraction::file_id_t id = IdOf(path);
      EXPECT_TRUE(AppenderAccepts(id));
      if (recovered == 0) {
        EXPECT_EQ(info.bounds._offset, file.partitions[kept - 1]._offset);
        EXPECT_EQ(info.startMillis, file.partitions[kept - 1]._pSeekPoints[0]._wallClockMillis);
        EXPECT_EQ(0, memcmp(info.fixedMetadata, file.partitions[kept - 1]._fixedMetadata, 12));
      }
    }
  }
}

TEST(VrxRecoverTest, FooterMustLeaveRoomForASkipPacket) {
  // A footer without a timestamp, as WriterVREX closes a partition; recover writes one with
  // the last frame's 64-bit DTS, 8 bytes more, so behind it 16, 8 or 0 bytes would remain:
  // room for a skip packet, too little, or a file exactly full.
  shape_t shape = NumberedShape(0);
  shape.dtsBase = 0x100000000L;
  const recording_t recording = MakeRecording(shape);
  for (const long tail : {24L, 16L, 8L}) {
    Bytes bytes;
    PlacePartition(bytes, recording.bytes);
    const Bytes chain = SkipRun(tail == 8 ? 16 : tail);
    bytes.insert(bytes.end(), chain.begin(), chain.end());
    if (tail == 8) bytes.resize(bytes.size() - 8);  // no chain at all: the footer ends 8 short
    TempFile file(bytes);
    last_partition_info_t info;
    const int recovered = VREXFileRecover(file.path(), &info).Recover();
    EXPECT_EQ(recovered, tail == 16 ? ERR_MEDIAFORMATS_NOT_ENOUGH_SPACE : 0) << tail;
    if (recovered < 0) {
      EXPECT_EQ(ReadFileBytes(file.path()), bytes) << tail;
    }
  }
}

TEST(VrxRecoverTest, RecoverKilledAtEachWriteIsFinishedByTheNext) {
  damaged_t file;
  Fill(file.bytes, file.Footer(2), file.End(2) - file.Footer(2), 0);
  TempFile clean(file.bytes);
  last_partition_info_t info;
  ASSERT_EQ(VREXFileRecover(clean.path(), &info, true).Recover(), 0);
  const Bytes want = ReadFileBytes(clean.path());
  for (int write = 1; write <= 4; ++write) {
    for (const bool tear : {false, true}) {
      TempFile killed(file.bytes);
      std::vector<std::string> args = {"--crash-after-write", std::to_string(write)};
      if (tear) args.push_back("--tear");
      args.insert(args.end(), {"recover", killed.path(), "--salvage"});
      const int status = RunTool(args);
      EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
      EXPECT_EQ(VREXFileRecover(killed.path(), &info, true).Recover(), 0) << write << tear;
      EXPECT_EQ(ReadFileBytes(killed.path()), want) << write << tear;
    }
  }
}

}  // namespace
}  // namespace mediaformats
}  // namespace vrex
