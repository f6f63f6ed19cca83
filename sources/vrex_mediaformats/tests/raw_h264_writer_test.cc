// WriterRawH264: the framing edge cases. The conversions themselves are checked on every frame
// of the ffmpeg fixtures by nalu_test.cc, and whole streams written as Annex B are decoded by
// ffmpeg in process_media.test.js.
#include <gtest/gtest.h>

#include <memory>

#include "media/codec_tags.h"
#include "media/errors.h"
#include "mediaformats/errors.h"
#include "mediaformats/raw/writer_raw_h264.h"

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
