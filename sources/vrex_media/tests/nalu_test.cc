// AVCC <-> Annex B conversion: hand-made cases, and every frame of the ffmpeg fixtures, whose
// raw Annex B packets (as ffprobe splits them) and MP4 samples (as ffmpeg muxed them) are
// the same NAL units in the two framings.
#include "media/nalu.h"

#include <gtest/gtest.h>

#include <vector>

#include "codec_fixtures.h"
#include "media/errors.h"

namespace {

using vrex::media::ERR_MEDIA_INVALID_NALU;
using vrex::media::nalu_avcc_to_b_t;
using vrex::media::nalu_b_to_avcc_t;
using Bytes = std::vector<uint8_t>;

Bytes Output(const vrex::media::resizing_buffer_t& buffer) {
  return Bytes(buffer.pData, buffer.pData + buffer.used);
}

TEST(NaluTest, AvccToAnnexB) {
  struct Case {
    Bytes in;
    int result;
    Bytes out;
  } cases[] = {
      {{0, 0, 0, 2, 0xAA, 0xBB}, 0, {0, 0, 0, 1, 0xAA, 0xBB}},
      {{0, 0, 0, 1, 0xAA, 0, 0, 0, 2, 0xBB, 0xCC}, 0, {0, 0, 0, 1, 0xAA, 0, 0, 0, 1, 0xBB, 0xCC}},
      {{0, 0, 0, 2, 0xAA, 0xBB, 0xCC}, ERR_MEDIA_INVALID_NALU, {}},  // one byte left over
      {{0, 0, 0, 3, 0xAA, 0xBB}, ERR_MEDIA_INVALID_NALU, {}},        // length past the end
      {{0, 0, 0, 0}, ERR_MEDIA_INVALID_NALU, {}},
      {{}, ERR_MEDIA_INVALID_NALU, {}},
  };
  nalu_avcc_to_b_t converter;
  for (const Case& c : cases) {
    EXPECT_EQ(c.result, converter.Work(c.in.data(), c.in.size()));
    if (c.result == 0) {
      EXPECT_EQ(c.out, Output(converter));
    }
  }
}

TEST(NaluTest, AnnexBToAvcc) {
  struct Case {
    Bytes in;
    Bytes out;
  } cases[] = {
      {{0, 0, 0, 1, 0xAA, 0, 0, 1, 0xBB}, {0, 0, 0, 1, 0xAA, 0, 0, 0, 1, 0xBB}},
      {{0, 0, 1, 0xAA, 0, 0, 1, 0xBB, 0, 0, 1, 0xCC},
       {0, 0, 0, 1, 0xAA, 0, 0, 0, 1, 0xBB, 0, 0, 0, 1, 0xCC}},  // output larger than input
      {{0xAA, 0xBB}, {0, 0, 0, 2, 0xAA, 0xBB}},                  // no start code: one unit
      {{0, 0, 0, 1}, {}},
      {{}, {}},
      // A zero before a start code counts as part of it: the unit loses that byte.
      {{0, 0, 1, 0xAA, 0, 0, 0, 1, 0xBB}, {0, 0, 0, 1, 0xAA, 0, 0, 0, 1, 0xBB}},
  };
  nalu_b_to_avcc_t converter;
  for (const Case& c : cases) {
    EXPECT_EQ(0, converter.Work(c.in.data(), c.in.size()));
    EXPECT_EQ(c.out, Output(converter));
  }
}

// Every 3-byte start code grows the output; 3-byte codes back to back are the worst case.
TEST(NaluTest, AnnexBToAvccNeverOverrunsItsBuffer) {
  for (size_t units = 1; units < 50; ++units) {
    Bytes in;
    for (size_t i = 0; i < units; ++i) in.insert(in.end(), {0, 0, 1, 0x41});
    nalu_b_to_avcc_t converter;
    ASSERT_EQ(0, converter.Work(in.data(), in.size()));
    EXPECT_EQ(units * 5, converter.used);
    EXPECT_LE(converter.used, converter.capacity);
  }
}

TEST(NaluTest, FixtureFramesConvertBothWays) {
  const char* const kFixtures[] = {"h264_baseline", "h264_main",   "h264_high",
                                   "h264_crop",     "h264_ntsc",   "h264_notiming",
                                   "h265_main",     "h265_main10", "h265_notiming"};
  nalu_avcc_to_b_t toAnnexB;
  nalu_b_to_avcc_t toAvcc;
  for (const char* name : kFixtures) {
    SCOPED_TRACE(name);
    auto expect = codec_fixtures::Expectations(name);
    const std::string ext = std::string(name).substr(0, 4) == "h264" ? ".h264" : ".h265";
    const auto packets =
        codec_fixtures::Slices(codec_fixtures::ReadFile(name + ext), expect["es_packets"]);
    const auto samples = codec_fixtures::Slices(
        codec_fixtures::ReadFile(std::string(name) + ".mp4"), expect["mp4_samples"]);
    ASSERT_EQ(packets.size(), samples.size());
    ASSERT_FALSE(samples.empty());
    for (size_t i = 0; i < samples.size(); ++i) {
      ASSERT_EQ(0, toAvcc.Work(packets[i].data(), packets[i].size()));
      EXPECT_EQ(samples[i], Output(toAvcc)) << "frame " << i;
      ASSERT_EQ(0, toAnnexB.Work(samples[i].data(), samples[i].size()));
      const Bytes annexB = Output(toAnnexB);
      ASSERT_EQ(0, toAvcc.Work(annexB.data(), annexB.size()));
      EXPECT_EQ(samples[i], Output(toAvcc)) << "frame " << i;
    }
  }
}

}  // namespace
