// ReaderVREX on bytes laid out by hand from the format's tables, and on recordings of
// ffmpeg-made streams written in many shapes.
#include <gtest/gtest.h>

#include <climits>

#include "mediaformats/errors.h"
#include "mediaformats/vrx/reader_vrex.h"
#include "vrx_recording.h"
#include "vrx_test_util.h"

namespace vrex {
namespace mediaformats {
namespace {

using vrx_testing::Bytes;
using vrx_testing::Open;
using vrx_testing::ReadAll;
using vrx_testing::frame_record_t;
using vrx_testing::Put16;
using vrx_testing::Put32;
using vrx_testing::Put64;
using vrx_testing::RecordingObserver;
using vrx_testing::TempFile;

// A packet laid out by hand: word, flags, sequence, the given header fields, payload size,
// payload, zero padding and, when `trailer` is set, the size word.
Bytes HandPacket(uint16_t tid, uint16_t flags, uint16_t sequence, const Bytes& fields,
                 const Bytes& payload, bool trailer = true) {
  Bytes out = {0xA0, static_cast<unsigned char>(tid >> 8), static_cast<unsigned char>(tid & 0xFF),
               static_cast<unsigned char>(0xA0 ^ (tid >> 8) ^ (tid & 0xFF))};
  Put16(out, flags);
  Put16(out, sequence);
  out.insert(out.end(), fields.begin(), fields.end());
  Put32(out, static_cast<uint32_t>(payload.size()));
  out.insert(out.end(), payload.begin(), payload.end());
  while (out.size() % 4 != 0) out.push_back(0);
  if (trailer) Put32(out, static_cast<uint32_t>(out.size()));
  return out;
}

Bytes Be32(uint32_t v) {
  Bytes out;
  Put32(out, v);
  return out;
}

Bytes Concat(std::initializer_list<Bytes> parts) {
  Bytes out;
  for (const Bytes& part : parts) out.insert(out.end(), part.begin(), part.end());
  return out;
}

// Header (contents length set), sync node, H.264 key frame, AAC frame, unknown track,
// milestone, snapshot metadata, H.264 frame with CTS, footer with one seek point; every byte
// from the format's tables.
struct hand_file_t {
  Bytes bytes;
  long syncAt;
  long keyPayloadAt;
};

hand_file_t HandLaidPartition() {
  hand_file_t file;
  const Bytes fixed = {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB, 0xCC};
  // Sync: stream clock 90000 at 90 kHz is wall clock 1,763,800,000.5 s.
  const Bytes sync = HandPacket(0xDA7E, 0xF90C, 0, Be32(90000), Concat({Be32(1763800000), Be32(500000000)}));
  const Bytes key = HandPacket(0x0007, 0xE90C, 1, Be32(90000), {0, 0, 0, 1, 0x65});
  const Bytes aac = HandPacket(0x03E8, 0xF903, 1, Be32(8000), {0xFF, 0xF1, 0x50, 0x80});
  const Bytes unknown = HandPacket(0x1234, 0xF100, 0, {}, {0x77, 0x78});
  const Bytes milestone = HandPacket(0x0005, 0xF100, 0, {}, {1, 2, 3, 4});
  const Bytes snapshot = HandPacket(0x03ED, 0xF902, 0, Be32(1500),
                                    {0, 1, 0, 8, 0, 0, 0, 0, 0, 0, 0x30, 0x39});
  const Bytes delta = HandPacket(0x0007, 0xCB0C, 2, Concat({Be32(93000), Be32(6000)}), {0, 0, 0, 1, 0x41, 0x9A});
  const Bytes contents = Concat({sync, key, aac, unknown, milestone, snapshot, delta});
  Bytes headerPayload;
  Put64(headerPayload, contents.size());
  headerPayload.insert(headerPayload.end(), fixed.begin(), fixed.end());
  headerPayload.insert(headerPayload.end(), {'x', 'y'});
  const Bytes header = HandPacket(0x0009, 0xF90C, 0, Be32(90000), headerPayload);
  file.syncAt = static_cast<long>(header.size());
  file.keyPayloadAt = file.syncAt + static_cast<long>(sync.size()) + 16;
  Bytes footerPayload;
  Put64(footerPayload, contents.size());
  Put64(footerPayload, file.syncAt);
  Put64(footerPayload, 1763800000500);
  Put32(footerPayload, 16);
  const Bytes footer = HandPacket(0x000A, 0xF100, 0, {}, footerPayload);
  file.bytes = Concat({header, contents, footer});
  return file;
}

TEST(ReaderVrexHandLaidTest, PartitionAndFrames) {
  const hand_file_t hand = HandLaidPartition();
  TempFile file(hand.bytes);
  RecordingObserver observer;
  auto reader = Open(file.path(), &observer);
  ASSERT_NE(reader, nullptr);
  int err = 0;
  const partition_t* partition = reader->ReadPartition(PARTITION_LAST_TIMESTAMP_VIDEO_AND_IMAGES, err);
  ASSERT_NE(partition, nullptr) << std::hex << err;
  EXPECT_EQ(partition->_offset, 0);
  EXPECT_EQ(partition->_size, static_cast<long>(hand.bytes.size()));
  EXPECT_EQ(Bytes(partition->_fixedMetadata, partition->_fixedMetadata + 12),
            (Bytes{0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB, 0xCC}));
  EXPECT_EQ(partition->_dynamicMetadata._offset, 16 + 20);
  EXPECT_EQ(partition->_dynamicMetadata._size, 2);
  EXPECT_EQ(partition->_contents._offset, hand.syncAt);
  EXPECT_EQ(partition->_contents._size, static_cast<long>(hand.bytes.size()) - hand.syncAt - 44);
  ASSERT_EQ(partition->_seekPointsCount, 1u);
  EXPECT_EQ(partition->_pSeekPoints[0]._offset, hand.syncAt);
  EXPECT_EQ(partition->_pSeekPoints[0]._wallClockMillis, 1763800000500);
  // The last video wall clock: 93000 ticks is 33 ms after the sync's 1000 ms.
  EXPECT_EQ(partition->_lastWallClockMillis, 1763800000533);
  EXPECT_EQ(reader->ReadPartition(PARTITION_LAST_TIMESTAMP_NONE, err), nullptr);
  EXPECT_EQ(err, 0);

  observer.events.clear();
  observer.payloads.clear();
  ASSERT_EQ(reader->SeekToRawOffset(0), 0);
  const std::vector<frame_record_t> frames = ReadAll(*reader, err);
  EXPECT_EQ(err, 0);
  vrx_testing::ExpectFrames(frames,
                            {{7, true, 90000, 0, 90000, 1763800000500, {0, 0, 0, 1, 0x65}, -1},
                             {1000, true, 8000, 0, 8000, 1763800000500, {0xFF, 0xF1, 0x50, 0x80}, -1},  // audio is always key
                             {7, false, 93000, 6000, 90000, 1763800000533, {0, 0, 0, 1, 0x41, 0x9A}, -1}},
                            "hand-laid");
  ASSERT_FALSE(frames.empty());
  EXPECT_EQ(frames[0].offset, hand.keyPayloadAt);
  const std::vector<std::string> events = {
      "header",
      "sync SC: 90000@90000(1000ms) -> WC: 158742000045000@90000(1763800000500ms) at=" +
          std::to_string(hand.syncAt),
      "h264 key=1 dts=90000 cts=0 rate=90000 size=5",
      "aac key=1 dts=8000 cts=0 rate=8000 size=4",
      "raw tid=4660 size=2 first=119",
      "milestone",
      "snapshot dts=1500 tag=12345",
      "h264 key=0 dts=93000 cts=6000 rate=90000 size=6",
      "footer"};
  EXPECT_EQ(observer.events, events);
}

TEST(ReaderVrexHandLaidTest, FragmentsWithAndWithoutTrailerWords) {
  // A frame of 10 bytes in three fragments, then a complete frame. Another writer ends
  // continuation packets at their padding; ours adds a trailer word.
  for (bool continuationTrailers : {false, true}) {
    Bytes fields = Be32(3000);
    fields.insert(fields.end(), {0, 0, 0, 10});  // frame size
    const Bytes bytes = Concat({
        HandPacket(0x0007, 0xA90C, 1, fields, {1, 2, 3, 4}),
        HandPacket(0x0007, 0x0000, 2, {}, {5, 6, 7, 8}, continuationTrailers),
        HandPacket(0x0007, 0x4000, 3, {}, {9, 10}, continuationTrailers),
        HandPacket(0x0007, 0xC90C, 4, Be32(6000), {11}),
    });
    TempFile file(bytes);
    RecordingObserver observer;
    observer.refuseAt = 0;  // the whole frame is refused once, then read again
    auto reader = Open(file.path(), &observer);
    int err = 0;
    EXPECT_TRUE(ReadAll(*reader, err).empty());
    EXPECT_EQ(err, ERR_MEDIAFORMATS_READER_OBSERVER_FAILED);
    const std::vector<frame_record_t> frames = ReadAll(*reader, err);
    EXPECT_EQ(err, 0);
    EXPECT_EQ(observer.events.size(), 3u);  // no loss, no malformed fragments on the retry
    ASSERT_EQ(frames.size(), 2u) << continuationTrailers;
    EXPECT_EQ(frames[0].bytes, (Bytes{1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
    EXPECT_EQ(frames[0].dts, 3000);
    EXPECT_TRUE(frames[0].key);
    EXPECT_EQ(frames[1].bytes, Bytes{11});
    EXPECT_EQ(frames[1].dts, 6000);
  }
}

TEST(ReaderVrexHandLaidTest, LossAndMalformedFragments) {
  Bytes fields = Be32(0);
  fields.insert(fields.end(), {0, 0, 0, 9});  // announces 9, delivers 4 + 4
  const Bytes bytes = Concat({
      HandPacket(0x0007, 0xC90C, 1, Be32(0), {1}),
      HandPacket(0x0007, 0xC90C, 5, Be32(3000), {2}),  // 2, 3, 4 lost
      HandPacket(0x0007, 0xA90C, 6, fields, {1, 2, 3, 4}),
      HandPacket(0x0007, 0x4000, 7, {}, {5, 6, 7, 8}),
      HandPacket(0x0007, 0x4000, 8, {}, {9}),  // a last fragment with no first
      HandPacket(0x0007, 0xC90C, 0, Be32(9000), {3}),  // wrapped sequences are loss too
      HandPacket(0x0007, 0xC90C, 1, Be32(12000), {4}),
  });
  TempFile file(bytes);
  RecordingObserver observer;
  auto reader = Open(file.path(), &observer);
  int err = 0;
  const std::vector<frame_record_t> frames = ReadAll(*reader, err);
  EXPECT_EQ(err, 0);
  ASSERT_EQ(frames.size(), 4u);
  const std::vector<std::string> events = {
      "h264 key=0 dts=0 cts=0 rate=90000 size=1",
      "loss tid=7 at=24 last=1 expected=2 got=5",
      "h264 key=0 dts=3000 cts=0 rate=90000 size=1",
      "malformed tid=7",
      "malformed tid=7",
      "loss tid=7 at=116 last=8 expected=9 got=0",
      "h264 key=0 dts=9000 cts=0 rate=90000 size=1",
      "h264 key=0 dts=12000 cts=0 rate=90000 size=1"};
  EXPECT_EQ(observer.events, events);
}

TEST(ReaderVrexHandLaidTest, DamagedPacketsStopTheReadWithoutResynchronising) {
  struct row_t {
    const char* what;
    Bytes bad;
    int err;
  };
  const row_t rows[] = {
      {"check byte", {0xA0, 0x00, 0x07, 0xA6, 0xC9, 0x0C, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 16},
       ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT},
      {"marker", {0xB0, 0x00, 0x07, 0xB7, 0xC9, 0x0C, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 16},
       ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT},
      {"track 0", HandPacket(0, 0xF100, 0, {}, {}), ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT},
      {"flags", HandPacket(7, 0xC201, 2, {}, {}), ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT},
      {"TID map", HandPacket(1, 0xF100, 0, {}, {}), ERR_MEDIAFORMATS_NOT_IMPLEMENTED},
      {"short sync", HandPacket(0xDA7E, 0xF90C, 0, Be32(0), {1, 2, 3, 4}),
       ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT},
  };
  for (const row_t& row : rows) {
    const Bytes first = HandPacket(0x0007, 0xC90C, 1, Be32(0), {1});
    const Bytes bytes = Concat({first, row.bad, HandPacket(0x0007, 0xC90C, 3, Be32(3000), {2})});
    TempFile file(bytes);
    auto reader = Open(file.path());
    int err = 0;
    EXPECT_NE(reader->ReadFrame(err), nullptr) << row.what;
    EXPECT_EQ(reader->ReadFrame(err), nullptr) << row.what;
    EXPECT_EQ(err, row.err) << row.what;
    EXPECT_EQ(reader->GetCurrentRawOffset(), static_cast<long>(first.size())) << row.what;
    // Again: the reader stays on the damaged packet.
    EXPECT_EQ(reader->ReadFrame(err), nullptr) << row.what;
    EXPECT_EQ(err, row.err) << row.what;
  }
}

TEST(ReaderVrexHandLaidTest, PartialPacketAtTheEndIsTheEndOfData) {
  const Bytes first = HandPacket(0x0007, 0xC90C, 1, Be32(0), {1});
  const Bytes second = HandPacket(0x0007, 0xC90C, 2, Be32(3000), {1, 2, 3, 4, 5, 6, 7, 8});
  for (size_t cut = 0; cut < second.size(); ++cut) {
    const Bytes bytes = Concat({first, Bytes(second.begin(), second.begin() + cut)});
    TempFile file(bytes);
    auto reader = Open(file.path());
    int err = 0;
    ASSERT_NE(reader->ReadFrame(err), nullptr);
    EXPECT_EQ(reader->ReadFrame(err), nullptr);
    EXPECT_EQ(err, 0) << cut;
    EXPECT_EQ(reader->GetCurrentRawOffset(), static_cast<long>(first.size()));
  }
}

TEST(ReaderVrexHandLaidTest, ExtremeSeekTableValues) {
  // A footer whose entries hold the extremes of 64 bits: the walks must neither overflow nor
  // move the reader outside the file.
  const Bytes frame = HandPacket(0x0007, 0xE90C, 1, Be32(0), {1});
  Bytes footerPayload;
  Put64(footerPayload, frame.size());
  const uint64_t extremes[][2] = {{0, 0x8000000000000000ull},
                                  {0x7FFFFFFFFFFFFFFFull, 0x7FFFFFFFFFFFFFFFull},
                                  {0xFFFFFFFFFFFFFFFFull, 0xFFFFFFFFFFFFFFFFull},
                                  {16, 0x7FFFFFFFFFFFFFFFull}};
  for (const auto& entry : extremes) {
    Put64(footerPayload, entry[0]);
    Put64(footerPayload, entry[1]);
  }
  Put32(footerPayload, sizeof(extremes));
  Bytes headerPayload;
  Put64(headerPayload, frame.size());
  headerPayload.insert(headerPayload.end(), 12, 0);
  const Bytes bytes = Concat({HandPacket(0x0009, 0xF100, 0, {}, headerPayload), frame,
                              HandPacket(0x000A, 0xF100, 0, {}, footerPayload)});
  TempFile file(bytes);
  auto reader = Open(file.path());
  int err = 0;
  const partition_t* partition = reader->ReadPartition(PARTITION_LAST_TIMESTAMP_VIDEO_AND_IMAGES, err);
  EXPECT_EQ(partition, nullptr);  // the last entry sends the walk into the header's bytes
  EXPECT_EQ(err, ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT);
  // Wall clocks that are no time, or go back, are a damaged table: no span is made of them.
  std::vector<fragment_t> fragments;
  EXPECT_EQ(reader->ListFragments(0, 0, fragments), ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT);
  EXPECT_TRUE(fragments.empty());
  for (long target : {0L, 1L, LONG_MAX}) {
    EXPECT_LT(reader->SeekToWallClock(target, SNAP_TO_IDR_CLOSEST).second, 0);
  }
  long start = -1, stop = -1;
  EXPECT_LT(reader->GetStartStopTimestamp(start, stop), 0);
}

TEST(ReaderVrexHandLaidTest, UnpartitionedFileEndsThePartitionWalk) {
  const Bytes bytes = Concat({HandPacket(0xDA7E, 0xF90C, 0, Be32(0), Concat({Be32(1000), Be32(0)})),
                              HandPacket(0x0007, 0xE90C, 1, Be32(0), {1}),
                              HandPacket(0x0007, 0xE90C, 2, Be32(90000), {2})});
  TempFile file(bytes);
  auto reader = Open(file.path());
  int err = 0;
  EXPECT_EQ(reader->ReadPartition(PARTITION_LAST_TIMESTAMP_NONE, err), nullptr);
  EXPECT_EQ(err, 0);
  // Without partitions the wall clock is found frame by frame (and so are the spans, in
  // vrx_listing.test.js).
  const std::pair<long, int> found = reader->SeekToWallClock(1000500, SNAP_TO_IDR_AFTER);
  EXPECT_EQ(found, std::make_pair(1001000L, 0));
  long start = -7, stop = -7;
  EXPECT_EQ(reader->GetStartStopTimestamp(start, stop), 0);
  EXPECT_EQ(start, -7);
  EXPECT_EQ(stop, 1001000);
}

TEST(ReaderVrexObserverTest, ARefusalStopsTheRead) {
  const hand_file_t hand = HandLaidPartition();
  TempFile file(hand.bytes);
  for (int refuseAt = 0; refuseAt < 9; ++refuseAt) {
    RecordingObserver observer;
    observer.refuseAt = refuseAt;
    auto reader = Open(file.path(), &observer);
    int err = 0;
    std::vector<frame_record_t> frames = ReadAll(*reader, err);
    EXPECT_EQ(err, ERR_MEDIAFORMATS_READER_OBSERVER_FAILED) << refuseAt;
    ASSERT_EQ(observer.events.size(), static_cast<size_t>(refuseAt + 1));
    // The reader stays on the packet whose event was refused: the next read tells it again.
    frames = ReadAll(*reader, err);
    EXPECT_EQ(err, 0);
    EXPECT_EQ(observer.events[refuseAt + 1], observer.events[refuseAt]) << refuseAt;
    EXPECT_EQ(observer.events.size(), 10u);
  }
}

// Another writer changes a byte the reader has read and writes on past the reader's end.
// Until DropReadAhead the reader sees the file as it was (the old end); after it, it reads on
// from where it stopped, and a walk from the start finds the changed byte. The old end lies on
// a packet boundary, inside a header, a payload or a trailer, in one file or two. A reader that
// stops at footers ends on the first one, as on the footer of a file still being written.
TEST(ReaderVrexDropReadAheadTest, AWriterChangesAndGrowsTheFileBetweenWalks) {
  vrx_testing::shape_t later{"later"};
  later.firstFrame = 45;
  later.wallClockBase += 60000;
  const vrx_testing::recording_t first = vrx_testing::MakeRecording({"first"});
  const vrx_testing::recording_t second = vrx_testing::MakeRecording(later);
  const Bytes whole = Concat({first.bytes, second.bytes});
  std::vector<frame_record_t> want = first.frames;
  want.insert(want.end(), second.frames.begin(), second.frames.end());
  const long p1 = static_cast<long>(first.bytes.size()), size = static_cast<long>(whole.size());
  struct row_t {
    long cut;  // the end of the data at the first walk
    bool twoFiles;
    bool stopAtFooter;
  };
  const row_t rows[] = {{p1, false, true},     {p1, true, false},  {p1 * 3 / 4, false, false},
                        {p1 + 6, false, false}, {(p1 + size) / 2, true, false},
                        {size - 3, false, false}};
  for (const row_t& row : rows) {
    const std::string what = "cut at " + std::to_string(row.cut);
    const long split = row.twoFiles ? row.cut / 3 : row.cut;
    TempFile head(Bytes(whole.begin(), whole.begin() + split));
    TempFile tail(Bytes(whole.begin() + split, whole.begin() + row.cut));
    std::vector<std::string> files = {head.path()};
    if (row.twoFiles) files.push_back(tail.path());
    int err = 0;
    auto reader = ReaderVREX::Create(nullptr, files, true, 0, -1, row.stopAtFooter, err);
    ASSERT_NE(reader, nullptr) << what;
    const int end = row.stopAtFooter ? ERR_MEDIAFORMATS_NEED_MORE_DATA : 0;
    std::vector<frame_record_t> got = ReadAll(*reader, err);
    EXPECT_EQ(err, end) << what;
    ASSERT_FALSE(got.empty()) << what;
    const long at = reader->GetCurrentRawOffset();
    if (row.stopAtFooter) {
      EXPECT_EQ(at, p1 - 4 - static_cast<long>(abstraction::LoadBE32(&first.bytes[p1 - 4]))) << what;
    }

    Bytes changed = whole;
    changed[got[0].offset] ^= 0xFF;
    head.Write(Bytes(changed.begin(), row.twoFiles ? changed.begin() + split : changed.end()));
    if (row.twoFiles) tail.Write(Bytes(changed.begin() + split, changed.end()));
    EXPECT_EQ(reader->ReadFrame(err), nullptr) << what;
    EXPECT_EQ(err, end) << what;
    EXPECT_EQ(reader->GetCurrentRawOffset(), at) << what;

    EXPECT_EQ(reader->DropReadAhead(), 0) << what;
    EXPECT_EQ(reader->GetAvailableDataSize(), size - at) << what;
    const std::vector<frame_record_t> rest = ReadAll(*reader, err);
    EXPECT_EQ(err, end) << what;
    got.insert(got.end(), rest.begin(), rest.end());
    vrx_testing::ExpectFrames(got, want, what);
    ASSERT_EQ(reader->SeekToRawOffset(0), 0);
    want[0].bytes[0] ^= 0xFF;
    vrx_testing::ExpectFrames(ReadAll(*reader, err), want, what + ", from the start");
    want[0].bytes[0] ^= 0xFF;
  }
}

TEST(PartitionTest, DeepCopyAndText) {
  partition_t partition;
  partition._offset = 0;
  partition._size = 100;
  partition._fixedMetadata[0] = 0xAB;
  partition._dynamicMetadata = {36, 2};
  partition._contents = {44, 12};
  const seek_point_t points[] = {{44, 1763800000000}, {50, 1763800000500}};
  partition.SetSeekpoints(points, 2);
  partition._lastWallClockMillis = 1763800000900;
  partition_t copy = partition;
  partition.SetSeekpoints(nullptr, 0);
  EXPECT_EQ(partition._pSeekPoints, nullptr);
  ASSERT_EQ(copy._seekPointsCount, 2u);
  EXPECT_EQ(copy._pSeekPoints[1]._offset, 50);
  const std::string text = copy.ToString(false);
  EXPECT_EQ(text.substr(0, 19), "\n  fixed metadata: ");
  const std::string rest = text.substr(text.find("\ndynamic metadata:"));
  EXPECT_EQ(rest,
            "\ndynamic metadata: 36/2"
            "\n        contents: 44/12"
            "\n     seek points: 2"
            "\n       0. OFF: 44; WC: 1763800000000"
            "\n       1. OFF: 50; WC: 1763800000500"
            "\n     END. OFF: 56; WC: 1763800000900");
  EXPECT_NE(copy.ToString(true).find("OFF: 50; WC: 2025-11-22 08:26:40.500"), std::string::npos);
  copy.AllocateSeekPoints(3, true);
  EXPECT_EQ(copy._pSeekPoints[2]._wallClockMillis, 0);
}

// Key frames at the given wall-clock steps after a sync node, in one partition.
Bytes KeyFramesAt(const std::vector<long>& steps) {
  vrx_testing::ByteSink sink;
  int err = 0;
  auto writer = WriterVREX::Create(0xFFFFFFFF, &sink, err);
  WriterVREX::partition_info_t info;
  EXPECT_EQ(writer->OpenPartition(&info), 0);
  media::clock_sync_t sync;
  sync.sc = media::timestamp_t(0, 1000);
  sync.wc = media::timestamp_t(1763800000000, 1000);
  EXPECT_GT(writer->WriteClockSync(sync), 0);
  const unsigned char payload[] = {0, 0, 0, 1, 0x65};
  for (long step : steps) {
    EXPECT_GT(writer->WriteVideoData(payload, sizeof(payload), media::dts_cts_t(step, 1000), true), 0);
  }
  EXPECT_GT(writer->ClosePartition(), 0);
  return sink.bytes;
}

// Gaps of seek points split spans beyond 20 s. (The frame-by-frame limit of 2 s in files without
// partitions is held to the millisecond by vrx_listing.test.js.)
TEST(ReaderVrexFragmentsTest, GapsSplitSpansOnlyBeyondTheirLimit) {
  struct row_t {
    std::vector<long> steps;
    std::vector<std::pair<long, long>> spans;  // relative to the sync node's wall clock
  };
  const row_t rows[] = {
      {{0, 20000, 40001}, {{0, 20000}, {40001, 40001}}},
      {{0, 20001, 40001}, {{0, 0}, {20001, 40001}}},
  };
  for (const row_t& row : rows) {
    TempFile file(KeyFramesAt(row.steps));
    auto reader = Open(file.path());
    std::vector<fragment_t> fragments;
    EXPECT_EQ(reader->ListFragments(0, 0, fragments), 0);
    std::vector<std::pair<long, long>> spans;
    for (const fragment_t& fragment : fragments) {
      spans.emplace_back(fragment.start - 1763800000000, fragment.end - 1763800000000);
    }
    EXPECT_EQ(spans, row.spans) << row.steps[1];
  }
}

TEST(ReaderVrexFactoryTest, Refusals) {
  int err = 0;
  EXPECT_EQ(ReaderVREX::Create(nullptr, err), nullptr);
  EXPECT_EQ(err, ERR_MEDIAFORMATS_NULL_OBSERVER);
  EXPECT_EQ(ReaderVREX::Create(nullptr, std::vector<std::string>{}, true, 0, -1, err), nullptr);
  EXPECT_EQ(err, ERR_MEDIAFORMATS_INCORRECT_PARAMETERS);
  EXPECT_EQ(ReaderVREX::Create(nullptr, "/nonexistent/x.vrx", true, 0, -1, err), nullptr);
  EXPECT_LT(err, 0);
  TempFile small(Bytes(20, 0));
  EXPECT_EQ(ReaderVREX::Create(nullptr, small.path().c_str(), true, 15, -1, err), nullptr);
  EXPECT_EQ(err, ERR_MEDIAFORMATS_INCORRECT_OFFSET);
  EXPECT_NE(ReaderVREX::Create(nullptr, small.path().c_str(), true, -3, -1, err), nullptr);
}

}  // namespace
}  // namespace mediaformats
}  // namespace vrex
