// WriterMP4: files made from ffmpeg's packets are checked by ffprobe and ffmpeg; the tables of
// small hand-made streams are checked byte for byte.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "media/codec_tags.h"
#include "mediaformats/errors.h"
#include "mediaformats/mp4/writer_mp4.h"
#include "mp4_test_util.h"

namespace vrex {
namespace mediaformats {
namespace {

using testing::MemoryMp4File;
using Bytes = std::vector<uint8_t>;

// Writes every frame of `frames` and flushes; returns the first failure or 0.
int WriteAll(WriterMP4* writer, const std::vector<testing::owned_frame_t>& frames) {
  for (const auto& owned : frames) {
    const media::frame_t& f = owned.frame;
    int written = media::tagKind(f.tag) == 'V'
                      ? writer->WriteVideoData(owned.payload.data(), owned.payload.size(), f.dtsCts, f.keyFrame, f.tag)
                      : writer->WriteAudioData(owned.payload.data(), owned.payload.size(), f.dtsCts, f.tag);
    if (written < 0) return written;
    if (static_cast<size_t>(written) != owned.payload.size()) return -1;
  }
  return writer->Flush();
}

TEST(WriterMP4, FfmpegPacketsRoundTrip) {
  SKIP_WITHOUT_FFMPEG();
  for (const char* name : {"h264_aac_moov_last.mp4", "h265_aac.mp4", "h264_only.mp4", "aac_only.mp4"}) {
    std::string source = testing::FixturePath(name);
    std::vector<testing::owned_frame_t> frames = testing::ReadAllFrames(source);
    ASSERT_FALSE(frames.empty()) << name;
    testing::source_tracks_t tracks = testing::TracksOf(frames, 320, 240);
    MemoryMp4File file;
    int error = 0;
    std::unique_ptr<WriterMP4> writer(WriterMP4::Create(name, tracks.hasAudio ? &tracks.audio : nullptr,
                                                        tracks.hasVideo ? &tracks.video : nullptr, &file, error));
    ASSERT_TRUE(writer) << name;
    ASSERT_EQ(WriteAll(writer.get(), frames), 0) << name;
    std::string out = testing::TempPath(std::string("written_") + name);
    testing::WriteFileBytes(out, file.bytes);
    EXPECT_EQ(testing::ReaderMismatchWithFfprobe(out), "") << name << ": ReaderMp4 on its co64 offsets";

    // The file has no ctts, so with B-frames the decoded pictures come out of order of their
    // times and ffmpeg rightly says so; without B-frames it must have nothing to say.
    bool reordered = false;
    for (const auto& owned : frames) reordered = reordered || owned.frame.dtsCts.cts != 0;
    int status = 0;
    std::string complaints = testing::RunCommand("ffmpeg -v error -i '" + out + "' -f null - 2>&1", status);
    EXPECT_EQ(status, 0);
    if (!reordered) {
      EXPECT_EQ(complaints, "") << name;
    }

    // Our tracks: audio 1 then video 2; the source's: video 1 then audio 2. Presentation times
    // are the decoding times: no ctts is written.
    std::vector<std::pair<int, int>> pairs;
    if (tracks.hasAudio) pairs.push_back({1, tracks.hasVideo ? 2 : 1});
    if (tracks.hasVideo) pairs.push_back({tracks.hasAudio ? 2 : 1, 1});
    EXPECT_EQ(testing::MismatchWithSource(out, source, pairs, false), "") << name;
  }
}

// A 4-byte length-prefixed NAL unit of `type` (H.264 header byte) with `size` payload bytes.
Bytes Nal(uint8_t header, size_t size) {
  Bytes unit = {0, 0, 0, static_cast<uint8_t>(size + 1), header};
  for (size_t i = 0; i < size; ++i) unit.push_back(static_cast<uint8_t>(0xA0 + i));
  return unit;
}

Bytes Concat(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& p : parts) all.insert(all.end(), p.begin(), p.end());
  return all;
}

// Bytes of a big-endian word list.
Bytes Words(std::initializer_list<uint32_t> words) {
  Bytes out;
  for (uint32_t w : words) {
    for (int i = 3; i >= 0; --i) out.push_back(static_cast<uint8_t>(w >> (8 * i)));
  }
  return out;
}


struct frame_spec_t {
  char kind;  // 'V' or 'A'
  int64_t dts;
  Bytes payload;
};

Bytes Write(const MP4TrackInfo* audio, const MP4TrackInfo* video, const std::vector<frame_spec_t>& frames,
            MemoryMp4File& file) {
  int error = 0;
  std::unique_ptr<WriterMP4> writer(WriterMP4::Create("test", audio, video, &file, error));
  EXPECT_TRUE(writer);
  for (const frame_spec_t& f : frames) {
    int written = f.kind == 'V' ? writer->WriteVideoData(f.payload.data(), f.payload.size(),
                                                         media::dts_cts_t(f.dts, 90000), true)
                                : writer->WriteAudioData(f.payload.data(), f.payload.size(),
                                                         media::dts_cts_t(f.dts, 48000));
    EXPECT_EQ(written, static_cast<int>(f.payload.size()));
  }
  EXPECT_EQ(writer->Flush(), 0);
  return file.bytes;
}

TEST(WriterMP4, SampleTables) {
  MP4TrackInfo video = testing::SmallVideoInfo(), audio = testing::SmallAudioInfo();
  Bytes v = Nal(0x41, 5), a = {0x21, 0x10, 0x04};
  const std::vector<frame_spec_t> interleaved = {{'V', 0, v}, {'V', 3000, v}, {'A', 0, a}, {'A', 1024, a}, {'V', 6000, v}};
  struct case_t {
    const char* what;
    bool withAudio;
    std::vector<frame_spec_t> frames;
    const char* handler;  // of the trak whose table is checked
    const char* box;
    Bytes body;
  };
  const case_t cases[] = {
      {"steady video", false, {{'V', 0, v}, {'V', 3000, v}, {'V', 6000, v}}, "vide", "stts", Words({0, 1, 3, 3000})},
      {"backward step", false, {{'V', 0, v}, {'V', 3000, v}, {'V', 2000, v}}, "vide", "stts", Words({0, 1, 3, 3000})},
      {"changing delta", false, {{'V', 0, v}, {'V', 3000, v}, {'V', 9000, v}}, "vide", "stts",
       Words({0, 2, 2, 3000, 1, 6000})},
      {"interleaved video chunks", true, interleaved, "vide", "stsc", Words({0, 2, 1, 2, 1, 2, 1, 1})},
      {"interleaved video offsets", true, interleaved, "vide", "co64", Words({0, 2, 0, 48, 0, 48 + 20 + 6})},
      {"interleaved audio chunks", true, interleaved, "soun", "stsc", Words({0, 1, 1, 2, 1})},
      {"interleaved audio offsets", true, interleaved, "soun", "co64", Words({0, 1, 0, 48 + 20})},
      {"sizes", true, {{'V', 0, v}, {'A', 0, a}}, "vide", "stsz", Words({0, 0, 1, 10})},
  };
  for (const case_t& c : cases) {
    MemoryMp4File file;
    Bytes out = Write(c.withAudio ? &audio : nullptr, &video, c.frames, file);
    // The tables that follow the trak's handler type.
    std::string text(out.begin(), out.end());
    size_t trak = text.find(c.handler);
    ASSERT_NE(trak, std::string::npos) << c.what;
    Bytes tail(out.begin() + static_cast<long>(trak), out.end());
    EXPECT_EQ(testing::FindBoxBody(tail, c.box), c.body) << c.what;
  }
}

TEST(WriterMP4, Durations) {
  MP4TrackInfo video = testing::SmallVideoInfo(), audio = testing::SmallAudioInfo();
  Bytes v = Nal(0x41, 5), a = {0x21, 0x10, 0x04};
  MemoryMp4File file;
  // Video: 3 x 3000 at 90000 = 100 ms. Audio: 4 x 1024 at 48000 = 85.33 ms, but the audio
  // track has no sample: its durations are all ones and the movie takes the video's.
  Bytes out = Write(&audio, &video, {{'V', 0, v}, {'V', 3000, v}, {'V', 6000, v}}, file);
  std::string text(out.begin(), out.end());
  Bytes mvhd = testing::FindBoxBody(out, "mvhd");
  EXPECT_EQ(Bytes(mvhd.begin() + 20, mvhd.begin() + 32), Words({1000, 0, 100}));
  Bytes audioTkhd = testing::FindBoxBody(out, "tkhd");
  EXPECT_EQ(Bytes(audioTkhd.begin() + 28, audioTkhd.begin() + 36), Words({0xffffffff, 0xffffffff}));
  size_t second = text.find("tkhd", text.find("tkhd") + 4);
  Bytes videoTkhd = testing::FindBoxBody(Bytes(out.begin() + static_cast<long>(second - 4), out.end()), "tkhd");
  EXPECT_EQ(Bytes(videoTkhd.begin() + 28, videoTkhd.begin() + 36), Words({0, 100}));
  size_t mdhd = text.find("mdhd", text.find("mdhd") + 4);
  Bytes videoMdhd = testing::FindBoxBody(Bytes(out.begin() + static_cast<long>(mdhd - 4), out.end()), "mdhd");
  EXPECT_EQ(Bytes(videoMdhd.begin() + 20, videoMdhd.end()), Concat({Words({90000, 0, 9000}), {0x55, 0xC4, 0, 0}}));
}

TEST(WriterMP4, TrackIdsAndAudioOnly) {
  MP4TrackInfo video = testing::SmallVideoInfo(), audio = testing::SmallAudioInfo();
  Bytes v = Nal(0x41, 5), a = {0x21, 0x10, 0x04};
  MemoryMp4File file;
  Bytes out = Write(&audio, &video, {{'V', 0, v}, {'A', 0, a}}, file);
  // mvhd ends with next_track_ID 3; audio is track 1 (its ES id too), video track 2.
  Bytes mvhd = testing::FindBoxBody(out, "mvhd");
  ASSERT_EQ(mvhd.size(), 112u);
  EXPECT_EQ(Bytes(mvhd.end() - 4, mvhd.end()), Words({3}));
  Bytes esds = testing::FindBoxBody(out, "esds");
  const Bytes expectedEsds = {0, 0, 0, 0, 0x03, 0x19, 0, 1, 0, 0x04, 0x11, 0x40, 0x15, 0, 0, 0, 0, 0, 0,
                              0, 0, 0, 0, 0, 0x05, 0x02, 0x11, 0x90, 0x06, 0x01, 0x02};
  EXPECT_EQ(esds, expectedEsds);

  MemoryMp4File audioOnly;
  out = Write(&audio, nullptr, {{'A', 0, a}, {'A', 1024, a}}, audioOnly);
  mvhd = testing::FindBoxBody(out, "mvhd");
  ASSERT_EQ(mvhd.size(), 112u);
  EXPECT_EQ(Bytes(mvhd.end() - 4, mvhd.end()), Words({2}));
  Bytes tkhd = testing::FindBoxBody(out, "tkhd");
  ASSERT_GE(tkhd.size(), 24u);
  EXPECT_EQ(Bytes(tkhd.begin() + 20, tkhd.begin() + 24), Words({1}));  // track id
  EXPECT_EQ(std::string(out.begin(), out.end()).find("vide"), std::string::npos);
}

TEST(WriterMP4, PictureUnitsOnly) {
  MP4TrackInfo video = testing::SmallVideoInfo();
  Bytes idr = Nal(0x65, 7);
  struct case_t {
    const char* what;
    Bytes frame;
    Bytes sample;  // empty: the frame is skipped
  };
  const case_t cases[] = {
      {"delimiter, parameter sets and SEI dropped", Concat({Nal(0x09, 1), Nal(0x67, 4), Nal(0x68, 2), Nal(0x06, 3), idr}), idr},
      {"parameter sets only", Concat({Nal(0x67, 4), Nal(0x68, 2)}), {}},
      {"a length past the end stops the walk", Concat({idr, Bytes{0, 0, 0, 50, 0x65, 1}}), idr},
  };
  for (const case_t& c : cases) {
    MemoryMp4File file;
    int error = 0;
    std::unique_ptr<WriterMP4> writer(WriterMP4::Create("test", nullptr, &video, &file, error));
    EXPECT_EQ(writer->WriteVideoData(c.frame.data(), c.frame.size(), media::dts_cts_t(0, 90000), true),
              static_cast<int>(c.frame.size()));
    ASSERT_EQ(writer->Flush(), 0);
    EXPECT_EQ(Bytes(file.bytes.begin() + 48, file.bytes.begin() + 48 + c.sample.size()), c.sample) << c.what;
    Bytes stsz = c.sample.empty() ? Words({0, 0, 0}) : Words({0, 0, 1, uint32_t(c.sample.size())});
    EXPECT_EQ(testing::FindBoxBody(file.bytes, "stsz"), stsz) << c.what;
  }
}

TEST(WriterMP4, HeaderAndMdatSize) {
  MP4TrackInfo video = testing::SmallVideoInfo();
  Bytes idr = Nal(0x65, 10);  // 15 bytes
  for (unsigned long announced : {16ul + 15, 16ul + 14}) {
    MemoryMp4File file;
    int error = 0;
    std::unique_ptr<WriterMP4> writer(WriterMP4::Create("test", nullptr, &video, &file, error));
    EXPECT_EQ(writer->MdatSize(), 0u);
    writer->MdatSize(announced);
    ASSERT_EQ(writer->WriteVideoData(idr.data(), idr.size(), media::dts_cts_t(0, 90000), true), 15);
    EXPECT_EQ(writer->MdatSize(), announced);
    bool right = announced == 31;
    EXPECT_EQ(writer->Flush(), right ? 0 : ERR_MEDIAFORMATS_INCORRECT_PARAMETERS);
    EXPECT_EQ(file.seeks, std::vector<long>{0});  // no seek but the first
    EXPECT_EQ(Bytes(file.bytes.begin() + 40, file.bytes.begin() + 48), Words({0, uint32_t(announced)}));
    // A wrong size writes no moov.
    EXPECT_EQ(file.bytes.size() > 63, right);
  }
  // Unannounced, the size is patched at Flush (a seek to 0, one to 40, one back) and known
  // after it: announced to a second writer of the same frames, it gives the same file in one
  // pass, without a seek.
  MemoryMp4File first, second;
  int error = 0;
  std::unique_ptr<WriterMP4> patched(WriterMP4::Create("test", nullptr, &video, &first, error));
  ASSERT_EQ(patched->WriteVideoData(idr.data(), idr.size(), media::dts_cts_t(0, 90000), true), 15);
  EXPECT_EQ(patched->MdatSize(), 0u);
  ASSERT_EQ(patched->Flush(), 0);
  EXPECT_EQ(patched->MdatSize(), 31u);
  EXPECT_EQ(first.seeks, (std::vector<long>{0, 40, 63}));
  const Bytes head = Concat({Words({32}), {'f', 't', 'y', 'p', 'm', 'p', '4', '2'}, Words({1}),
                             {'m', 'p', '4', '1', 'm', 'p', '4', '2', 'i', 's', 'o', 'm', 'a', 'v', '0', '1'},
                             Words({1}), {'m', 'd', 'a', 't'}, Words({0, 16 + 15}), idr});
  ASSERT_GE(first.bytes.size(), head.size());
  EXPECT_EQ(Bytes(first.bytes.begin(), first.bytes.begin() + head.size()), head);
  EXPECT_EQ(testing::FindBoxBody(first.bytes, "avcC"), Bytes(video._pCodecBytes, video._pCodecBytes + video._codecBytesSize));
  std::unique_ptr<WriterMP4> announcedWriter(WriterMP4::Create("test", nullptr, &video, &second, error));
  announcedWriter->MdatSize(patched->MdatSize());
  ASSERT_EQ(announcedWriter->WriteVideoData(idr.data(), idr.size(), media::dts_cts_t(0, 90000), true), 15);
  ASSERT_EQ(announcedWriter->Flush(), 0);
  EXPECT_EQ(second.bytes, first.bytes);
  EXPECT_EQ(second.seeks, std::vector<long>{0});
}

TEST(WriterMP4, Failures) {
  MP4TrackInfo video = testing::SmallVideoInfo(), audio = testing::SmallAudioInfo();
  MemoryMp4File file;
  int error = 0;
  EXPECT_EQ(WriterMP4::Create("test", nullptr, nullptr, &file, error), nullptr);
  EXPECT_EQ(error, ERR_MEDIAFORMATS_INVALID_TRACK_INFO);
  EXPECT_EQ(WriterMP4::Create("test", &audio, &video, nullptr, error), nullptr);
  EXPECT_EQ(error, ERR_MEDIAFORMATS_INVALID_TRACK_INFO);

  // Nothing written: Flush writes nothing.
  std::unique_ptr<WriterMP4> idle(WriterMP4::Create("test", &audio, &video, &file, error));
  EXPECT_EQ(idle->Flush(), 0);
  EXPECT_TRUE(file.bytes.empty());

  Bytes idr = Nal(0x65, 3);
  MP4TrackInfo badAudio = audio, badVideo = video;
  badAudio._timescale = 96000;
  badVideo._codecType = media::TAG_VVP6;
  struct case_t {
    const char* what;
    const MP4TrackInfo* audio;
    const MP4TrackInfo* video;
    uint64_t tag;
    bool observerFails;
    int error;
  };
  const case_t cases[] = {
      {"audio rate above 65535", &badAudio, &video, media::TAG_VH264, false, ERR_MEDIAFORMATS_INVALID_TRACK_INFO},
      {"video codec", nullptr, &badVideo, media::TAG_VH264, false, ERR_MEDIAFORMATS_INVALID_TRACK_INFO},
      {"frame codec", nullptr, &video, media::TAG_VVP6, false, ERR_MEDIAFORMATS_INCORRECT_PARAMETERS},
      {"observer", nullptr, &video, media::TAG_VH264, true, ERR_MEDIAFORMATS_DATA_SOURCE_IO},
  };
  for (const case_t& c : cases) {
    MemoryMp4File out;
    out.fail = c.observerFails;
    std::unique_ptr<WriterMP4> writer(WriterMP4::Create("test", c.audio, c.video, &out, error));
    ASSERT_TRUE(writer) << c.what;
    EXPECT_EQ(writer->WriteVideoData(idr.data(), idr.size(), media::dts_cts_t(0, 90000), true, c.tag), c.error)
        << c.what;
  }
}

}  // namespace
}  // namespace mediaformats
}  // namespace vrex
