// AV1 through both MP4 writers: frames that leave no OBU for a sample. Whole AV1 streams made by
// ffmpeg are written by both writers and checked by ffprobe and ffmpeg in process_media.test.js.
#include <gtest/gtest.h>

#include <memory>

#include "media/codec_tags.h"
#include "mediaformats/errors.h"
#include "mediaformats/mp4/writer_fmp4.h"
#include "mediaformats/mp4/writer_mp4.h"
#include "mp4_test_util.h"

namespace vrex {
namespace mediaformats {
namespace {

using Bytes = std::vector<uint8_t>;

constexpr uint32_t kTimescale = 1200000;
constexpr uint32_t kFrameTicks = 48000;  // 25 fps

MP4TrackInfo Av1Info(const Bytes& av1C) {
  MP4TrackInfo v;
  v._pCodecBytes = av1C.data();
  v._codecBytesSize = av1C.size();
  v._defaultSampleDuration = kFrameTicks;
  v._timescale = kTimescale;
  v._width = 320;
  v._height = 240;
  v._codecType = media::TAG_VAV1;
  v._rfc6381Codec = "av01.0.00M.08";
  return v;
}

// Frames with no OBU left for a sample: a truncated OBU size, and a lone temporal delimiter.
// WriterMP4 skips them, accepting their bytes and counting no sample; WriterFMP4 refuses them
// with "Incorrect parameters provided" and sends nothing.
TEST(Av1Writers, FramesWithoutSampleOBUs) {
  const Bytes av1C = {0x81, 0x05, 0x0C, 0x00};
  const Bytes frameObu = {0x32, 0x03, 0x10, 0x20, 0x30};
  const Bytes damaged[] = {
      {0x32, 0x80},  // OBU_FRAME whose leb128 size stops after a continuation byte
      {0x12, 0x00},  // temporal delimiter only
  };
  MP4TrackInfo info = Av1Info(av1C);
  for (const Bytes& frame : damaged) {
    testing::MemoryMp4File file;
    int error = 0;
    std::unique_ptr<WriterMP4> mp4(WriterMP4::Create("av1", nullptr, &info, &file, error));
    ASSERT_TRUE(mp4);
    EXPECT_EQ(mp4->WriteVideoData(frame.data(), frame.size(), media::dts_cts_t(0, kTimescale), true, media::TAG_VAV1),
              static_cast<int>(frame.size()));
    ASSERT_EQ(mp4->WriteVideoData(frameObu.data(), frameObu.size(), media::dts_cts_t(kFrameTicks, kTimescale), true,
                                  media::TAG_VAV1),
              static_cast<int>(frameObu.size()));
    ASSERT_EQ(mp4->Flush(), 0);
    // One sample: the OBU frame, right behind the mdat header; stsz lists only its size.
    EXPECT_EQ(Bytes(file.bytes.begin() + 48, file.bytes.begin() + 48 + frameObu.size()), frameObu);
    EXPECT_EQ(testing::FindBoxBody(file.bytes, "stsz"), (Bytes{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 5}));

    struct Sink : WriterFMP4::Observer {
      bool SignalBeginWriteMOOV() override { return ++calls, true; }
      bool SignalEndWriteMOOV(unsigned int, bool) override { return ++calls, true; }
      bool SignalBeginWriteFragment(long) override { return ++calls, true; }
      bool SignalEndWriteFragment(long) override { return ++calls, true; }
      bool SignalWriteProgressiveBuffer(FMP4ProgressiveBufferType, const void*, size_t) override { return ++calls, true; }
      bool SignalWriteBuffer(FMP4WriteState, const void*, size_t) override { return ++calls, true; }
      int calls = 0;
    } sink;
    std::unique_ptr<WriterFMP4> fmp4(WriterFMP4::Create("av1", nullptr, &info, false, media::timestamp_t(1000, 1000),
                                                        false, false, &sink, error));
    ASSERT_TRUE(fmp4);
    EXPECT_EQ(fmp4->WriteVideoData(frame.data(), frame.size(), media::dts_cts_t(0, kTimescale), true, media::TAG_VAV1),
              ERR_MEDIAFORMATS_INCORRECT_PARAMETERS);
    EXPECT_EQ(sink.calls, 0);
  }
}

}  // namespace
}  // namespace mediaformats
}  // namespace vrex
