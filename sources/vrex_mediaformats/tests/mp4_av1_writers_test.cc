// AV1 through both MP4 writers: the samples of an ffmpeg-made AV1 MP4 (taken at the offsets
// ffprobe lists, since ReaderMp4 does not parse av01 entries) are written again and must
// probe and decode like the source.
#include <gtest/gtest.h>

#include <memory>
#include <sstream>

#include "media/codec_tags.h"
#include "mediaformats/errors.h"
#include "mediaformats/mp4/writer_fmp4.h"
#include "mediaformats/mp4/writer_mp4.h"
#include "mp4_test_util.h"

namespace vrex {
namespace mediaformats {
namespace {

using testing::packet_t;
using Bytes = std::vector<uint8_t>;

const char kSource[] = VIDORA_FIXTURES_DIR "/codecs/av1_main8.mp4";
constexpr uint32_t kTimescale = 1200000;  // the source's time base
constexpr uint32_t kFrameTicks = 48000;   // 25 fps

struct av1_source_t {
  Bytes file;
  Bytes av1C;
  std::vector<packet_t> packets;  // absolute dts
};

av1_source_t LoadSource() {
  av1_source_t s;
  s.file = testing::ReadFileBytes(kSource);
  s.av1C = testing::FindBoxBody(s.file, "av1C");
  int status = 0;
  std::istringstream lines(testing::RunCommand(
      std::string("ffprobe -v error -show_entries packet=pos,size,dts,flags -of csv=p=0 '") + kSource + "'", status));
  std::string line;
  while (std::getline(lines, line)) {
    packet_t p;  // dts,size,pos,flags
    char flags[8] = {};
    if (sscanf(line.c_str(), "%ld,%ld,%ld,%7s", &p.dts, &p.size, &p.pos, flags) != 4) continue;
    p.key = flags[0] == 'K';
    s.packets.push_back(p);
  }
  return s;
}

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

void ExpectLikeSource(const av1_source_t& source, const std::string& out, const std::string& what) {
  std::vector<packet_t> probed = testing::ProbePackets(out);
  ASSERT_EQ(probed.size(), source.packets.size()) << what;
  for (size_t i = 0; i < probed.size(); ++i) {
    EXPECT_EQ(probed[i].size, source.packets[i].size) << what << " packet " << i;
    EXPECT_EQ(probed[i].key, source.packets[i].key) << what << " packet " << i;
    EXPECT_EQ(probed[i].dts, source.packets[i].dts - source.packets[0].dts) << what << " packet " << i;
  }
  EXPECT_EQ(testing::DecodedMd5s(out, "v"), testing::DecodedMd5s(kSource, "v")) << what;
}

template <typename Write>
void WriteAll(const av1_source_t& source, Write write) {
  for (const packet_t& p : source.packets) {
    ASSERT_GE(write(&source.file[static_cast<size_t>(p.pos)], static_cast<size_t>(p.size), media::dts_cts_t(p.dts, kTimescale), p.key), 0);
  }
}

TEST(Av1Writers, MP4AndFragmentedMP4) {
  SKIP_WITHOUT_FFMPEG();
  av1_source_t source = LoadSource();
  ASSERT_FALSE(source.av1C.empty());
  ASSERT_GE(source.packets.size(), 3u);
  MP4TrackInfo info = Av1Info(source.av1C);

  testing::MemoryMp4File file;
  int error = 0;
  std::unique_ptr<WriterMP4> mp4(WriterMP4::Create("av1", nullptr, &info, &file, error));
  WriteAll(source, [&](const uint8_t* data, size_t size, const media::dts_cts_t& t, bool key) {
    return mp4->WriteVideoData(data, size, t, key, media::TAG_VAV1);
  });
  ASSERT_EQ(mp4->Flush(), 0);
  std::string out = testing::TempPath("av1.mp4");
  testing::WriteFileBytes(out, file.bytes);
  ExpectLikeSource(source, out, "WriterMP4");

  // The fragmented writer, plain mode, one fragment per key frame.
  struct Sink : WriterFMP4::Observer {
    bool SignalBeginWriteMOOV() override { return true; }
    bool SignalEndWriteMOOV(unsigned int, bool) override { return true; }
    bool SignalBeginWriteFragment(long) override { return ++fragments, true; }
    bool SignalEndWriteFragment(long) override { return true; }
    bool SignalWriteProgressiveBuffer(FMP4ProgressiveBufferType, const void*, size_t) override { return false; }
    bool SignalWriteBuffer(FMP4WriteState, const void* data, size_t size) override {
      bytes.insert(bytes.end(), static_cast<const uint8_t*>(data), static_cast<const uint8_t*>(data) + size);
      return true;
    }
    Bytes bytes;
    int fragments = 0;
  } sink;
  std::unique_ptr<WriterFMP4> fmp4(WriterFMP4::Create("av1", nullptr, &info, false, media::timestamp_t(0, 1000), true,
                                                      false, &sink, error));
  ASSERT_TRUE(fmp4);
  WriteAll(source, [&](const uint8_t* data, size_t size, const media::dts_cts_t& t, bool key) {
    return fmp4->WriteVideoData(data, size, t, key, media::TAG_VAV1);
  });
  ASSERT_EQ(fmp4->Flush(nullptr, nullptr), 0);
  int keys = 0;
  for (const packet_t& p : source.packets) keys += p.key ? 1 : 0;
  EXPECT_EQ(sink.fragments, keys);
  out = testing::TempPath("av1_fragmented.mp4");
  testing::WriteFileBytes(out, sink.bytes);
  ExpectLikeSource(source, out, "WriterFMP4");
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
