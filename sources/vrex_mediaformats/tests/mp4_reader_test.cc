// ReaderMp4 against ffprobe on files made by ffmpeg, and on damaged and edited copies of them.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "abstraction/datasource.h"
#include "media/codec_tags.h"
#include "mediaformats/errors.h"
#include "mediaformats/mp4/reader_mp4.h"
#include "mp4_test_util.h"

namespace vrex {
namespace mediaformats {
namespace {

using testing::FixturePath;

class NullObserver : public ReaderMp4::Observer {};

// A reader over a copy of `bytes` in memory.
struct memory_reader_t {
  std::vector<uint8_t> bytes;
  std::unique_ptr<ReaderMp4> reader;
  int error = 0;

  explicit memory_reader_t(std::vector<uint8_t> data) : bytes(std::move(data)) {
    static NullObserver observer;
    abstraction::DataSource* source = abstraction::DataSource::GetInstance(bytes.data(), bytes.size(), error);
    reader.reset(ReaderMp4::Create(&observer, source, error));
  }
  std::vector<media::frame_t> Frames() {
    std::vector<media::frame_t> frames;
    int err = 0;
    while (const media::frame_t* f = reader->ReadFrame(err)) frames.push_back(*f);
    return frames;
  }
};

// Offset of the first box of `type` at the top level of an MP4 file.
size_t FindTopBox(const std::vector<uint8_t>& file, const char* type) {
  size_t pos = 0;
  while (pos + 8 <= file.size()) {
    uint32_t size = (uint32_t(file[pos]) << 24) | (file[pos + 1] << 16) | (file[pos + 2] << 8) | file[pos + 3];
    if (memcmp(&file[pos + 4], type, 4) == 0) return pos;
    if (size < 8) break;
    pos += size;
  }
  return std::string::npos;
}

// WriterMP4's files, with the co64 offsets ffmpeg writes only past 4 GiB, are read the same way
// in its round trip.
TEST(ReaderMp4, FramesMatchFfprobe) {
  SKIP_WITHOUT_FFMPEG();
  for (const char* name : {"h264_aac_moov_last.mp4", "h264_aac_moov_first.mp4", "h264_only.mp4",
                           "h265_aac.mp4", "aac_only.mp4"}) {
    EXPECT_EQ(testing::ReaderMismatchWithFfprobe(FixturePath(name)), "") << name;
  }
}

TEST(ReaderMp4, FramesAreInDecodingOrderWithTheirTrackDetails) {
  struct expectation_t {
    const char* file;
    uint64_t videoTag;
    uint32_t videoRate;
    uint32_t audioRate;
  };
  const expectation_t cases[] = {
      {"h264_aac_moov_last.mp4", media::TAG_VH264, 12800, 48000},
      {"h265_aac.mp4", media::TAG_VH265, 15360, 44100},
  };
  for (const expectation_t& c : cases) {
    memory_reader_t m(testing::ReadFileBytes(FixturePath(c.file)));
    ASSERT_TRUE(m.reader) << c.file << " err=" << std::hex << m.error;
    std::vector<media::frame_t> frames = m.Frames();
    ASSERT_FALSE(frames.empty());
    double last = -1;
    for (const media::frame_t& f : frames) {
      double t = double(f.dtsCts.dts) / f.dtsCts.clockRate;
      EXPECT_GE(t, last) << c.file;
      last = t;
      bool video = media::tagKind(f.tag) == 'V';
      EXPECT_EQ(f.tag, video ? c.videoTag : media::TAG_AAAC);
      EXPECT_EQ(f.dtsCts.clockRate, video ? c.videoRate : c.audioRate);
      if (!video) {
        EXPECT_TRUE(f.keyFrame);
        ASSERT_GE(f.codecConfigSize, 2u);  // the AudioSpecificConfig of AAC LC
        EXPECT_EQ(f.pCodecConfig[0] >> 3, 2);
      } else {
        ASSERT_GT(f.codecConfigSize, 6u);
        EXPECT_EQ(f.pCodecConfig[0], 1);  // configurationVersion of avcC and hvcC
      }
    }
    EXPECT_EQ(m.reader->GetStartTimestamp().dts, frames.front().dtsCts.dts);
    EXPECT_EQ(m.reader->GetEndTimestamp().dts, frames.back().dtsCts.dts);
  }
}

TEST(ReaderMp4, MdatOfSizeZeroRunsToTheEnd) {
  SKIP_WITHOUT_FFMPEG();
  std::vector<uint8_t> file = testing::ReadFileBytes(FixturePath("h264_aac_moov_first.mp4"));
  size_t mdat = FindTopBox(file, "mdat");
  ASSERT_NE(mdat, std::string::npos);
  memset(&file[mdat], 0, 4);
  std::string path = testing::TempPath("mdat_size_zero.mp4");
  testing::WriteFileBytes(path, file);
  EXPECT_EQ(testing::ReaderMismatchWithFfprobe(path), "");
}

TEST(ReaderMp4, CompressorNames) {
  std::vector<uint8_t> file = testing::ReadFileBytes(FixturePath("h264_only.mp4"));
  memory_reader_t plain(file);
  ASSERT_TRUE(plain.reader);
  std::vector<media::frame_t> expected = plain.Frames();

  size_t avc1 = std::string(file.begin(), file.end()).find("avc1", 0);
  avc1 = std::string(file.begin(), file.end()).find("avc1", avc1 + 4);  // the sample entry
  ASSERT_NE(avc1, std::string::npos);
  size_t name = avc1 + 4 + 6 + 2 + 16 + 4 + 8 + 4 + 2;  // past the fixed fields
  struct case_t {
    const char* bytes;
    size_t length;
    bool reads;
  };
  const case_t cases[] = {
      {"Tessarin MP4 packer", 20, true},
      {"", 1, true},
      {"\x0cLavc libx264", 14, false},  // a counted name overruns the field
  };
  for (const case_t& c : cases) {
    std::vector<uint8_t> edited = file;
    memset(&edited[name], 0, 32);
    memcpy(&edited[name], c.bytes, c.length);
    memory_reader_t m(edited);
    EXPECT_EQ(m.reader != nullptr, c.reads) << c.bytes;
    if (!m.reader) {
      EXPECT_TRUE(m.error == ERR_MEDIAFORMATS_MP4_PARSING || m.error == ERR_MEDIAFORMATS_INTERNAL_STATE);
      continue;
    }
    std::vector<media::frame_t> frames = m.Frames();
    ASSERT_EQ(frames.size(), expected.size());
    for (size_t i = 0; i < frames.size(); ++i) EXPECT_EQ(frames[i].offset, expected[i].offset);
  }
}

TEST(ReaderMp4, ReadPastTheEndAndRewind) {
  memory_reader_t m(testing::ReadFileBytes(FixturePath("aac_only.mp4")));
  ASSERT_TRUE(m.reader);
  size_t count = m.Frames().size();
  int error = -1;
  EXPECT_EQ(m.reader->ReadFrame(error), nullptr);
  EXPECT_EQ(error, 0);
  EXPECT_EQ(m.reader->SeekToWallClock(123456, SNAP_TO_IDR_AFTER).second, 0);
  EXPECT_EQ(m.Frames().size(), count);
  long start = 0, stop = 0;
  EXPECT_EQ(m.reader->GetStartStopTimestamp(start, stop), ERR_MEDIAFORMATS_NOT_IMPLEMENTED);
  EXPECT_EQ(m.reader->SeekToRawOffset(0), ERR_MEDIAFORMATS_NOT_IMPLEMENTED);
  std::vector<fragment_t> fragments;
  EXPECT_EQ(m.reader->ListFragments(0, 1000, fragments), ERR_MEDIAFORMATS_NOT_IMPLEMENTED);
  EXPECT_EQ(m.reader->ReadPartition(PARTITION_LAST_TIMESTAMP_NONE, error), nullptr);
  EXPECT_EQ(error, ERR_MEDIAFORMATS_NOT_IMPLEMENTED);
}

TEST(ReaderMp4, StructuralFailures) {
  std::vector<uint8_t> file = testing::ReadFileBytes(FixturePath("h264_only.mp4"));
  size_t moov = FindTopBox(file, "moov");
  size_t mdat = FindTopBox(file, "mdat");
  ASSERT_NE(moov, std::string::npos);
  ASSERT_NE(mdat, std::string::npos);
  std::vector<uint8_t> moovBox(file.begin() + moov, file.end());

  std::vector<uint8_t> twoMoov = file;
  twoMoov.insert(twoMoov.end(), moovBox.begin(), moovBox.end());
  std::vector<uint8_t> noMoov(file.begin(), file.begin() + moov);
  std::vector<uint8_t> noMdat = file;
  memcpy(&noMdat[mdat + 4], "free", 4);
  std::vector<uint8_t> pastEnd = file;
  pastEnd[moov] = 0x7f;  // moov size beyond the file

  struct case_t {
    const char* what;
    const std::vector<uint8_t>& bytes;
    int error;
  };
  const case_t cases[] = {
      {"two moov", twoMoov, ERR_MEDIAFORMATS_INTERNAL_STATE},
      {"no moov", noMoov, ERR_MEDIAFORMATS_INTERNAL_STATE},
      {"no mdat", noMdat, ERR_MEDIAFORMATS_INTERNAL_STATE},
      {"box past the end", pastEnd, ERR_MEDIAFORMATS_MP4_PARSING},
  };
  for (const case_t& c : cases) {
    memory_reader_t m(c.bytes);
    EXPECT_EQ(m.reader, nullptr) << c.what;
    EXPECT_EQ(m.error, c.error) << c.what << " got " << std::hex << m.error;
  }
  int error = 0;
  EXPECT_EQ(ReaderMp4::Create(nullptr, FixturePath("h264_only.mp4"), false, error), nullptr);
  EXPECT_EQ(error, ERR_MEDIAFORMATS_NULL_OBSERVER);
  NullObserver observer;
  EXPECT_EQ(ReaderMp4::Create(&observer, "/nonexistent/file.mp4", false, error), nullptr);
  EXPECT_LT(error, 0);
}

// Every truncation and a spread of bit flips fail cleanly or give frames that lie inside the
// file.
TEST(ReaderMp4, DamagedInputFailsCleanly) {
  std::vector<uint8_t> file = testing::ReadFileBytes(FixturePath("h264_aac_moov_first.mp4"));
  size_t mdat = FindTopBox(file, "mdat");
  auto check = [&](const std::vector<uint8_t>& bytes, const std::string& what) {
    memory_reader_t m(bytes);
    if (!m.reader) {
      EXPECT_TRUE(m.error == ERR_MEDIAFORMATS_MP4_PARSING || m.error == ERR_MEDIAFORMATS_INTERNAL_STATE)
          << what << " err=" << std::hex << m.error;
      return;
    }
    for (const media::frame_t& f : m.Frames()) {
      ASSERT_GE(f.size, 0) << what;
      ASSERT_GE(f.offset, 0) << what;
    }
  };
  // Truncations: all through the header boxes, then in steps through the samples.
  for (size_t length = 0; length < file.size(); length += length < mdat + 64 ? 1 : 997) {
    check(std::vector<uint8_t>(file.begin(), file.begin() + length), "truncated to " + std::to_string(length));
  }
  for (size_t bit = 0; bit < (mdat + 16) * 8; bit += 3) {
    std::vector<uint8_t> flipped = file;
    flipped[bit / 8] ^= static_cast<uint8_t>(1u << (bit % 8));
    check(flipped, "bit " + std::to_string(bit) + " flipped");
  }
}

}  // namespace
}  // namespace mediaformats
}  // namespace vrex
