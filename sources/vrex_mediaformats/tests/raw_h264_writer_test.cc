// WriterRawH264: an ffmpeg MP4's H.264 frames turned into an Annex B stream that ffmpeg decodes
// to the same pictures, and the framing edge cases.
#include <gtest/gtest.h>

#include <memory>

#include "media/errors.h"
#include "mediaformats/errors.h"
#include "mediaformats/raw/writer_raw_h264.h"
#include "mp4_test_util.h"

namespace vrex {
namespace mediaformats {
namespace {

using Bytes = std::vector<uint8_t>;

struct Collector : WriterRawH264::Observer {
  bool WriteH264Data(const void* data, size_t size) override {
    ++calls;
    const uint8_t* p = static_cast<const uint8_t*>(data);
    bytes.insert(bytes.end(), p, p + size);
    return !fail;
  }
  Bytes bytes;
  int calls = 0;
  bool fail = false;
};

// The SPS and PPS of an avcC record, each behind a start code.
Bytes ParameterSetsAnnexB(const Bytes& avcC) {
  Bytes out;
  size_t pos = 5;
  for (int list = 0; list < 2 && pos < avcC.size(); ++list) {
    int count = avcC[pos++] & (list == 0 ? 0x1f : 0xff);
    for (int i = 0; i < count && pos + 2 <= avcC.size(); ++i) {
      size_t length = (avcC[pos] << 8) | avcC[pos + 1];
      out.insert(out.end(), {0, 0, 0, 1});
      out.insert(out.end(), avcC.begin() + static_cast<long>(pos + 2), avcC.begin() + static_cast<long>(pos + 2 + length));
      pos += 2 + length;
    }
  }
  return out;
}

TEST(WriterRawH264, AnnexBStreamDecodesLikeTheSource) {
  SKIP_WITHOUT_FFMPEG();
  std::string source = testing::FixturePath("h264_only.mp4");
  std::vector<testing::owned_frame_t> frames = testing::ReadAllFrames(source);
  ASSERT_FALSE(frames.empty());
  Collector toAnnexB, back;
  int error = 0;
  std::unique_ptr<WriterRawH264> writer(WriterRawH264::Create(true, false, &toAnnexB, error));
  std::unique_ptr<WriterRawH264> reverse(WriterRawH264::Create(false, true, &back, error));
  ASSERT_TRUE(writer && reverse);
  toAnnexB.bytes = ParameterSetsAnnexB(frames[0].config);
  for (const auto& f : frames) {
    size_t before = toAnnexB.bytes.size();
    ASSERT_EQ(writer->WriteVideoData(f.payload.data(), f.payload.size(), f.frame.dtsCts, f.frame.keyFrame),
              static_cast<int>(f.payload.size()));
    // Back to length prefixes: the frame as it was.
    Bytes annexB(toAnnexB.bytes.begin() + static_cast<long>(before), toAnnexB.bytes.end());
    back.bytes.clear();
    ASSERT_EQ(reverse->WriteVideoData(annexB.data(), annexB.size(), f.frame.dtsCts, f.frame.keyFrame),
              static_cast<int>(f.payload.size()));
    EXPECT_EQ(back.bytes, f.payload);
  }
  std::string out = testing::TempPath("raw.h264");
  testing::WriteFileBytes(out, toAnnexB.bytes);
  int status = 0;
  std::string probed = testing::RunCommand("ffprobe -v error -f h264 -count_packets -show_entries stream=nb_read_packets -of csv=p=0 '" + out + "'", status);
  EXPECT_EQ(std::stoul(probed), frames.size());
  EXPECT_EQ(testing::DecodedMd5s(out, "v"), testing::DecodedMd5s(source, "v"));
}

TEST(WriterRawH264, Framing) {
  const Bytes avcc = {0, 0, 0, 2, 0x65, 0x88, 0, 0, 0, 1, 0x41};
  const Bytes annexB = {0, 0, 0, 1, 0x65, 0x88, 0, 0, 0, 1, 0x41};
  const Bytes truncated = {0, 0, 0, 9, 0x65, 0x88};
  const Bytes garbage = {0xde, 0xad};
  struct case_t {
    const char* what;
    bool inAvcc, outAvcc;
    Bytes input;
    int result;
    Bytes output;
  };
  const case_t cases[] = {
      {"length prefixes to start codes", true, false, avcc, 11, annexB},
      {"start codes to length prefixes", false, true, annexB, 11, avcc},
      {"equal framings pass anything", true, true, garbage, 2, garbage},
      {"equal start codes pass anything", false, false, truncated, 6, truncated},
      {"a length past the frame", true, false, truncated, media::ERR_MEDIA_INVALID_NALU, {}},
      {"empty frame", true, false, {}, 0, {}},
  };
  for (const case_t& c : cases) {
    Collector sink;
    int error = 0;
    std::unique_ptr<WriterRawH264> writer(WriterRawH264::Create(c.inAvcc, c.outAvcc, &sink, error));
    EXPECT_EQ(writer->WriteVideoData(c.input.data(), c.input.size(), media::dts_cts_t(), true), c.result) << c.what;
    EXPECT_EQ(writer->WriteVideoData(c.input.data(), c.input.size(), media::dts_cts_t(), true, media::TAG_VH265),
              c.result) << c.what << " (tagged)";
    Bytes twice = c.output;
    twice.insert(twice.end(), c.output.begin(), c.output.end());
    EXPECT_EQ(sink.bytes, twice) << c.what;
    EXPECT_EQ(sink.calls, c.output.empty() ? 0 : 2) << c.what;
    EXPECT_EQ(writer->WriteAudioData(c.input.data(), c.input.size(), media::dts_cts_t()), 0);
  }
  Collector failing;
  failing.fail = true;
  int error = 0;
  std::unique_ptr<WriterRawH264> writer(WriterRawH264::Create(true, false, &failing, error));
  EXPECT_EQ(writer->WriteVideoData(avcc.data(), avcc.size(), media::dts_cts_t(), true),
            ERR_MEDIAFORMATS_WRITER_OBSERVER_FAILED);
  EXPECT_EQ(WriterRawH264::Create(true, false, nullptr, error), nullptr);
  EXPECT_EQ(error, ERR_MEDIAFORMATS_NULL_OBSERVER);
}

}  // namespace
}  // namespace mediaformats
}  // namespace vrex
