// AV1 codec information and OBU handling against libaom streams: ffprobe's size and profile,
// the av1C box ffmpeg muxed, the samples ffmpeg wrote (its muxer drops temporal delimiters
// too), and codec strings worked out by hand from the av1C bytes.
#include "media/av1/av1.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "codec_fixtures.h"
#include "media/av1/codec_info_av1.h"
#include "media/errors.h"
#include "media/frame.h"

namespace {

using ms::media::av1::StripAV1;
using vrex::media::codec_info_video_av1_t;
using Bytes = std::vector<uint8_t>;

using Av1Ptr = codec_fixtures::InfoPtr<codec_info_video_av1_t>;

Av1Ptr FromFrame(const Bytes& key, int& error) {
  return codec_fixtures::FromKeyFrame<codec_info_video_av1_t>(key, vrex::media::TAG_VAV1, error);
}

TEST(Av1Test, FixturesMatchFfprobeAndFfmpegAv1C) {
  struct Case {
    const char* name;
    const char* codec;  // av01.<profile>.<level><tier>.<depth>: byte 1 00, byte 2 0C / 4C
    unsigned bitDepth;
  } cases[] = {
      {"av1_main8", "av01.0.00M.08", 8},
      {"av1_main10", "av01.0.00M.0a", 10},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    auto expect = codec_fixtures::Expectations(c.name);
    int error = 0;
    Av1Ptr info = FromFrame(codec_fixtures::ReadFile(std::string(c.name) + ".key"), error);
    ASSERT_NE(nullptr, info) << std::hex << error;
    EXPECT_EQ(std::stoul(expect["width"]), info->_width);
    EXPECT_EQ(std::stoul(expect["height"]), info->_height);
    EXPECT_EQ("Main", expect["profile"]);
    EXPECT_EQ(0u, info->_state.sequenceHeader.seq_profile);
    EXPECT_EQ(std::stoul(expect["level"]), info->_state.sequenceHeader.seq_level_idx[0]);
    EXPECT_EQ(c.bitDepth, info->_state.sequenceHeader.color_config.BitDepth);
    EXPECT_EQ(c.codec, info->_rfc6381Codec);
    // libaom writes no timing info: the rate ffprobe shows is the container's, and the
    // stream gives the default 30/1.
    EXPECT_EQ(0u, info->_state.sequenceHeader.timing_info_present_flag);
    EXPECT_EQ(30u, info->_frameRateNominator);
    EXPECT_EQ(1u, info->_frameRateDenominator);
    // ffmpeg appends the sequence header OBU (configOBUs) to the 4 fixed bytes; this system
    // writes the 4 bytes only and leaves the sequence header in the samples.
    ASSERT_EQ(4u, info->GetISO14496CodecBufferLength());
    EXPECT_EQ(expect["config_hex"].substr(0, 8),
              codec_fixtures::ToHex(info->GetISO14496CodecBuffer(), 4));
  }
}

TEST(Av1Test, StripAv1GivesFfmpegsSamples) {
  for (const char* name : {"av1_main8", "av1_main10"}) {
    SCOPED_TRACE(name);
    auto expect = codec_fixtures::Expectations(name);
    const auto units = codec_fixtures::Slices(codec_fixtures::ReadFile(std::string(name) + ".obu"),
                                              expect["es_packets"]);
    const auto samples = codec_fixtures::Slices(
        codec_fixtures::ReadFile(std::string(name) + ".mp4"), expect["mp4_samples"]);
    ASSERT_EQ(units.size(), samples.size());
    Bytes out;
    for (size_t i = 0; i < units.size(); ++i) {
      ASSERT_TRUE(StripAV1(units[i].data(), units[i].size(), out));
      EXPECT_EQ(samples[i], out) << "temporal unit " << i;
    }
    // The sequence header stays in the key sample, as ffmpeg's configOBUs show it.
    const Bytes config = codec_fixtures::FromHex(expect["config_hex"]);
    EXPECT_EQ(Bytes(config.begin() + 4, config.end()),
              Bytes(samples[0].begin(), samples[0].begin() + (config.size() - 4)));
    // Each sample parses, the inter frames after the key frame with its size.
    ms::media::av1::State state;
    for (size_t i = 0; i < samples.size(); ++i) {
      ASSERT_TRUE(state.Parse(samples[i].data(), samples[i].size())) << i;
      EXPECT_EQ(std::stoul(expect["width"]) - 1, state.frameHeader.frame_width_minus_1) << i;
      EXPECT_EQ(std::stoul(expect["height"]) - 1, state.frameHeader.frame_height_minus_1) << i;
    }
  }
}

TEST(Av1Test, ObuWalkCases) {
  const Bytes td = {0x12, 0x00};
  const Bytes frameObu = {0x32, 0x03, 0x10, 0x20, 0x30};
  const Bytes padding = {0x7A, 0x01, 0xEE};
  auto join = [](std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
  };
  struct Case {
    const char* what;
    Bytes in;
    bool ok;
    Bytes stripped;
  } cases[] = {
      {"delimiter and frame", join({td, frameObu}), true, frameObu},
      {"padding passes", join({td, padding}), true, padding},
      {"type 9 fails", {0x4A, 0x00}, false, {}},
      {"type 0 fails", {0x02, 0x00}, false, {}},
      {"truncated size", {0x32, 0x80}, false, {}},
      {"size past the end", {0x32, 0x05, 0x01}, false, {}},
      {"empty", {}, true, {}},
      {"no size field: the rest", {0x30, 0xAA, 0xBB}, true, {0x30, 0xAA, 0xBB}},
      {"extension header", {0x36, 0x20, 0x01, 0x99}, true, {0x36, 0x20, 0x01, 0x99}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Bytes out = {0x55};
    EXPECT_EQ(c.ok, StripAV1(c.in.data(), c.in.size(), out));
    EXPECT_EQ(c.stripped, out);
  }
  std::vector<ms::media::av1::ParsedObu> obus;
  const Bytes ext = {0x36, 0x48, 0x01, 0x99};  // temporal_id 2, spatial_id 1
  ASSERT_TRUE(ms::media::av1::ParseObus(ext.data(), ext.size(), obus));
  ASSERT_EQ(1u, obus.size());
  EXPECT_EQ(2, obus[0].temporal_id);
  EXPECT_EQ(1, obus[0].spatial_id);
  EXPECT_EQ(3u, obus[0].headerSize);
  EXPECT_EQ(1u, obus[0].payloadSize);
}

TEST(Av1Test, FrameHeaderBeforeSequenceHeaderFails) {
  const Bytes key = codec_fixtures::ReadFile("av1_main8.key");
  std::vector<ms::media::av1::ParsedObu> obus;
  ASSERT_TRUE(ms::media::av1::ParseObus(key.data(), key.size(), obus));
  ASSERT_GE(obus.size(), 2u);
  ASSERT_EQ(ms::media::av1::OBU_SEQUENCE_HEADER, obus[0].type);
  // Everything but the sequence header.
  const Bytes rest(obus[1].pHeader, key.data() + key.size());
  ms::media::av1::State state;
  EXPECT_FALSE(state.Parse(rest.data(), rest.size()));
  EXPECT_FALSE(state.Parse(key.data(), 0));
  EXPECT_TRUE(state.Parse(key.data(), key.size()));
  EXPECT_TRUE(state.hasFrameHeader);
  EXPECT_EQ(ms::media::av1::OBP_KEY_FRAME, state.frameHeader.frame_type);
  EXPECT_STREQ("KEY_FRAME", ms::media::av1::OBUFrameTypeToString(state.frameHeader.frame_type));
  EXPECT_STREQ("OBU_FRAME", ms::media::av1::OBUTypeToString(ms::media::av1::OBU_FRAME));

  int error = 0;
  Av1Ptr none = FromFrame(rest, error);
  EXPECT_EQ(nullptr, none);
  EXPECT_EQ(vrex::media::ERR_MEDIA_INVALID_FRAME, error);
}

TEST(Av1Test, DamagedKeyFramesFailCleanly) {
  for (const char* name : {"av1_main8", "av1_main10"}) {
    const Bytes key = codec_fixtures::ReadFile(std::string(name) + ".key");
    codec_fixtures::Damage(key, 120, 3000, [](const Bytes& data) {
      int error = 0;
      Av1Ptr info(codec_info_video_av1_t::GetInstance(data.data(), data.size(), 90000, error));
      if (!info) {
        EXPECT_EQ(vrex::media::ERR_MEDIA_INVALID_FRAME, error);
      }
      Bytes out;
      StripAV1(data.data(), data.size(), out);
      EXPECT_LE(out.size(), data.size());
    });
  }
}

}  // namespace
