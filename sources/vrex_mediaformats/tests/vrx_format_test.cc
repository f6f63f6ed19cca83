// The byte vectors of the .vrx format: skip packets, flag words, header sizes, padding and
// trailers, and skip packets laid over ranges past 4 GiB (computed, not written).
#include <gtest/gtest.h>

#include "abstraction/datasource.h"
#include "mediaformats/errors.h"
#include "mediaformats/vrx/vrx_format.h"
#include "mediaformats/vrx/vrx_packet.h"
#include "mediaformats/vrx/writer_vrex.h"
#include "vrx_test_util.h"

namespace vrex {
namespace mediaformats {
namespace {

using media::dts_cts_t;
using vrx_testing::ByteSink;
using vrx_testing::Bytes;

// Parses a whole packet held in `bytes`.
int ParsePacket(const Bytes& bytes, vrx_packet_t& packet) {
  return packet.Parse(bytes.data(), std::min<size_t>(bytes.size(), vrx_packet_t::kMaxHeaderSize), 0,
                      static_cast<long>(bytes.size()));
}

TEST(VrxFormatTest, EmptySkipPacket) {
  const Bytes skip = {0xA0, 0x00, 0x06, 0xA6, 0xF1, 0x00, 0x00, 0x00,
                      0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x0C};
  vrx_packet_t packet;
  ASSERT_EQ(ParsePacket(skip, packet), 1);
  EXPECT_EQ(packet.Tid(), VRX_TID_SKIP);
  EXPECT_TRUE(IsPacketWordValid(skip.data()));
  EXPECT_EQ(packet.flags, 0xF100);
  EXPECT_EQ(packet.payloadSize, 0u);
  EXPECT_EQ(packet.packetSize, 16);
  EXPECT_EQ(packet.dts, -1);
  EXPECT_EQ(Bytes(skip.begin(), skip.begin() + 8), Bytes(kSkipPacketHeader, kSkipPacketHeader + 8));
  EXPECT_EQ(kEmptySkipPacketSize, WriterVREX::ComputeRequiredSpace(nullptr, 0, 0));
  EXPECT_EQ(kFullSkipPacketSize, WriterVREX::ComputeRequiredSpace(nullptr, 0, 0xFFFFFFF0ul));

  ByteSink sink;
  int err = 0;
  auto writer = WriterVREX::Create(0xFFFFFFFF, &sink, err);
  unsigned char header[12], trailer[4];
  ASSERT_EQ(writer->ComputeSkipPacketHeaderAndFooter(0, header, trailer), 0);
  EXPECT_EQ(Bytes(header, header + 12), Bytes(skip.begin(), skip.begin() + 12));
  EXPECT_EQ(Bytes(trailer, trailer + 4), Bytes(skip.begin() + 12, skip.end()));
  ASSERT_EQ(writer->ComputeSkipPacketHeaderAndFooter(0x1000, header, trailer), 0);
  EXPECT_EQ(Bytes(header + 8, header + 12), (Bytes{0x00, 0x00, 0x10, 0x00}));
  EXPECT_EQ(Bytes(trailer, trailer + 4), (Bytes{0x00, 0x00, 0x10, 0x0C}));
  auto small = WriterVREX::Create(100, &sink, err);
  EXPECT_EQ(small->ComputeSkipPacketHeaderAndFooter(84, header, trailer), 0);
  EXPECT_EQ(small->ComputeSkipPacketHeaderAndFooter(85, header, trailer),
            ERR_MEDIAFORMATS_INCORRECT_PARAMETERS);
}

TEST(VrxFormatTest, TrackWordsAndCheckBytes) {
  struct row_t {
    uint16_t tid;
    uint32_t word;
    VREXPayloadType type;
  };
  const row_t rows[] = {
      {VRX_TID_SKIP, 0xA00006A6, VRX_PAYLOAD_SKIP},
      {VRX_TID_H264_AVCC, 0xA00007A7, VRX_PAYLOAD_VIDEO_H264_NALU_AVCC},
      {VRX_TID_PARTITION_HEADER, 0xA00009A9, VRX_PAYLOAD_PARTITION_HEADER},
      {VRX_TID_PARTITION_FOOTER, 0xA0000AAA, VRX_PAYLOAD_PARTITION_FOOTER},
      {VRX_TID_AAC_ADTS, 0xA003E84B, VRX_PAYLOAD_AUDIO_AAC_ADTS},
      {VRX_TID_OPUS, 0xA003EA49, VRX_PAYLOAD_AUDIO_OPUS},
      {VRX_TID_H265_AVCC, 0xA003EB48, VRX_PAYLOAD_VIDEO_H265_NALU_AVCC},
      {VRX_TID_AV1, 0xA003EC4F, VRX_PAYLOAD_VIDEO_AV1},
      {VRX_TID_SNAPSHOT_META, 0xA003ED4E, VRX_PAYLOAD_SNAPSHOT_META},
      {VRX_TID_IMAGE_JPEG, 0xA04A709A, VRX_PAYLOAD_IMAGE_JPEG},
      {VRX_TID_SC_TO_WC, 0xA0DA7E04, VRX_PAYLOAD_SC_TO_WC},
  };
  for (const row_t& row : rows) {
    EXPECT_EQ(MakePacketWord(row.tid), row.word) << row.tid;
    EXPECT_EQ(PayloadTypeOfTid(row.tid), row.type);
  }
  EXPECT_EQ(PayloadTypeOfTid(VRX_TID_H264_ANNEXB), VRX_PAYLOAD_VIDEO_H264_NALU_B);
  EXPECT_EQ(PayloadTypeOfTid(VRX_TID_MILESTONE), VRX_PAYLOAD_MILESTONE);
  EXPECT_EQ(PayloadTypeOfTid(4242), VRX_PAYLOAD_UNDEFINED);
  const unsigned char markerF[] = {0xAF, 0x00, 0x07, 0xA8};
  const unsigned char wrongCheck[] = {0xA0, 0x00, 0x07, 0xA6};
  const unsigned char wrongMarker[] = {0xB0, 0x00, 0x07, 0xB7};
  EXPECT_TRUE(IsPacketWordValid(markerF));
  EXPECT_FALSE(IsPacketWordValid(wrongCheck));
  EXPECT_FALSE(IsPacketWordValid(wrongMarker));
}

TEST(VrxFormatTest, PayloadSizeOffsetTable) {
  struct row_t {
    uint16_t flags;
    int offset;
  };
  const row_t rows[] = {
      {0x0000, 8},  {0x4000, 8},  {0x8000, 12}, {0x8800, 16}, {0x8A00, 20}, {0x8C00, 20},
      {0x8E00, 24}, {0x8801, 20}, {0x8A01, 24}, {0x8C01, 24}, {0x8E01, 28}, {0xC000, 8},
      {0xC800, 12}, {0xCA00, 16}, {0xCC00, 16}, {0xCE00, 20}, {0xC801, 16}, {0xCA01, 20},
      {0xCC01, 20}, {0xCE01, 24},
      // Clock codes other than 1 have no rate field; key and stand-alone bits do not count.
      {0xF90C, 12}, {0xFF0C, 20}, {0xE902, 12},
      // No writer makes these.
      {0xC200, -1}, {0xC400, -1}, {0xC001, -1}, {0x0800, -1}, {0x4001, -1}, {0x8200, -1},
      {0x8001, -1},
  };
  for (const row_t& row : rows) {
    EXPECT_EQ(vrx_packet_t::GetPayloadSizeOffset(row.flags), row.offset) << std::hex << row.flags;
  }
}

TEST(VrxFormatTest, ClockCodes) {
  const uint32_t rates[] = {0, 0, 1000, 8000, 11025, 12000, 16000, 22050, 24000, 32000, 44100,
                            48000, 90000, 1000000, 1000000000, 0};
  for (unsigned code = 0; code < 16; ++code) {
    EXPECT_EQ(GetClockRate(code), rates[code]) << code;
    if (rates[code] != 0) {
      EXPECT_EQ(GetClockCode(rates[code]), code);
    }
  }
  EXPECT_EQ(GetClockCode(0), VRX_CLOCK_CODE_NONE);
  EXPECT_EQ(GetClockCode(25000), VRX_CLOCK_CODE_EXPLICIT);
}

// Frames as the writer lays them: flags, where the payload size stands, padding, trailer.
TEST(VrxFormatTest, FramePacketsAsWritten) {
  struct row_t {
    const char* what;
    dts_cts_t ts;
    bool key;
    unsigned long payload;
    Bytes head;  // everything before the payload
  };
  const row_t rows[] = {
      {"DTS 0 at 90 kHz, non-key", dts_cts_t(0, 90000), false, 4,
       {0xA0, 0x00, 0x07, 0xA7, 0xC9, 0x0C, 0x00, 0x01, 0, 0, 0, 0, 0, 0, 0, 4}},
      {"64-bit DTS", dts_cts_t(0x100000000LL, 90000), true, 4,
       {0xA0, 0x00, 0x07, 0xA7, 0xED, 0x0C, 0x00, 0x01, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 4}},
      {"explicit 25 kHz with CTS", dts_cts_t(0x10, 25000, 0x20), false, 4,
       {0xA0, 0x00, 0x07, 0xA7, 0xCB, 0x01, 0x00, 0x01, 0, 0, 0x61, 0xA8, 0, 0, 0, 0x10,
        0, 0, 0, 0x20, 0, 0, 0, 4}},
      {"no timestamp", dts_cts_t(-1, 90000), true, 4,
       {0xA0, 0x00, 0x07, 0xA7, 0xE1, 0x00, 0x00, 0x01, 0, 0, 0, 4}},
      {"payload of 5: 3 bytes of padding", dts_cts_t(1, 1000), false, 5,
       {0xA0, 0x00, 0x07, 0xA7, 0xC9, 0x02, 0x00, 0x01, 0, 0, 0, 1, 0, 0, 0, 5}},
  };
  for (const row_t& row : rows) {
    ByteSink sink;
    int err = 0;
    auto writer = WriterVREX::Create(0xFFFFFFFF, &sink, err);
    const Bytes payload(row.payload, 0x55);
    const long written = writer->WriteVideoData(payload.data(), payload.size(), row.ts, row.key);
    Bytes expected = row.head;
    expected.insert(expected.end(), payload.begin(), payload.end());
    expected.resize((expected.size() + 3) / 4 * 4, 0);
    vrx_testing::Put32(expected, static_cast<uint32_t>(expected.size()));
    EXPECT_EQ(sink.bytes, expected) << row.what;
    EXPECT_EQ(written, static_cast<long>(expected.size())) << row.what;
    const media::timestamp_t ts = row.ts.Dts();
    EXPECT_EQ(WriterVREX::ComputeRequiredSpace(&ts, row.ts.cts, row.payload), written) << row.what;

    vrx_packet_t packet;
    ASSERT_EQ(ParsePacket(sink.bytes, packet), 1) << row.what;
    EXPECT_EQ(packet.headerSize, static_cast<long>(row.head.size())) << row.what;
    EXPECT_EQ(packet.packetSize, static_cast<long>(expected.size()));
    EXPECT_EQ(packet.dts, row.ts.clockRate != 0 ? row.ts.dts : -1);
    EXPECT_EQ(packet.cts, row.ts.cts);
    EXPECT_EQ(packet.payloadSize, row.payload);
  }
}

TEST(VrxFormatTest, ClockSyncPayload) {
  struct row_t {
    media::timestamp_t sc;
    media::timestamp_t wc;
    Bytes tail;  // flags, sequence, timestamp, size, payload, trailer
  };
  const row_t rows[] = {
      // 1 GHz: the nanosecond remainder as it stands.
      {{90000, 90000}, {1763800000123456789LL, 1000000000},
       {0xF9, 0x0C, 0, 0, 0, 1, 0x5F, 0x90, 0, 0, 0, 8, 0x69, 0x21, 0x73, 0xC0, 0x07, 0x5B, 0xCD,
        0x15, 0, 0, 0, 0x18}},
      // 1 kHz: 123 ms is 123,000,000 ns.
      {{0, 1000}, {1763800000123LL, 1000},
       {0xF9, 0x02, 0, 0, 0, 0, 0, 0, 0, 0, 0, 8, 0x69, 0x21, 0x73, 0xC0, 0x07, 0x54, 0xD4, 0xC0,
        0, 0, 0, 0x18}},
      // No wall-clock rate, no stream clock.
      {{-1, 0}, {5, 0},
       {0xF1, 0x00, 0, 0, 0, 0, 0, 8, 0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0x14}},
  };
  for (const row_t& row : rows) {
    ByteSink sink;
    int err = 0;
    auto writer = WriterVREX::Create(0xFFFFFFFF, &sink, err);
    media::clock_sync_t sync;
    sync.sc = row.sc;
    sync.wc = row.wc;
    const long written = writer->WriteClockSync(sync);
    EXPECT_EQ(written, static_cast<long>(sink.bytes.size()));
    Bytes expected = {0xA0, 0xDA, 0x7E, 0x04};
    expected.insert(expected.end(), row.tail.begin(), row.tail.end());
    EXPECT_EQ(sink.bytes, expected);
    EXPECT_EQ(sink.sizes.size(), 2u);  // header, then payload with trailer
  }
}

TEST(VrxFormatTest, SkipPacketPayloadLengths) {
  struct row_t {
    long total;
    std::vector<long> payloads;  // applied repeatedly until the range is done
  };
  const row_t rows[] = {
      {16, {0}},
      {20, {4}},
      {4096, {4080}},
      {0x100000000L, {0xFFFFFFF0L}},
      {0x100000004L, {0xFFFFFFE4L, 0}},
      {0x100000008L, {0xFFFFFFE8L, 0}},
      {0x10000000CL, {0xFFFFFFECL, 0}},
      {0x100000010L, {0xFFFFFFF0L, 0}},
      {0x100000014L, {0xFFFFFFF0L, 4}},
      {0x200000000L, {0xFFFFFFF0L, 0xFFFFFFF0L}},
      {0x200000008L, {0xFFFFFFF0L, 0xFFFFFFE8L, 0}},
      {0x300000000L, {0xFFFFFFF0L, 0xFFFFFFF0L, 0xFFFFFFF0L}},
  };
  for (const row_t& row : rows) {
    std::vector<long> payloads;
    long remaining = row.total;
    while (remaining > 0 && payloads.size() < 8) {
      const long payload = GetSkipPacketPayloadLength(remaining);
      ASSERT_GE(payload, 0) << row.total;
      payloads.push_back(payload);
      remaining -= payload + kEmptySkipPacketSize;
    }
    EXPECT_EQ(remaining, 0) << std::hex << row.total;
    EXPECT_EQ(payloads, row.payloads) << std::hex << row.total;
  }
  for (long bad : {0L, 4L, 12L, 15L, 18L, 0x100000002L, -16L}) {
    EXPECT_EQ(GetSkipPacketPayloadLength(bad), ERR_MEDIAFORMATS_INVALID_FILE_SIZE) << bad;
  }
}

}  // namespace
}  // namespace mediaformats
}  // namespace vrex
