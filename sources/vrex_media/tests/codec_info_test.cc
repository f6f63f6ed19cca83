// The codec information base: frame rate and frame duration with their defaults, and the
// three ways a frame hands its bytes to every codec (memory payload, data source, config).
#include "media/codec_info.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "abstraction/datasource.h"
#include "codec_fixtures.h"
#include "media/aac/codec_info_aac.h"
#include "media/av1/codec_info_av1.h"
#include "media/errors.h"
#include "media/frame.h"
#include "media/h264/codec_info_h264.h"
#include "media/hevc/codec_info_h265.h"

namespace {

using vrex::media::codec_info_t;
using vrex::media::codec_info_video_t;
using Bytes = std::vector<uint8_t>;

TEST(CodecInfoTest, FrameRateAndDuration) {
  struct Case {
    uint32_t nominator, denominator, samplingRate;
    double fps, duration;
  } cases[] = {
      {30000, 1001, 90000, 30000.0 / 1001, 3003.0},
      {25, 1, 90000, 25.0, 3600.0},
      {50, 2, 1000, 25.0, 40.0},
      {25, 0, 90000, 30.0, 3000.0},  // no denominator: the default 30
      {0, 1, 90000, 30.0, 3000.0},
      {0, 0, 0, 30.0, 0.0},
  };
  for (const Case& c : cases) {
    codec_info_video_t info(vrex::media::TAG_VUNK);
    info._frameRateNominator = c.nominator;
    info._frameRateDenominator = c.denominator;
    info.samplingRate = c.samplingRate;
    EXPECT_DOUBLE_EQ(c.fps, info.GetFPS()) << c.nominator << "/" << c.denominator;
    EXPECT_DOUBLE_EQ(c.duration, info.GetLogicalDuration()) << c.nominator << "/" << c.denominator;
  }
  codec_info_t plain;
  EXPECT_EQ(vrex::media::TAG_UNK, plain.tag);
  EXPECT_EQ(0u, plain.GetSamplingRate());
  codec_info_t::FreeInstance(nullptr);
}

TEST(CodecInfoTest, CopyOfTheBaseKeepsOnlyTheNumbers) {
  codec_info_video_t info(vrex::media::TAG_VH264);
  info._width = 640;
  info._height = 360;
  info._frameRateNominator = 25;
  info._frameRateDenominator = 1;
  info._rfc6381Codec = "avc1.64001e";
  codec_info_video_t copy(info);
  EXPECT_EQ(640u, copy._width);
  EXPECT_EQ(360u, copy._height);
  EXPECT_EQ(25u, copy._frameRateNominator);
  EXPECT_EQ(nullptr, copy.GetISO14496CodecBuffer());
  EXPECT_TRUE(copy._rfc6381Codec.empty());
}

// Each codec, given its fixture key frame from memory and from a data source at an offset,
// gives the same size and configuration record.
TEST(CodecInfoTest, DataSourceFramesGiveTheSameInfo) {
  struct Case {
    const char* file;
    uint64_t tag;
    std::function<codec_info_video_t*(const vrex::media::frame_t&, int&)> build;
  } cases[] = {
      {"h264_high.key", vrex::media::TAG_VH264,
       [](const vrex::media::frame_t& f, int& e) -> codec_info_video_t* {
         return vrex::media::codec_info_video_h264_t::GetInstance(f, e);
       }},
      {"h265_main.key", vrex::media::TAG_VH265,
       [](const vrex::media::frame_t& f, int& e) -> codec_info_video_t* {
         return vrex::media::codec_info_video_h265_t::GetInstance(f, e);
       }},
      {"av1_main8.key", vrex::media::TAG_VAV1,
       [](const vrex::media::frame_t& f, int& e) -> codec_info_video_t* {
         return vrex::media::codec_info_video_av1_t::GetInstance(f, e);
       }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.file);
    const Bytes key = codec_fixtures::ReadFile(c.file);
    Bytes file(100, 0xEE);  // something else in front of the frame
    file.insert(file.end(), key.begin(), key.end());
    vrex::media::frame_t frame;
    frame.tag = c.tag;
    frame.keyFrame = true;
    frame.dtsCts.clockRate = 90000;
    frame.pData = key.data();
    frame.size = static_cast<int64_t>(key.size());
    int error = 0;
    std::unique_ptr<codec_info_video_t> fromMemory(c.build(frame, error));
    ASSERT_NE(nullptr, fromMemory) << error;
    EXPECT_EQ(c.tag, fromMemory->tag);

    vrex::abstraction::DataSource* source =
        vrex::abstraction::DataSource::GetInstance(file.data(), file.size(), error);
    ASSERT_NE(nullptr, source);
    frame.pData = nullptr;
    frame.pDataSource = source;
    frame.offset = 100;
    std::unique_ptr<codec_info_video_t> fromSource(c.build(frame, error));
    vrex::abstraction::DataSource::FreeInstance(source);
    ASSERT_NE(nullptr, fromSource) << error;
    EXPECT_EQ(fromMemory->_width, fromSource->_width);
    EXPECT_EQ(fromMemory->_rfc6381Codec, fromSource->_rfc6381Codec);
    EXPECT_EQ(Bytes(fromMemory->_pISO14496, fromMemory->_pISO14496 + fromMemory->_iso14496Size),
              Bytes(fromSource->_pISO14496, fromSource->_pISO14496 + fromSource->_iso14496Size));

    frame.keyFrame = false;  // every codec wants a key frame
    EXPECT_EQ(nullptr, c.build(frame, error));
    EXPECT_EQ(vrex::media::ERR_MEDIA_INVALID_FRAME, error);
  }
}

}  // namespace
