// The media model: rescaling, clock sync, codec tags and the text forms of logs and listings.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "abstraction/datasource.h"
#include "media/clock_sync.h"
#include "media/codec_tags.h"
#include "media/frame.h"
#include "media/timestamp.h"

namespace vrex {
namespace media {
namespace {

TEST(RescaleTest, RoundsHalfUpAndRefusesMissingTimes) {
  struct row_t {
    int64_t value;
    uint32_t from;
    uint32_t to;
    int64_t expected;
  };
  const row_t rows[] = {
      {1, 3, 2, 1},                     // 2/3 rounds up
      {0, 3, 2, 0},
      {1, 2, 1, 1},                     // exactly half goes up
      {3, 90000, 1000, 0},              // 0.033 ms
      {45, 90000, 1000, 1},             // 0.5 ms
      {90000, 90000, 1000, 1000},
      {7, 1000, 1000, 7},               // equal rates
      {-1, 1000, 90000, -1},
      {5, 0, 1000, -1},
      {0, 0, 0, -1},
      // A wall clock of today at 1 GHz to ms would wrap 64 bits in the product.
      {1763800000123456789LL, 1000000000u, 1000u, 1763800000123LL},
      {INT64_MAX, 1, 2, -1},  // past int64
      {INT64_MAX, 1, 1, INT64_MAX},
  };
  for (const row_t& row : rows) {
    EXPECT_EQ(rescale(row.value, row.from, row.to), row.expected)
        << row.value << "@" << row.from << "->" << row.to;
  }
}

TEST(ClockSyncTest, ComputeWallClock) {
  clock_sync_t sync;
  EXPECT_FALSE(sync.IsValid());
  EXPECT_EQ(sync.ComputeWallClock(timestamp_t(180000, 90000), 1000), -1);
  sync.sc = timestamp_t(90000, 90000);
  sync.wc = timestamp_t(5000, 1000);
  ASSERT_TRUE(sync.IsValid());
  struct row_t {
    int64_t value;
    uint32_t rate;
    unsigned out;
    long expected;
  };
  const row_t rows[] = {
      {180000, 90000, 1000, 6000},
      {90000, 90000, 1000, 5000},
      {180000, 90000, 90000, 540000},
      {2000, 1000, 1000, 6000},  // a frame in another clock
      {-1, 90000, 1000, -1},
      {180000, 0, 1000, -1},
      {180000, 90000, 0, -1},
  };
  for (const row_t& row : rows) {
    EXPECT_EQ(sync.ComputeWallClock(timestamp_t(row.value, row.rate), row.out), row.expected);
    EXPECT_EQ(sync.ComputeWallClock(static_cast<long>(row.value), row.rate, row.out), row.expected);
  }
  clock_sync_t huge;
  huge.sc = timestamp_t(0, 1000);
  huge.wc = timestamp_t(INT64_MAX - 5, 1000);
  EXPECT_EQ(huge.ComputeWallClock(timestamp_t(5, 1000), 1000), INT64_MAX);
  EXPECT_EQ(huge.ComputeWallClock(timestamp_t(6, 1000), 1000), -1);
  sync.Clear();
  EXPECT_EQ(sync.ComputeWallClock(timestamp_t(180000, 90000), 1000), -1);
  EXPECT_EQ(sync.offset, -1);
}

TEST(ClockSyncTest, ToString) {
  clock_sync_t sync;
  sync.sc = timestamp_t(90000, 90000);
  sync.wc = timestamp_t(5000, 1000);
  EXPECT_EQ(sync.ToString(), "SC: 90000@90000(1000ms) -> WC: 5000@1000(5000ms)");
  EXPECT_EQ(clock_sync_t().ToString(), "SC: -1@0(-1ms) -> WC: -1@0(-1ms)");
}

TEST(CodecTagTest, TableBothWays) {
  struct row_t {
    const char* name;
    uint64_t tag;
    const char* text;
    const char* codecName;
  };
  const row_t rows[] = {
      {"h264", 0x5648323634000000ull, "VH264", "h264"},
      {"h265", 0x5648323635000000ull, "VH265", "h265"},
      {"av1", 0x5641563100000000ull, "VAV1", "av1"},
      {"vp8", 0x5656503600000000ull, "VVP6", "vp8"},
      {"vp9", 0x5656503600000000ull, "VVP6", "vp8"},
      {"mjpeg", 0x564A504547000000ull, "VJPEG", "mjpeg"},
      {"pcm", 0x4150434D4C450000ull, "APCMLE", "pcm"},
      {"mp3", 0x414D503300000000ull, "AMP3", "mp3"},
      {"aac", 0x4141414300000000ull, "AAAC", "aac"},
      {"g711a", 0x4147373131410000ull, "AG711A", "g711a"},
      {"g711u", 0x4147373131550000ull, "AG711U", "g711u"},
      {"speex", 0x4153504545580000ull, "ASPEEX", "speex"},
      {"opus", 0x414F505553000000ull, "AOPUS", "opus"},
      {"ac3", 0x4143330000000000ull, "AC3", "ac3"},
      {"srt", 0x5353525400000000ull, "SSRT", "srt"},
      {"sub", 0x5353554200000000ull, "SSUB", "sub"},
      {"jpeg", 0x494A504547000000ull, "IJPEG", "jpeg"},
      {"H264", 0x554E4B0000000000ull, "UNK", "unknown"},
      {"", 0x554E4B0000000000ull, "UNK", "unknown"},
      {"h264 ", 0x554E4B0000000000ull, "UNK", "unknown"},
  };
  for (const row_t& row : rows) {
    EXPECT_EQ(stringToTag(row.name), row.tag) << row.name;
    EXPECT_EQ(tagToString(row.tag), row.text);
    EXPECT_STREQ(tagToCodecName(row.tag), row.codecName);
  }
  EXPECT_EQ(tagToString(TAG_VUNK), "VUNK");
  EXPECT_STREQ(tagToCodecName(TAG_AUNK), "unknown");
  EXPECT_EQ(tagKind(TAG_VH264), 'V');
  EXPECT_EQ(tagKind(TAG_AOPUS), 'A');
  EXPECT_EQ(tagKind(TAG_IJPEG), 'I');
  EXPECT_EQ(tagKind(TAG_SSRT), 'S');
  EXPECT_EQ(tagKind(TAG_UNK), 'U');
  EXPECT_EQ(tagToString(0), "");
}

TEST(DtsCtsTest, ToString) {
  EXPECT_EQ(dts_cts_t(180000, 90000, 3000).ToString(),
            "CR:  90000; DTS:       180000/2000        ; CTS: 3000/33  ; PTS:       183000/2033        ");
  EXPECT_EQ(dts_cts_t(-1, 90000, 7).ToString(),
            "CR:      0; DTS:           -1/-1          ; CTS:    7/0   ; PTS:           -1/-1          ");
  EXPECT_EQ(dts_cts_t(5, 0, 0).ToString(),
            "CR:      0; DTS:            5/-1          ; CTS:    0/4294967295; PTS:            5/-1          ");
  // A DTS read from a damaged file can sit at the top of int64: a PTS beyond it is no time.
  EXPECT_EQ(dts_cts_t(INT64_MAX, 1000, 1).ToString(),
            "CR:   1000; DTS: 9223372036854775807/9223372036854775807; CTS:    1/1   ; PTS:           "
            "-1/-1          ");
}

TEST(FrameTest, ListingLines) {
  clock_sync_t sync;
  sync.sc = timestamp_t(90000, 90000);
  sync.wc = timestamp_t(1763800000000LL, 1000);
  frame_t frame;
  frame.trackId = 7;
  frame.tag = TAG_VH264;
  frame.keyFrame = true;
  frame.clockSync = &sync;
  frame.dtsCts = dts_cts_t(180000, 90000, 9000);
  frame.offset = 4096;
  frame.size = 1500;
  EXPECT_STREQ(frame_t::ToStringHeader(true),
               "Type   TID  KF           OFFSET     SIZE          DTS   CTS                             WC(UTC)     CR");
  EXPECT_STREQ(frame_t::ToStringHeader(false),
               "Type   TID  KF           OFFSET     SIZE          DTS   CTS              WC     CR");
  // Own rate: DTS in ticks, CTS in ms, wall clock in ticks.
  EXPECT_EQ(frame.ToString(),
            "   V     7   1             4096     1500       180000   100 158742000090000  90000");
  // In ms with an origin of 1,000 ms.
  EXPECT_EQ(frame.ToString(1000, 1000, false),
            "   V     7   1             4096     1500         1000   100   1763800001000   1000");
  EXPECT_EQ(frame.ToString(1000, -5, true),
            "   V     7   1             4096     1500         2000   100 2025-11-22 08:26:41.000   1000");
  frame_t audio;
  audio.tag = TAG_AAAC;
  EXPECT_EQ(audio.ToString(),
            "   A     0   0                0        0           -1 4294967295              -1      0");
}

TEST(FrameTest, CopyFramePayloadFromMemoryOrSource) {
  const unsigned char bytes[] = {9, 8, 7, 6, 5, 4, 3};
  frame_t frame;
  frame.pData = bytes;
  frame.offset = 2;
  frame.size = 3;
  unsigned char out[8] = {0};
  EXPECT_EQ(CopyFramePayload(frame, out), 3);
  EXPECT_EQ(std::vector<unsigned char>(out, out + 3), (std::vector<unsigned char>{7, 6, 5}));
  int err = 0;
  abstraction::DataSource* source = abstraction::DataSource::GetInstance(bytes, sizeof(bytes), err);
  frame.pData = nullptr;
  frame.pDataSource = source;
  frame.offset = 4;
  EXPECT_EQ(CopyFramePayload(frame, out), 3);
  EXPECT_EQ(std::vector<unsigned char>(out, out + 3), (std::vector<unsigned char>{5, 4, 3}));
  frame.offset = 5;
  EXPECT_LT(CopyFramePayload(frame, out), 0);
  abstraction::DataSource::FreeInstance(source);
}

}  // namespace
}  // namespace media
}  // namespace vrex
