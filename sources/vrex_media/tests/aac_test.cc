// AAC codec information and ADTS stripping, against ffmpeg's AAC encoder output: the ADTS
// packets ffprobe finds in the .aac files, the raw samples ffmpeg muxed into MP4, and the
// AudioSpecificConfig ffmpeg put in esds.
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "abstraction/errors.h"
#include "codec_fixtures.h"
#include "errors/errors.h"
#include "media/aac/adts.h"
#include "media/aac/codec_info_aac.h"
#include "media/errors.h"
#include "media/frame.h"

namespace {

using vrex::media::codec_info_audio_aac_t;
using vrex::mediaformats::internal::StripAdts;
using Bytes = std::vector<uint8_t>;

using AacPtr = codec_fixtures::InfoPtr<codec_info_audio_aac_t>;

const int kAdtsError = vrex::errors::MakeError(12, 16);

// An ADTS header with CRC absent: sync, MPEG-4, layer 0, then profile, index, channels and
// the 13-bit frame length.
Bytes Adts(unsigned profile, unsigned index, unsigned channels, unsigned length) {
  return {0xFF,
          0xF1,
          static_cast<uint8_t>(profile << 6 | index << 2 | channels >> 2),
          static_cast<uint8_t>((channels & 3) << 6 | (length >> 11)),
          static_cast<uint8_t>(length >> 3),
          static_cast<uint8_t>((length & 7) << 5 | 0x1F),
          0xFC,
          0,
          0};
}

// Codec information from the first ADTS header and from the esds config, and the raw frames
// left by stripping each ADTS header.
TEST(AacTest, FixturesMatchFfprobeAndFfmpegMp4) {
  const char* const kFixtures[] = {"aac_44100_mono", "aac_44100_stereo", "aac_48000_mono",
                                   "aac_48000_stereo"};
  for (const char* name : kFixtures) {
    SCOPED_TRACE(name);
    auto expect = codec_fixtures::Expectations(name);
    const Bytes adts = codec_fixtures::ReadFile(std::string(name) + ".aac");
    ASSERT_GE(adts.size(), 9u);
    vrex::media::frame_t frame;
    frame.tag = vrex::media::TAG_AAAC;
    frame.keyFrame = true;
    frame.pData = adts.data();
    frame.size = static_cast<int64_t>(adts.size());
    int error = 0;
    AacPtr info(codec_info_audio_aac_t::GetInstance(frame, error));
    ASSERT_NE(nullptr, info) << error;
    EXPECT_EQ(std::stoul(expect["sample_rate"]), info->samplingRate);
    EXPECT_EQ(std::stoul(expect["channels"]), info->_channels);
    EXPECT_EQ("LC", expect["profile"]);
    EXPECT_EQ("mp4a.40.2", info->_rfc6381Codec);
    EXPECT_EQ(16, info->_bitsPerSample);
    EXPECT_EQ(1024u, info->_samplesPerFrame);
    EXPECT_EQ(expect["config_hex"], codec_fixtures::ToHex(info->_audioSpecificConfig, 2));

    // The same from the esds config, as a frame read out of an MP4 carries it.
    const Bytes config = codec_fixtures::FromHex(expect["config_hex"]);
    frame.pCodecConfig = config.data();
    frame.codecConfigSize = config.size();
    AacPtr fromConfig(codec_info_audio_aac_t::GetInstance(frame, error));
    ASSERT_NE(nullptr, fromConfig) << error;
    EXPECT_EQ(info->samplingRate, fromConfig->samplingRate);
    EXPECT_EQ(info->_channels, fromConfig->_channels);
    EXPECT_EQ(expect["config_hex"], codec_fixtures::ToHex(fromConfig->_audioSpecificConfig, 2));

    const auto packets = codec_fixtures::Slices(adts, expect["es_packets"]);
    const auto samples = codec_fixtures::Slices(
        codec_fixtures::ReadFile(std::string(name) + ".mp4"), expect["mp4_samples"]);
    ASSERT_EQ(packets.size(), samples.size());
    for (size_t i = 0; i < packets.size(); ++i) {
      unsigned long size = packets[i].size();
      const unsigned char* raw = StripAdts(packets[i].data(), size, error);
      ASSERT_NE(nullptr, raw) << "frame " << i;
      EXPECT_EQ(samples[i], Bytes(raw, raw + size)) << "frame " << i;
    }
  }
}

TEST(AacTest, StripAdtsCases) {
  struct Case {
    const char* what;
    Bytes data;
    int error;
    size_t strippedSize;  // for success: the size left
    size_t offset;        // for success: where the raw frame starts
  };
  Bytes short6 = {0xFF, 0xF1, 0x50, 0x80, 0x0C, 0x9F};
  Bytes len100 = Adts(1, 4, 2, 100);
  len100.resize(100, 0x11);
  Bytes len99 = len100;
  len99.resize(99);
  Bytes mpeg2 = len100;
  mpeg2[1] = 0xF9;
  Bytes crc = len100;
  crc[1] = 0xF0;  // protection_absent 0: a 9-byte header
  Bytes raw = {0x21, 0x10, 0x05, 0x00, 0xA0, 0x19, 0x33, 0x44};
  Bytes badSync = len100;
  badSync[1] = 0xE1;
  Bytes layer = len100;
  layer[1] = 0xF3;
  const Case cases[] = {
      {"six bytes pass unchanged", short6, 0, 6, 0},
      {"length 100 in 100 bytes", len100, 0, 93, 7},
      {"length 100 in 99 bytes", len99, kAdtsError, 0, 0},
      {"MPEG-2 ADTS", mpeg2, kAdtsError, 0, 0},
      {"with CRC", crc, 0, 91, 9},
      {"raw AAC", raw, 0, 8, 0},
      {"broken sync", badSync, kAdtsError, 0, 0},
      {"layer not 0", layer, kAdtsError, 0, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    unsigned long size = c.data.size();
    int error = 0;
    const unsigned char* out = StripAdts(c.data.data(), size, error);
    if (c.error != 0) {
      EXPECT_EQ(nullptr, out);
      EXPECT_EQ(c.error, error);
      EXPECT_EQ(1u, vrex::errors::GetErrorInfo()->extraInfo.count("first10BytesOfData"));
    } else {
      EXPECT_EQ(c.data.data() + c.offset, out);
      EXPECT_EQ(c.strippedSize, size);
    }
  }
}

TEST(AacTest, HeaderAndConfigCases) {
  const int kInvalid = vrex::media::ERR_MEDIA_INVALID_FRAME;
  struct Case {
    const char* what;
    Bytes data;
    bool isConfig;
    int error;
    uint32_t rate;
    unsigned channels;
    const char* config;
    const char* codec;
  };
  const Case cases[] = {
      {"ADTS LC 44.1k stereo", Adts(1, 4, 2, 9), false, 0, 44100, 2, "1210", "mp4a.40.2"},
      {"ADTS LC 8k 5.1", Adts(1, 11, 6, 9), false, 0, 8000, 6, "15b0", "mp4a.40.2"},
      {"ADTS Main refused", Adts(0, 4, 2, 9), false, kInvalid, 0, 0, "", ""},
      {"ADTS index 12, the last rate", Adts(1, 12, 1, 9), false, 0, 7350, 1, "1608", "mp4a.40.2"},
      {"ADTS index 13", Adts(1, 13, 2, 9), false, kInvalid, 0, 0, "", ""},
      {"ADTS index 15", Adts(1, 15, 2, 9), false, vrex::media::ERR_MEDIA_NOT_IMPLEMENTED, 0, 0, "",
       ""},
      {"ADTS too short", {0xFF, 0xF1, 0x50, 0x80}, false, kInvalid, 0, 0, "", ""},
      {"config HE-AAC 24k", {0x2B, 0x08}, true, 0, 24000, 1, "2b08", "mp4a.40.5"},
      // Object type 31 escapes to 32 + 6 bits (here 42 = 32 + 10): cut to 5 bits in the
      // two-byte config.
      {"config escaped type", {0xF9, 0x46, 0x40}, true, 0, 48000, 2, "5190", "mp4a.40.10"},
      {"config explicit rate",
       {0x17, 0x80, 0x01, 0xF4, 0x10},
       true,
       0,
       1000,
       2,
       "1790",
       "mp4a.40.2"},
      {"config index 13 gives rate 0", {0x16, 0x90}, true, 0, 0, 2, "1690", "mp4a.40.2"},
      {"config too short",
       {0x12},
       true,
       vrex::abstraction::ERR_ABSTRACTION_RANGE_NOT_AVAILABLE,
       0,
       0,
       "",
       ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    int error = 0;
    AacPtr info(
        codec_info_audio_aac_t::GetInstance(c.data.data(), c.data.size(), c.isConfig, error));
    if (c.error != 0) {
      EXPECT_EQ(nullptr, info);
      EXPECT_EQ(c.error, error);
      continue;
    }
    ASSERT_NE(nullptr, info) << error;
    EXPECT_EQ(c.rate, info->samplingRate);
    EXPECT_EQ(c.channels, info->_channels);
    EXPECT_EQ(c.config, codec_fixtures::ToHex(info->_audioSpecificConfig, 2));
    EXPECT_EQ(c.codec, info->_rfc6381Codec);
  }
}

TEST(AacTest, FrameChecks) {
  const Bytes header = Adts(1, 4, 2, 9);
  vrex::media::frame_t frame;
  frame.tag = vrex::media::TAG_AAAC;
  frame.pData = header.data();
  frame.size = 8;  // below 9
  int error = 0;
  EXPECT_EQ(nullptr, codec_info_audio_aac_t::GetInstance(frame, error));
  EXPECT_EQ(vrex::media::ERR_MEDIA_INVALID_FRAME, error);
  frame.size = 9;
  frame.tag = vrex::media::TAG_AMP3;
  EXPECT_EQ(nullptr, codec_info_audio_aac_t::GetInstance(frame, error));
  frame.tag = vrex::media::TAG_AAAC;
  frame.pData = nullptr;
  EXPECT_EQ(nullptr, codec_info_audio_aac_t::GetInstance(frame, error));
  EXPECT_EQ(vrex::media::ERR_MEDIA_INVALID_FRAME, error);
}

}  // namespace
