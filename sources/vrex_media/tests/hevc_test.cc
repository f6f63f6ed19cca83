// H.265 codec information against x265 streams: ffprobe's size, profile, level and frame
// rate, the hvcC box ffmpeg muxed (with the bytes this system writes differently listed
// below), and codec strings worked out by hand from the profile bytes.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "codec_fixtures.h"
#include "media/errors.h"
#include "media/frame.h"
#include "media/hevc/codec_info_h265.h"
#include "media/hevc/parser.h"

namespace {

using vrex::media::codec_info_video_h265_t;
using Bytes = std::vector<uint8_t>;

using H265Ptr = codec_fixtures::InfoPtr<codec_info_video_h265_t>;

H265Ptr FromFrame(const Bytes& key, int& error) {
  return codec_fixtures::FromKeyFrame<codec_info_video_h265_t>(key, vrex::media::TAG_VH265, error);
}

// ffmpeg's hvcC turned into the record this system writes. The differences, each on purpose:
//  - bytes 6..11, general constraint indicator flags: ffmpeg copies the stream's (90 00 ..:
//    progressive, frame only); this system writes FF x6 whatever the stream says;
//  - bytes 16..18, chroma format and bit depths: this system always writes FD F8 F8
//    (4:2:0, 8 bits), so a 10-bit stream differs from ffmpeg's FA FA;
//  - byte 21: ffmpeg writes 0F (temporal id nested, one temporal layer, length size 4);
//    this system writes 03 (only the length size);
//  - each array's first byte: ffmpeg leaves array_completeness 0 for hev1 (20, 21, 22);
//    this system sets it (A0, A1, A2).
Bytes AsThisSystemWritesIt(Bytes box) {
  for (size_t i = 6; i < 12; ++i) box[i] = 0xFF;
  box[16] = 0xFD;
  box[17] = 0xF8;
  box[18] = 0xF8;
  box[21] = 0x03;
  size_t pos = 23;
  for (unsigned array = 0; array < box[22]; ++array) {
    box[pos] |= 0x80;
    const size_t count = box[pos + 1] << 8 | box[pos + 2];
    pos += 3;
    for (size_t n = 0; n < count; ++n) pos += 2 + (box[pos] << 8 | box[pos + 1]);
  }
  return box;
}

TEST(HevcTest, FixturesMatchFfprobeAndFfmpegHvcC) {
  struct Case {
    const char* name;
    const char* ffprobeProfile;
    unsigned profileIdc;
    const char* codec;  // hev1.<profile>.<reversed compatibility flags>.<tier><level>
    uint32_t fpsNum, fpsDen;
    unsigned bitDepth;  // parsed; the record says 8 whatever it is
  } cases[] = {
      // profile byte 01, compatibility 60000000 (flags 1, 2), level 3C
      {"h265_main", "Main", 1, "hev1.1.6.L60", 25, 1, 8},
      // profile byte 02, compatibility 20000000 (flag 2), level 3C
      {"h265_main10", "Main 10", 2, "hev1.2.4.L60", 25, 1, 10},
      // x265 without VUI timing: no rate in the stream, GetFPS falls back to 30
      {"h265_notiming", "Main", 1, "hev1.1.6.L60", 30, 1, 8},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    auto expect = codec_fixtures::Expectations(c.name);
    int error = 0;
    H265Ptr info = FromFrame(codec_fixtures::ReadFile(std::string(c.name) + ".key"), error);
    ASSERT_NE(nullptr, info) << std::hex << error;
    EXPECT_EQ(std::stoul(expect["width"]), info->_width);
    EXPECT_EQ(std::stoul(expect["height"]), info->_height);
    EXPECT_EQ(c.ffprobeProfile, expect["profile"]);
    EXPECT_EQ(c.profileIdc, info->_pVPS->profile_tier_level.general_profile_idc);
    EXPECT_EQ(std::stoul(expect["level"]), info->_pVPS->profile_tier_level.general_level_idc);
    EXPECT_EQ(c.codec, info->_rfc6381Codec);
    EXPECT_EQ(c.bitDepth - 8, info->_pSPS->bit_depth_luma_minus8);
    EXPECT_EQ(1u, info->_pSPS->chroma_format_idc);
    EXPECT_DOUBLE_EQ(static_cast<double>(c.fpsNum) / c.fpsDen, info->GetFPS());
    if (c.fpsNum != 30) {
      EXPECT_EQ(codec_fixtures::ParseRate(expect["r_frame_rate"]),
                codec_fixtures::Reduced(info->_frameRateNominator, info->_frameRateDenominator));
    }
    const Bytes ours(info->GetISO14496CodecBuffer(),
                     info->GetISO14496CodecBuffer() + info->GetISO14496CodecBufferLength());
    EXPECT_EQ(codec_fixtures::ToHex(
                  AsThisSystemWritesIt(codec_fixtures::FromHex(expect["config_hex"])).data(),
                  ours.size()),
              codec_fixtures::ToHex(ours.data(), ours.size()));
    EXPECT_EQ(codec_fixtures::FromHex(expect["config_hex"]).size(), ours.size());
  }
}

Bytes Unit(const Bytes& unit) {
  Bytes out(4 + unit.size());
  for (size_t i = 0; i < 4; ++i) out[i] = static_cast<uint8_t>(unit.size() >> (24 - 8 * i));
  std::copy(unit.begin(), unit.end(), out.begin() + 4);
  return out;
}

// The fixture's VPS, SPS and PPS rearranged around other units.
TEST(HevcTest, UnitOrder) {
  int error = 0;
  H265Ptr main = FromFrame(codec_fixtures::ReadFile("h265_main.key"), error);
  ASSERT_NE(nullptr, main);
  const Bytes aud = {0x46, 0x01, 0x50};
  const Bytes sei = {0x4E, 0x01, 0x06, 0x01, 0x84, 0x80};  // recovery point
  auto frame = [&](std::initializer_list<Bytes> units) {
    Bytes out;
    for (const Bytes& unit : units) {
      const Bytes framed = Unit(unit);
      out.insert(out.end(), framed.begin(), framed.end());
    }
    return out;
  };
  // `count` AUDs, then the parameter sets: up to 10 units are passed over on the way to the VPS.
  auto unitsBefore = [&](int count) {
    Bytes out;
    for (int i = 0; i < count; ++i) {
      const Bytes framed = Unit(aud);
      out.insert(out.end(), framed.begin(), framed.end());
    }
    const Bytes tail = frame({main->_vps, main->_sps, main->_pps});
    out.insert(out.end(), tail.begin(), tail.end());
    return out;
  };
  const int kInvalid = vrex::media::ERR_MEDIA_INVALID_FRAME;
  struct Case {
    const char* what;
    Bytes data;
    int error;
  } cases[] = {
      {"AUD and SEI before VPS", frame({aud, sei, main->_vps, main->_sps, main->_pps}), 0},
      {"SEI between SPS and PPS", frame({main->_vps, main->_sps, sei, main->_pps}), kInvalid},
      {"ten units before VPS", unitsBefore(10), 0},
      {"eleven units before VPS", unitsBefore(11), kInvalid},
      {"no PPS", frame({main->_vps, main->_sps}), kInvalid},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    H265Ptr info = FromFrame(c.data, error);
    if (c.error != 0) {
      EXPECT_EQ(nullptr, info);
      EXPECT_EQ(c.error, error);
    } else {
      ASSERT_NE(nullptr, info);
      EXPECT_EQ(main->_rfc6381Codec, info->_rfc6381Codec);
      EXPECT_EQ(main->_width, info->_width);
    }
  }
}

TEST(HevcTest, ParserReadsAnnexBAndSei) {
  const Bytes stream = codec_fixtures::ReadFile("h265_main.h265");
  HEVC::Parser parser;
  struct Counter : HEVC::Parser::Consumer {
    std::vector<uint32_t> types;
    std::vector<size_t> seiCounts;
    void onNALUnit(std::shared_ptr<HEVC::NALUnit> unit, const HEVC::Parser::Info&) override {
      types.push_back(unit->getType());
      if (auto sei = std::dynamic_pointer_cast<HEVC::SEI>(unit))
        seiCounts.push_back(sei->sei_message.size());
    }
  } counter;
  parser.addConsumer(&counter);
  EXPECT_GT(parser.process(stream.data(), stream.size()), 4u);
  ASSERT_EQ(1u, parser.m_vpsMap.size());
  ASSERT_EQ(1u, parser.m_spsMap.size());
  ASSERT_EQ(1u, parser.m_ppsMap.size());
  EXPECT_EQ(320u, parser.m_spsMap[0]->pic_width_in_luma_samples);
  ASSERT_GE(counter.types.size(), 4u);
  EXPECT_EQ(HEVC::NAL_VPS, counter.types[0]);
  EXPECT_EQ(HEVC::NAL_SPS, counter.types[1]);
  EXPECT_EQ(HEVC::NAL_PPS, counter.types[2]);
  EXPECT_EQ(HEVC::NAL_SEI_PREFIX, counter.types[3]);  // x265 writes its settings as SEI
  ASSERT_FALSE(counter.seiCounts.empty());
  EXPECT_GE(counter.seiCounts[0], 1u);
  parser.releaseConsumer(&counter);
  EXPECT_STREQ("IDR_W_RADL", HEVC::NalUnitTypeToString(19));
  EXPECT_STREQ("Unknown", HEVC::NalUnitTypeToString(22));
  EXPECT_TRUE(HEVC::IsKeyFrame(21));
  EXPECT_FALSE(HEVC::IsKeyFrame(22));
}

TEST(HevcTest, BitstreamReaderSkipsEmulationPrevention) {
  const uint8_t data[] = {0x00, 0x00, 0x03, 0x01, 0xFF};
  HEVC::BitstreamReader bs(data, sizeof(data));
  EXPECT_EQ(0u, bs.getBits(16));
  EXPECT_EQ(0x01u, bs.getBits(8));  // the 03 is not data
  EXPECT_EQ(0xFu, bs.showBits(4));
  EXPECT_EQ(0xFFu, bs.getBits(8));
  EXPECT_THROW(bs.getBit(), std::runtime_error);
  const uint8_t zeros[5] = {0, 0, 0, 0, 0x80};
  HEVC::BitstreamReader golomb(zeros, sizeof(zeros));
  EXPECT_THROW(golomb.getU32(), std::range_error);
}

TEST(HevcTest, DamagedKeyFramesFailCleanly) {
  for (const char* name : {"h265_main", "h265_main10"}) {
    const Bytes key = codec_fixtures::ReadFile(std::string(name) + ".key");
    codec_fixtures::Damage(key, 200, 3000, [](const Bytes& data) {
      int error = 0;
      H265Ptr info(codec_info_video_h265_t::GetInstance(data.data(), data.size(), 90000, error));
      if (info) {
        EXPECT_EQ(0u, info->_rfc6381Codec.find("hev1."));
      } else {
        EXPECT_EQ(vrex::media::ERR_MEDIA_INVALID_FRAME, error);
      }
    });
  }
}

}  // namespace
