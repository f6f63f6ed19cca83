// H.264 codec information against x264 streams: ffprobe's size, profile, level and frame
// rate, the avcC box ffmpeg muxed, and codec strings worked out by hand from the SPS bytes.
#include "media/h264/h264.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "abstraction/errors.h"
#include "codec_fixtures.h"
#include "media/errors.h"
#include "media/frame.h"
#include "media/h264/codec_info_h264.h"

namespace {

using vrex::media::codec_info_video_h264_t;
using Bytes = std::vector<uint8_t>;

using H264Ptr = codec_fixtures::InfoPtr<codec_info_video_h264_t>;

H264Ptr FromFrame(const Bytes& key, int& error) {
  return codec_fixtures::FromKeyFrame<codec_info_video_h264_t>(key, vrex::media::TAG_VH264, error);
}

TEST(H264Test, FixturesMatchFfprobeAndFfmpegAvcC) {
  struct Case {
    const char* name;
    const char* ffprobeProfile;
    uint64_t profileIdc;
    const char* codec;  // avc1. + SPS bytes 1..3, from config_hex by hand
    // ffmpeg writes the High profile avcC extension (chroma_format, bit depths, no SPS ext:
    // FD F8 F8 00) behind the PPS; this system's record ends after the PPS.
    size_t ffmpegExtraBytes;
    // Without VUI timing ffprobe reports the raw demuxer's guess of 25/1; this system 30/1.
    bool hasTiming;
  } cases[] = {
      {"h264_baseline", "Constrained Baseline", 66, "avc1.42c00d", 0, true},
      {"h264_main", "Main", 77, "avc1.4d400d", 0, true},
      {"h264_high", "High", 100, "avc1.64001e", 4, true},
      {"h264_crop", "High", 100, "avc1.640028", 4, true},
      {"h264_ntsc", "Main", 77, "avc1.4d400d", 0, true},
      {"h264_notiming", "Constrained Baseline", 66, "avc1.42c00d", 0, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    auto expect = codec_fixtures::Expectations(c.name);
    int error = 0;
    H264Ptr info = FromFrame(codec_fixtures::ReadFile(std::string(c.name) + ".key"), error);
    ASSERT_NE(nullptr, info) << std::hex << error;
    EXPECT_EQ(std::stoul(expect["width"]), info->_width);
    EXPECT_EQ(std::stoul(expect["height"]), info->_height);
    EXPECT_EQ(c.ffprobeProfile, expect["profile"]);
    EXPECT_EQ(c.profileIdc, info->_pSPS[1]);
    EXPECT_EQ(std::stoul(expect["level"]), info->_pSPS[3]);
    const auto rate =
        codec_fixtures::Reduced(info->_frameRateNominator, info->_frameRateDenominator);
    if (c.hasTiming) {
      EXPECT_EQ(codec_fixtures::ParseRate(expect["r_frame_rate"]), rate);
    } else {
      EXPECT_EQ(std::make_pair(uint64_t{30}, uint64_t{1}), rate);
    }
    EXPECT_EQ(c.codec, info->_rfc6381Codec);
    EXPECT_EQ(90000u, info->samplingRate);
    EXPECT_EQ(vrex::media::TAG_VH264, info->tag);
    const std::string ffmpegBox = expect["config_hex"];
    const std::string ours =
        codec_fixtures::ToHex(info->GetISO14496CodecBuffer(), info->GetISO14496CodecBufferLength());
    EXPECT_EQ(ffmpegBox.substr(0, ffmpegBox.size() - 2 * c.ffmpegExtraBytes), ours);
    // A copy has parameter sets and record of its own.
    codec_info_video_h264_t copy(*info);
    EXPECT_NE(info->_pSPS, copy._pSPS);
    info.reset();
    EXPECT_EQ(ours, codec_fixtures::ToHex(copy.GetISO14496CodecBuffer(), copy.GetISO14496CodecBufferLength()));
    EXPECT_EQ(c.codec, copy._rfc6381Codec);
  }
}

// Builds RBSP bits for hand-made parameter sets.
class BitWriter {
 public:
  void Bits(uint64_t value, unsigned n) {
    for (unsigned i = n; i-- > 0;) Bit((value >> i) & 1);
  }
  void Ue(uint64_t value) {
    unsigned length = 0;
    while ((value + 1) >> (length + 1)) ++length;
    Bits(0, length);
    Bits(value + 1, length + 1);
  }
  Bytes Finish() {
    Bit(1);
    while (_bits % 8) Bit(0);
    return _bytes;
  }

 private:
  void Bit(bool bit) {
    if (_bits % 8 == 0) _bytes.push_back(0);
    if (bit) _bytes.back() |= static_cast<uint8_t>(0x80 >> (_bits % 8));
    ++_bits;
  }
  Bytes _bytes;
  size_t _bits = 0;
};

// A Baseline 320x240 SPS, with VUI timing when `timeScale` is set.
Bytes Sps(uint32_t numUnitsInTick, uint32_t timeScale) {
  BitWriter w;
  w.Bits(0x67, 8);
  w.Bits(66, 8);
  w.Bits(0xC0, 8);
  w.Bits(30, 8);
  w.Ue(0);  // seq_parameter_set_id
  w.Ue(0);  // log2_max_frame_num_minus4
  w.Ue(2);  // pic_order_cnt_type
  w.Ue(1);  // max_num_ref_frames
  w.Bits(0, 1);
  w.Ue(19);      // 20 macroblocks wide
  w.Ue(14);      // 15 high
  w.Bits(1, 1);  // frame_mbs_only_flag
  w.Bits(1, 1);  // direct_8x8_inference_flag
  w.Bits(0, 1);  // frame_cropping_flag
  w.Bits(timeScale ? 1 : 0, 1);
  if (timeScale) {
    w.Bits(0, 4);  // no aspect, overscan, signal type, chroma location
    w.Bits(1, 1);
    w.Bits(numUnitsInTick, 32);
    w.Bits(timeScale, 32);
    w.Bits(1, 1);
    w.Bits(0, 4);  // no HRD, pic_struct, restriction
  }
  return w.Finish();
}

const Bytes kPps = {0x68, 0xCE, 0x38, 0x80};
const Bytes kSei = {0x06, 0x05, 0x01, 0xAA, 0x80};

Bytes Frame(std::initializer_list<Bytes> units) {
  Bytes frame;
  for (const Bytes& unit : units) {
    const uint32_t n = static_cast<uint32_t>(unit.size());
    frame.insert(frame.end(), {static_cast<uint8_t>(n >> 24), static_cast<uint8_t>(n >> 16),
                               static_cast<uint8_t>(n >> 8), static_cast<uint8_t>(n)});
    frame.insert(frame.end(), unit.begin(), unit.end());
  }
  return frame;
}

TEST(H264Test, ParameterSetSearchAndTiming) {
  const Bytes sps25 = Sps(1, 50);
  const Bytes sps30 = Sps(1001, 60000);
  const Bytes idr = {0x65, 0x88, 0x84, 0x00, 0x33};
  const int kInvalid = vrex::media::ERR_MEDIA_INVALID_FRAME;
  const int kRejected = vrex::media::ERR_MEDIA_CODEC_PARAMETERS;
  struct Case {
    const char* what;
    Bytes frame;
    int error;
    uint32_t nominator;
    uint32_t denominator;
    const Bytes* sps;
  } cases[] = {
      {"SPS SEI PPS", Frame({sps25, kSei, kPps, idr}), 0, 50, 2, &sps25},
      {"PPS before SPS is passed over", Frame({kPps, sps25, kPps}), 0, 50, 2, &sps25},
      {"two SPS keep the second", Frame({sps25, sps30, kPps}), 0, 60000, 2002, &sps30},
      {"empty PPS does not end the search", Frame({sps25, {}, kPps}), 0, 50, 2, &sps25},
      {"no timing: 30/1", Frame({Sps(0, 0), kPps}), 0, 30, 1, nullptr},
      {"1 frame in 2 seconds", Frame({Sps(1, 1), kPps}), kRejected, 0, 0, nullptr},
      {"no PPS", Frame({sps25, idr}), kInvalid, 0, 0, nullptr},
      {"start code", Bytes{0, 0, 0, 1, 0x67, 0x42, 0xC0, 0x1E, 0, 0, 0, 1, 0x68},
       vrex::media::ERR_MEDIA_NOT_IMPLEMENTED, 0, 0, nullptr},
      {"11 bytes", Bytes(11, 0x10), kInvalid, 0, 0, nullptr},
      {"unit of 65535 bytes is walked over", Frame({Bytes(65535, 0x06), sps25, kPps}), 0, 50, 2, &sps25},
      {"unit above 65535", Bytes{0, 1, 0, 0, 0x67, 1, 2, 3, 4, 5, 6, 7}, kInvalid, 0, 0, nullptr},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    int error = 0;
    H264Ptr info = FromFrame(c.frame, error);
    if (c.error != 0) {
      EXPECT_EQ(nullptr, info);
      EXPECT_EQ(c.error, error);
      continue;
    }
    ASSERT_NE(nullptr, info) << std::hex << error;
    EXPECT_EQ(320u, info->_width);
    EXPECT_EQ(240u, info->_height);
    EXPECT_EQ(c.nominator, info->_frameRateNominator);
    EXPECT_EQ(c.denominator, info->_frameRateDenominator);
    EXPECT_EQ("avc1.42c01e", info->_rfc6381Codec);
    if (c.sps != nullptr) {
      EXPECT_EQ(*c.sps, Bytes(info->_pSPS, info->_pSPS + info->_spsSize));
    }
  }
}

// Crop units by chroma format: the rows of this system's table, including monochrome with
// frame_mbs_only_flag 1 at 2x2 where the standard has 1x1.
TEST(H264Test, CropUnits) {
  struct Case {
    uint64_t chroma, separate, frameMbsOnly;
    uint32_t width, height;
  } cases[] = {
      {0, 1, 1, 318, 239}, {0, 0, 1, 316, 238}, {0, 0, 0, 316, 478}, {1, 1, 1, 318, 239},
      {1, 0, 1, 316, 238}, {1, 0, 0, 316, 476}, {2, 1, 0, 318, 479}, {2, 0, 1, 316, 239},
      {2, 0, 0, 316, 478}, {3, 0, 0, 318, 478}, {3, 1, 1, 318, 239}, {7, 0, 0, 318, 479},
  };
  for (const Case& c : cases) {
    ms::media::h264::sps_t sps;
    sps.chroma_format_idc = c.chroma;
    sps.separate_colour_plane_flag = c.separate;
    sps.frame_mbs_only_flag = c.frameMbsOnly;
    sps.pic_width_in_mbs_minus1 = 19;
    sps.pic_height_in_map_units_minus1 = 14;
    sps.frame_cropping_flag = 1;
    sps.frame_crop_left_offset = 1;  // width - 2 units, height - 1 unit
    sps.frame_crop_right_offset = 1;
    sps.frame_crop_bottom_offset = 1;
    sps.ComputeResolution();
    EXPECT_EQ(c.width, sps.width) << c.chroma << c.separate << c.frameMbsOnly;
    EXPECT_EQ(c.height, sps.height) << c.chroma << c.separate << c.frameMbsOnly;
  }
}

TEST(H264Test, DamagedKeyFramesFailCleanly) {
  for (const char* name : {"h264_baseline", "h264_high", "h264_crop"}) {
    const Bytes key = codec_fixtures::ReadFile(std::string(name) + ".key");
    // The parameter sets and the start of the slice: every prefix, and bit flips over them.
    codec_fixtures::Damage(key, 160, 3000, [](const Bytes& data) {
      int error = 0;
      H264Ptr info(codec_info_video_h264_t::GetInstance(data.data(), data.size(), 90000, error));
      if (info) {
        EXPECT_GT(info->_width, 0u);
        EXPECT_GT(info->_height, 0u);
      } else {
        EXPECT_LT(error, 0);
      }
    });
  }
}

TEST(H264Test, PpsOfFixturesParses) {
  int error = 0;
  H264Ptr info = FromFrame(codec_fixtures::ReadFile("h264_high.key"), error);
  ASSERT_NE(nullptr, info);
  ms::media::h264::pps_t pps;
  ASSERT_EQ(0, ms::media::h264::ParsePPS(info->_pPPS, info->_ppsSize, 1, pps));
  // x264 High: CABAC on, 8x8 transform on.
  EXPECT_EQ(1u, pps.entropy_coding_mode_flag);
  EXPECT_EQ(1u, pps.transform_8x8_mode_flag);
  EXPECT_EQ(0u, pps.num_slice_groups_minus1);
  EXPECT_EQ(0, pps.str().find("pps:\n"));
}

}  // namespace
