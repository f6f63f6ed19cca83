// WriterVREX: partitions, seek points, fragments, descriptors and refusals, checked on the
// bytes it emits.
#include <gtest/gtest.h>

#include "abstraction/byte_order.h"
#include "media/codec_tags.h"
#include "mediaformats/errors.h"
#include "mediaformats/vrx/vrx_packet.h"
#include "mediaformats/vrx/writer_vrex.h"
#include "vrx_test_util.h"

namespace vrex {
namespace mediaformats {
namespace {

using abstraction::LoadBE32;
using abstraction::LoadBE64;
using media::clock_sync_t;
using media::dts_cts_t;
using vrx_testing::ByteSink;
using vrx_testing::Bytes;
using vrx_testing::WalkPackets;

clock_sync_t Sync(long sc, long wcMillis) {
  clock_sync_t sync;
  sync.sc = media::timestamp_t(sc, 90000);
  sync.wc = media::timestamp_t(wcMillis, 1000);
  return sync;
}

struct seek_entry_t {
  long offset;
  long wallClock;
  bool operator==(const seek_entry_t& o) const {
    return offset == o.offset && wallClock == o.wallClock;
  }
};

// The seek table of the footer that ends `bytes`.
std::vector<seek_entry_t> FooterSeekTable(const Bytes& bytes) {
  const size_t end = bytes.size();
  const uint32_t tableLength = LoadBE32(&bytes[end - 8]);
  std::vector<seek_entry_t> entries;
  for (size_t at = end - 8 - tableLength; at < end - 8; at += 16) {
    entries.push_back({static_cast<long>(LoadBE64(&bytes[at])), static_cast<long>(LoadBE64(&bytes[at + 8]))});
  }
  return entries;
}

class WriterVrexTest : public ::testing::Test {
 protected:
  void SetUp() override {
    int err = 0;
    writer = WriterVREX::Create(0xFFFFFFFF, &sink, err);
    ASSERT_EQ(err, 0);
    for (int i = 0; i < 12; ++i) info.fixedMetadata[i] = static_cast<unsigned char>(0xF0 + i);
  }
  ByteSink sink;
  std::unique_ptr<WriterVREX> writer;
  WriterVREX::partition_info_t info;
  const Bytes frame = Bytes(10, 0x42);
};

TEST_F(WriterVrexTest, ClockSyncFirstOpensThePartitionWithItsTimestamp) {
  const char dynamic[] = "abcde";
  info.dynamicMetadata = dynamic;
  info.dynamicLength = 5;
  ASSERT_EQ(writer->OpenPartition(&info), 0);
  EXPECT_TRUE(sink.bytes.empty());
  const long written = writer->WriteClockSync(Sync(180000, 1763800000000));
  Bytes header = {0xA0, 0x00, 0x09, 0xA9, 0xF9, 0x0C, 0x00, 0x00, 0x00, 0x02, 0xBF, 0x20,
                  0x00, 0x00, 0x00, 25,   0, 0, 0, 0, 0, 0, 0, 0};
  header.insert(header.end(), info.fixedMetadata, info.fixedMetadata + 12);
  header.insert(header.end(), dynamic, dynamic + 5);
  header.insert(header.end(), {0, 0, 0, 0, 0, 0, 44});
  ASSERT_GT(sink.bytes.size(), header.size());
  EXPECT_EQ(Bytes(sink.bytes.begin(), sink.bytes.begin() + header.size()), header);
  EXPECT_EQ(written, static_cast<long>(sink.bytes.size()));
  EXPECT_EQ(writer->GetBytesWritten(), written);
}

TEST_F(WriterVrexTest, SeekPointsAimAtTheSyncNodeBeforeAKeyFrame) {
  ASSERT_EQ(writer->OpenPartition(&info), 0);
  // Video before any clock sync: no seek point.
  writer->WriteVideoData(frame.data(), frame.size(), dts_cts_t(0, 90000), true);
  writer->WriteClockSync(Sync(3000, 1000000));
  const long syncAt = sink.bytes.size() - 28;
  writer->WriteVideoData(frame.data(), frame.size(), dts_cts_t(3000, 90000), true);
  writer->WriteVideoData(frame.data(), frame.size(), dts_cts_t(6000, 90000), false);
  writer->WriteAudioData(frame.data(), frame.size(), dts_cts_t(6000, 90000));
  const long keyAt = sink.bytes.size();
  writer->WriteVideoData(frame.data(), frame.size(), dts_cts_t(93000, 90000), true);
  const long imageAt = sink.bytes.size();
  const char jpeg[] = {'\xFF', '\xD8', '\xFF'};
  EXPECT_GT(writer->WriteImageData(jpeg, 3, dts_cts_t(180000, 90000)), 0);
  const long contentsEnd = sink.bytes.size();
  ASSERT_GT(writer->ClosePartition(), 0);

  EXPECT_EQ(FooterSeekTable(sink.bytes),
            (std::vector<seek_entry_t>{{syncAt, 1000000}, {keyAt, 1001000}, {imageAt, 1001967}}));
  const std::vector<vrx_packet_t> packets = WalkPackets(sink.bytes);
  ASSERT_EQ(packets.size(), 9u);
  EXPECT_EQ(packets.front().Tid(), VRX_TID_PARTITION_HEADER);
  EXPECT_EQ(packets.front().dts, 0);  // the first frame's timestamp
  const vrx_packet_t& footer = packets.back();
  EXPECT_EQ(footer.Tid(), VRX_TID_PARTITION_FOOTER);
  EXPECT_EQ(footer.flags, 0xF100);
  EXPECT_EQ(footer.payloadSize, 12u + 3 * 16);
  // Contents length: from the end of the header to the footer.
  EXPECT_EQ(static_cast<long>(LoadBE64(&sink.bytes[footer.offset + 12])),
            contentsEnd - packets.front().packetSize);
  // Sequences: video counts 1, 2, 3, 4; audio, image 1; sync and descriptors 0.
  const uint16_t sequences[] = {0, 1, 0, 2, 3, 1, 4, 1, 0};
  const uint16_t tids[] = {9, 7, VRX_TID_SC_TO_WC, 7, 7, 1000, 7, VRX_TID_IMAGE_JPEG, 10};
  const uint16_t flags[] = {0xF90C, 0xE90C, 0xF90C, 0xE90C, 0xC90C, 0xF90C, 0xE90C, 0xF90C, 0xF100};
  for (size_t i = 0; i + 1 < packets.size(); ++i) {
    EXPECT_EQ(packets[i].sequence, sequences[i]) << i;
    EXPECT_EQ(packets[i].Tid(), tids[i]) << i;
    EXPECT_EQ(packets[i].flags, flags[i]) << i;
  }
}

TEST_F(WriterVrexTest, NothingWrittenForEmptyPartitionsAndFrames) {
  ASSERT_EQ(writer->OpenPartition(&info), 0);
  EXPECT_EQ(writer->OpenPartition(&info), ERR_MEDIAFORMATS_PARTITION_ALREADY_OPEN);
  EXPECT_EQ(writer->WriteVideoData(frame.data(), 0, dts_cts_t(0, 90000), true), 0);
  EXPECT_EQ(writer->ClosePartition(), 0);
  EXPECT_TRUE(sink.bytes.empty());
  EXPECT_EQ(writer->OpenPartition(nullptr), ERR_MEDIAFORMATS_INCORRECT_PARAMETERS);
  // Partitions may follow each other; the second one is open again.
  EXPECT_EQ(writer->OpenPartition(&info), 0);
  EXPECT_EQ(writer->GetBytesWritten(), 0);
}

TEST_F(WriterVrexTest, PartitionWithoutSeekPointsHasAnEmptyTable) {
  ASSERT_EQ(writer->OpenPartition(&info), 0);
  writer->WriteAudioData(frame.data(), frame.size(), dts_cts_t(0, 8000));
  writer->ClosePartition();
  const std::vector<vrx_packet_t> packets = WalkPackets(sink.bytes);
  ASSERT_EQ(packets.size(), 3u);
  EXPECT_EQ(packets[2].payloadSize, 12u);
  EXPECT_EQ(LoadBE32(&sink.bytes[sink.bytes.size() - 8]), 0u);
  EXPECT_EQ(LoadBE32(&sink.bytes[sink.bytes.size() - 4]), 24u);
}

TEST_F(WriterVrexTest, JpegAndCodecTracks) {
  const char good[] = {'\xFF', '\xD8', '\xFF'};
  const char bad[] = {'\xFF', '\xD8', '\xFE', '\x00'};
  EXPECT_EQ(writer->WriteImageData(good, 2, dts_cts_t(0, 1000)), ERR_MEDIAFORMATS_INCORRECT_PARAMETERS);
  EXPECT_EQ(writer->WriteImageData(bad, 4, dts_cts_t(0, 1000)), ERR_MEDIAFORMATS_INCORRECT_PARAMETERS);
  EXPECT_EQ(writer->WriteImageData(nullptr, 4, dts_cts_t(0, 1000)), ERR_MEDIAFORMATS_INCORRECT_PARAMETERS);
  EXPECT_EQ(writer->WriteImageData(good, 3, dts_cts_t(0, 1000)), 24);
  writer->WriteVideoData(frame.data(), frame.size(), dts_cts_t(0, 90000), false, media::TAG_VH265);
  writer->WriteVideoData(frame.data(), frame.size(), dts_cts_t(0, 90000), false, media::TAG_VAV1);
  writer->WriteAudioData(frame.data(), frame.size(), dts_cts_t(0, 48000), media::TAG_AOPUS);
  writer->WriteSnapshotMeta(dts_cts_t(5, 1000), 0x0102030405060708ul);
  const std::vector<vrx_packet_t> packets = WalkPackets(sink.bytes);
  ASSERT_EQ(packets.size(), 5u);
  const uint16_t tids[] = {VRX_TID_IMAGE_JPEG, VRX_TID_H265_AVCC, VRX_TID_AV1, VRX_TID_OPUS,
                           VRX_TID_SNAPSHOT_META};
  for (size_t i = 0; i < packets.size(); ++i) EXPECT_EQ(packets[i].Tid(), tids[i]);
  const Bytes snapshot(sink.bytes.end() - 16, sink.bytes.end() - 4);
  EXPECT_EQ(snapshot, (Bytes{0, 1, 0, 8, 1, 2, 3, 4, 5, 6, 7, 8}));
  EXPECT_EQ(packets[4].flags, 0xF902);
}

TEST_F(WriterVrexTest, RefusingObserverStopsTheCount) {
  ASSERT_EQ(writer->OpenPartition(&info), 0);
  sink.refuseAt = 1;  // the header goes through, the frame does not
  EXPECT_EQ(writer->WriteVideoData(frame.data(), frame.size(), dts_cts_t(0, 90000), true),
            ERR_MEDIAFORMATS_WRITER_OBSERVER_FAILED);
  EXPECT_EQ(writer->GetBytesWritten(), static_cast<long>(sink.bytes.size()));
  int err = 0;
  EXPECT_EQ(WriterVREX::Create(0xFFFFFFFF, nullptr, err), nullptr);
  EXPECT_EQ(err, ERR_MEDIAFORMATS_NULL_OBSERVER);
}

TEST(WriterVrexFragmentTest, SmallLimitCutsFramesIntoFragments) {
  struct row_t {
    unsigned limit;
    unsigned long size;
    std::vector<uint16_t> flags;
    std::vector<uint32_t> payloads;
  };
  const row_t rows[] = {
      {4, 10, {0xA90C, 0x0000, 0x4000}, {4, 4, 2}},
      {5, 10, {0xA90C, 0x4000}, {5, 5}},
      {10, 10, {0xE90C}, {10}},
      {3, 7, {0xA90C, 0x0000, 0x4000}, {3, 3, 1}},
  };
  for (const row_t& row : rows) {
    ByteSink sink;
    int err = 0;
    auto writer = WriterVREX::Create(row.limit, &sink, err);
    Bytes frame(row.size);
    for (size_t i = 0; i < frame.size(); ++i) frame[i] = static_cast<unsigned char>(i);
    const long written = writer->WriteVideoData(frame.data(), frame.size(), dts_cts_t(0, 90000), true);
    EXPECT_EQ(written, static_cast<long>(sink.bytes.size()));
    const std::vector<vrx_packet_t> packets = WalkPackets(sink.bytes);
    ASSERT_EQ(packets.size(), row.flags.size()) << row.limit;
    Bytes joined;
    for (size_t i = 0; i < packets.size(); ++i) {
      EXPECT_EQ(packets[i].flags, row.flags[i]) << row.limit << " " << i;
      EXPECT_EQ(packets[i].payloadSize, row.payloads[i]);
      EXPECT_EQ(packets[i].sequence, i + 1);
      if (i == 0 && packets.size() > 1) {
        EXPECT_EQ(packets[i].frameSize, row.size);
      }
      const auto payload = sink.bytes.begin() + packets[i].PayloadOffset();
      joined.insert(joined.end(), payload, payload + packets[i].payloadSize);
      // Every packet ends with its size, trailer excluded.
      const size_t end = packets[i].offset + packets[i].packetSize;
      EXPECT_EQ(LoadBE32(&sink.bytes[end - 4]), packets[i].packetSize - 4);
    }
    EXPECT_EQ(joined, frame);
  }
}

TEST(WriterVrexDescriptorTest, DescriptorsAsTheAppenderWritesThem) {
  ByteSink sink;
  int err = 0;
  auto writer = WriterVREX::Create(0xFFFFFFFF, &sink, err);
  const unsigned char fixed[12] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
  EXPECT_EQ(writer->WritePartitionDescriptorStart(dts_cts_t(-1, 0), 0x1234, fixed, nullptr, 0), 36);
  Bytes start = {0xA0, 0x00, 0x09, 0xA9, 0xF1, 0x00, 0, 0, 0, 0, 0, 20, 0, 0, 0, 0, 0, 0, 0x12, 0x34};
  start.insert(start.end(), fixed, fixed + 12);
  vrx_testing::Put32(start, 32);
  EXPECT_EQ(Bytes(sink.bytes.begin(), sink.bytes.end()), start);
  sink.bytes.clear();
  Bytes table;
  vrx_testing::Put64(table, 0x40);
  vrx_testing::Put64(table, 1763800000000);
  EXPECT_EQ(writer->WritePartitionDescriptorEnd(dts_cts_t(0x100000000LL, 1000000000), 0x1234,
                                                table.data(), 16),
            52);
  Bytes end = {0xA0, 0x00, 0x0A, 0xAA, 0xFD, 0x0E, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 28,
               0, 0, 0, 0, 0, 0, 0x12, 0x34};
  end.insert(end.end(), table.begin(), table.end());
  vrx_testing::Put32(end, 16);
  vrx_testing::Put32(end, 48);
  EXPECT_EQ(sink.bytes, end);
}

}  // namespace
}  // namespace mediaformats
}  // namespace vrex
