// WriterFMP4: ffmpeg's packets written as fragmented MP4 in both modes and read back by ffprobe
// and ffmpeg; fragment boundaries and base times; the writer's rules on small streams.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "media/codec_tags.h"
#include "mediaformats/errors.h"
#include "mediaformats/mp4/writer_fmp4.h"
#include "mp4_test_util.h"

namespace vrex {
namespace mediaformats {
namespace {

using Bytes = std::vector<uint8_t>;

// Collects what the writer hands over and lays it out as a file: the segment, then each
// fragment as moof, mdat header, video samples, audio samples.
class FileSink : public WriterFMP4::Observer {
 public:
  bool SignalBeginWriteMOOV() override { return Log("BeginMOOV"); }
  bool SignalEndWriteMOOV(unsigned int offset, bool) override {
    mvhdDurationOffset = offset;
    return Log("EndMOOV");
  }
  bool SignalBeginWriteFragment(long startMs) override {
    starts.push_back(startMs);
    fragments.emplace_back();
    return Log("BeginFragment");
  }
  bool SignalEndWriteFragment(long endMs) override {
    ends.push_back(endMs);
    return Log("EndFragment");
  }
  bool SignalWriteBuffer(FMP4WriteState state, const void* data, size_t size) override {
    Bytes& to = state == FMP4_WRITE_STATE_INIT ? init : fragments.back();
    Append(to, data, size);
    return Log(state == FMP4_WRITE_STATE_INIT ? "1" : "2");
  }
  bool SignalWriteProgressiveBuffer(FMP4ProgressiveBufferType type, const void* data, size_t size) override {
    switch (type) {
      case FMP4_PROGRESSIVE_CODECS: codecs.assign(static_cast<const char*>(data), size); break;
      case FMP4_PROGRESSIVE_MOOV: Append(init, data, size); break;
      case FMP4_PROGRESSIVE_BEGIN: moof.clear(), mdat.clear(), video.clear(), audio.clear(); break;
      case FMP4_PROGRESSIVE_MOOF: Append(moof, data, size); break;
      case FMP4_PROGRESSIVE_VIDEO_BUFFER: Append(video, data, size); break;
      case FMP4_PROGRESSIVE_AUDIO_BUFFER: Append(audio, data, size); break;
      case FMP4_PROGRESSIVE_HEADER_MDAT: Append(mdat, data, size); break;
      case FMP4_PROGRESSIVE_EXTENDED_METADATA: metadata.emplace_back(static_cast<const uint8_t*>(data), static_cast<const uint8_t*>(data) + size); break;
      case FMP4_PROGRESSIVE_END:
        fragments.push_back(moof);
        for (const Bytes* part : {&mdat, &video, &audio}) Append(fragments.back(), part->data(), part->size());
        break;
    }
    return Log(FMP4ProgressiveBufferTypeToString(type));
  }

  Bytes File() const {
    Bytes all = init;
    for (const Bytes& f : fragments) all.insert(all.end(), f.begin(), f.end());
    return all;
  }

  Bytes init;
  std::vector<Bytes> fragments;
  std::vector<long> starts, ends;
  std::vector<Bytes> metadata;
  std::string codecs;
  std::string log;  // the calls in order, space separated
  unsigned mvhdDurationOffset = 0;
  int refuseAfter = -1;  // calls to accept before answering false; -1: never refuse

 private:
  static void Append(Bytes& to, const void* data, size_t size) {
    const uint8_t* p = static_cast<const uint8_t*>(data);
    to.insert(to.end(), p, p + size);
  }
  bool Log(const char* what) {
    log += std::string(log.empty() ? "" : " ") + what;
    return refuseAfter < 0 || refuseAfter-- > 0;
  }
  Bytes moof, mdat, video, audio;
};

uint64_t Be(const uint8_t* p, int bytes) {
  uint64_t v = 0;
  for (int i = 0; i < bytes; ++i) v = (v << 8) | p[i];
  return v;
}

// Per fragment and track: tfdt base time and trun sample count, in traf order.
struct traf_summary_t {
  uint32_t trackId;
  uint64_t baseTime;
  uint32_t samples;
  bool operator==(const traf_summary_t& o) const {
    return trackId == o.trackId && baseTime == o.baseTime && samples == o.samples;
  }
};
std::ostream& operator<<(std::ostream& out, const traf_summary_t& t) {
  return out << "{track " << t.trackId << ", base " << t.baseTime << ", " << t.samples << " samples}";
}
std::vector<traf_summary_t> Trafs(const Bytes& fragment) {
  std::vector<traf_summary_t> out;
  std::string text(fragment.begin(), fragment.end());
  for (size_t at = text.find("tfhd"); at != std::string::npos; at = text.find("tfhd", at + 4)) {
    size_t tfdt = text.find("tfdt", at), trun = text.find("trun", at);
    out.push_back({uint32_t(Be(&fragment[at + 8], 4)), Be(&fragment[tfdt + 8], 8), uint32_t(Be(&fragment[trun + 8], 4))});
  }
  return out;
}

struct fmp4_run_t {
  std::vector<testing::owned_frame_t> frames;
  testing::source_tracks_t tracks;
  FileSink sink;
  int error = 0;
};

// Writes the frames of a fixture through a WriterFMP4 and flushes.
void WriteFixture(const std::string& name, bool progressive, const media::timestamp_t& duration, bool onKeyFrames,
                  fmp4_run_t& run, bool sampleDurations = false) {
  run.frames = testing::ReadAllFrames(testing::FixturePath(name));
  ASSERT_FALSE(run.frames.empty());
  run.tracks = testing::TracksOf(run.frames, 320, 240);
  run.tracks.video._rfc6381Codec = "avc1.64000d";
  run.tracks.audio._rfc6381Codec = "mp4a.40.2";
  run.tracks.video._hasSampleDurations = run.tracks.audio._hasSampleDurations = sampleDurations;
  std::unique_ptr<WriterFMP4> writer(WriterFMP4::Create(name, run.tracks.hasAudio ? &run.tracks.audio : nullptr,
                                                        run.tracks.hasVideo ? &run.tracks.video : nullptr, progressive,
                                                        duration, onKeyFrames, false, &run.sink, run.error));
  ASSERT_TRUE(writer) << std::hex << run.error;
  for (const auto& owned : run.frames) {
    const media::frame_t& f = owned.frame;
    int err = media::tagKind(f.tag) == 'V'
                  ? writer->WriteVideoData(owned.payload.data(), owned.payload.size(), f.dtsCts, f.keyFrame, f.tag)
                  : writer->WriteAudioData(owned.payload.data(), owned.payload.size(), f.dtsCts, f.tag);
    ASSERT_EQ(err, 0);
  }
  ASSERT_EQ(writer->Flush(nullptr, nullptr), 0);
}

TEST(WriterFMP4, FfprobeReadsTheSamePackets) {
  SKIP_WITHOUT_FFMPEG();
  struct case_t {
    const char* file;
    bool onKeyFrames;  // fragments start on key frames, as B-frames need for stable times
    bool sampleDurations;
  };
  const case_t cases[] = {{"h264_aac_moov_last.mp4", true, false}, {"h264_only.mp4", false, false},
                          {"h265_aac.mp4", true, false},          {"aac_only.mp4", false, false},
                          {"h264_aac_moov_last.mp4", true, true},  {"h264_only.mp4", false, true}};
  for (const case_t& c : cases) {
    for (bool progressive : {false, true}) {
      std::string what = std::string(c.file) + (progressive ? " progressive" : " plain") +
                         (c.sampleDurations ? " with durations" : "");
      fmp4_run_t run;
      WriteFixture(c.file, progressive, media::timestamp_t(400, 1000), c.onKeyFrames, run, c.sampleDurations);
      ASSERT_GT(run.sink.fragments.size(), 1u) << what;
      std::string out = testing::TempPath("fragmented.mp4");
      testing::WriteFileBytes(out, run.sink.File());
      int status = 0;
      EXPECT_EQ(testing::RunCommand("ffmpeg -v error -i '" + out + "' -f null - 2>&1", status), "") << what;

      // Ours: video 1 and audio 2 (1 without video), as in the source.
      EXPECT_EQ(testing::MismatchWithSource(out, testing::FixturePath(c.file), {{1, 1}, {2, 2}}, true), "") << what;
    }
  }
}

TEST(WriterFMP4, FragmentBoundariesAndBaseTimes) {
  // h264_only: 25 frames at 12800 (512 per frame), key frames as the encoder placed them.
  for (bool onKeyFrames : {false, true}) {
    fmp4_run_t run;
    WriteFixture("h264_only.mp4", false, media::timestamp_t(400, 1000), onKeyFrames, run);
    std::vector<uint32_t> expectedCounts;
    std::vector<uint64_t> expectedBase;
    for (size_t i = 0; i < run.frames.size(); ++i) {
      // Duration mode: every 400 ms = 5120 ticks; key-frame mode: every key frame after 400 ms.
      const media::frame_t& f = run.frames[i].frame;
      bool starts = expectedBase.empty() ||
                    (f.dtsCts.dts - int64_t(expectedBase.back()) >= 5120 && (!onKeyFrames || f.keyFrame));
      if (starts) {
        expectedBase.push_back(static_cast<uint64_t>(f.dtsCts.dts));
        expectedCounts.push_back(0);
      }
      ++expectedCounts.back();
    }
    ASSERT_EQ(run.sink.fragments.size(), expectedCounts.size()) << onKeyFrames;
    for (size_t i = 0; i < expectedCounts.size(); ++i) {
      EXPECT_EQ(Trafs(run.sink.fragments[i]), (std::vector<traf_summary_t>{{1, expectedBase[i], expectedCounts[i]}}))
          << "fragment " << i;
      EXPECT_EQ(run.sink.starts[i], static_cast<long>(expectedBase[i] * 1000 / 12800));
      EXPECT_EQ(run.sink.ends[i], static_cast<long>((expectedBase[i] + expectedCounts[i] * 512) * 1000 / 12800));
    }
  }
}


struct step_t {
  char kind;  // 'V' key video, 'P' other video, 'A' audio
  int64_t dts;
  uint32_t cts = 0;
};

// Runs `steps` through a writer, after `sync` when one is given, and returns the writer for the
// caller's checks.
std::unique_ptr<WriterFMP4> RunSteps(const MP4TrackInfo* audio, const MP4TrackInfo* video, bool progressive,
                                     bool onKeyFrames, int64_t durationMs, const std::vector<step_t>& steps, FileSink& sink,
                                     bool wallClock = false, const media::clock_sync_t* sync = nullptr) {
  int error = 0;
  std::unique_ptr<WriterFMP4> writer(WriterFMP4::Create("test", audio, video, progressive,
                                                        media::timestamp_t(durationMs, 1000), onKeyFrames, wallClock, &sink, error));
  EXPECT_TRUE(writer) << std::hex << error;
  if (sync != nullptr) writer->WriteClockSync(*sync);
  const Bytes payload = {0x21, 0x10, 0x04, 0x60};
  for (const step_t& s : steps) {
    int result = s.kind == 'A' ? writer->WriteAudioData(payload.data(), payload.size(), media::dts_cts_t(s.dts, 48000))
                               : writer->WriteVideoData(payload.data(), payload.size(), media::dts_cts_t(s.dts, 90000, s.cts), s.kind == 'V');
    EXPECT_EQ(result, 0) << s.kind << " at " << s.dts;
  }
  return writer;
}

TEST(WriterFMP4, FragmentingRules) {
  MP4TrackInfo video = testing::SmallVideoInfo(), audio = testing::SmallAudioInfo();
  struct case_t {
    const char* what;
    bool withAudio, onKeyFrames;
    int64_t durationMs;
    std::vector<step_t> steps;
    std::vector<std::vector<traf_summary_t>> fragments;
    bool withVideo = true;
  };
  const case_t cases[] = {
      {"duration 2000 ms: video at 180000 past the first cuts, audio never", true, false, 2000,
       {{'V', 0}, {'A', 0}, {'P', 90000}, {'A', 96000}, {'A', 200000}, {'P', 180000}, {'A', 200000 + 1024}},
       {{{1, 0, 2}, {2, 0, 3}}, {{1, 180000, 1}, {2, 201024, 1}}}},
      {"audio before the first video is held, then written in order", true, false, 2000,
       {{'A', 0}, {'A', 1024}, {'V', 0}, {'A', 2048}},
       {{{1, 0, 1}, {2, 0, 3}}}},
      {"key-frame mode, duration 0: P frames before the first key vanish, each key cuts", false, true, 0,
       {{'P', 0}, {'P', 3000}, {'V', 6000}, {'P', 9000}, {'V', 12000}, {'P', 15000}, {'V', 18000}},
       {{{1, 6000, 2}}, {{1, 12000, 2}}, {{1, 18000, 1}}}},
      {"a stream that ends on a key frame ends with a fragment of that frame alone, without audio", true, true, 0,
       {{'V', 0}, {'A', 0}, {'P', 3000}, {'A', 1024}, {'V', 6000}},
       {{{1, 0, 2}, {2, 0, 2}}, {{1, 6000, 1}}}},
      {"a DTS going back closes the fragment at that sample", false, false, 10000,
       {{'V', 90000}, {'P', 93000}, {'P', 3000}, {'P', 6000}},
       {{{1, 90000, 2}}, {{1, 3000, 2}}}},
      {"audio alone decides: 20 ms at 48000 is 960 ticks, less than a frame, so each frame cuts", true, false, 20,
       {{'A', 0}, {'A', 1024}, {'A', 2048}},
       {{{1, 0, 1}}, {{1, 1024, 1}}, {{1, 2048, 1}}}, false},
  };
  for (const case_t& c : cases) {
    FileSink sink;
    std::unique_ptr<WriterFMP4> writer = RunSteps(c.withAudio ? &audio : nullptr, c.withVideo ? &video : nullptr, false,
                                                  c.onKeyFrames, c.durationMs, c.steps, sink);
    EXPECT_EQ(writer->Flush(nullptr, nullptr), 0) << c.what;
    std::vector<std::vector<traf_summary_t>> got;
    for (const Bytes& fragment : sink.fragments) got.push_back(Trafs(fragment));
    EXPECT_EQ(got, c.fragments) << c.what;
  }
}

TEST(WriterFMP4, ProgressiveOrderAndSegment) {
  MP4TrackInfo video = testing::SmallVideoInfo(), audio = testing::SmallAudioInfo();
  video._extendedVideoMetadata = true;
  FileSink sink;
  std::unique_ptr<WriterFMP4> writer = RunSteps(&audio, &video, true, false, 1000, {{'V', 0}, {'A', 0}, {'P', 90000}, {'A', 1024}}, sink);
  media::timestamp_t audioLast, videoLast;
  ASSERT_EQ(writer->Flush(&audioLast, &videoLast), 0);
  EXPECT_EQ(sink.log,
            "0xf8 MOOV BEGIN VIDEO_BUFFER AUDIO_BUFFER MOOF MOOF MOOF 0xf7 MOOF MOOF HEADER_MDAT END "
            "BEGIN VIDEO_BUFFER AUDIO_BUFFER MOOF MOOF MOOF 0xf7 MOOF MOOF HEADER_MDAT END");
  EXPECT_EQ(sink.codecs, "avc1.42C01E,mp4a.40.2");
  // First PTS, last PTS, then one per key frame, in ms, big-endian.
  ASSERT_EQ(sink.metadata.size(), 2u);
  EXPECT_EQ(sink.metadata[0], (Bytes{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(sink.metadata[1].size(), 16u);
  EXPECT_EQ(audioLast.value, 1024 + 1024);
  EXPECT_EQ(audioLast.clockRate, 48000u);
  EXPECT_EQ(videoLast.value, 90000 + 3000);

  // The segment: ftyp "dash" and a moov of mvhd, mvex with both trex, video trak then audio.
  const Bytes& init = sink.init;
  ASSERT_GT(init.size(), 32u);
  EXPECT_EQ(Bytes(init.begin(), init.begin() + 32),
            (Bytes{0, 0, 0, 32, 'f', 't', 'y', 'p', 'd', 'a', 's', 'h', 0, 0, 0, 0, 'i', 's', 'o', '6', 'h', 'v', 'c', '1',
                   'a', 'v', 'c', '1', 'm', 'p', '4', '1'}));
  std::string text(init.begin(), init.end());
  EXPECT_LT(text.find("mvex"), text.find("trak"));
  EXPECT_LT(text.find("vide"), text.find("soun"));
  EXPECT_NE(text.find("\x16Tessarin Media Server "), std::string::npos);
  Bytes mvhd(init.begin() + static_cast<long>(text.find("mvhd") - 4), init.end());
  EXPECT_EQ(Be(&mvhd[96 + 8], 4), 3u);  // next track id
}

TEST(WriterFMP4, VideoOnlySegment) {
  MP4TrackInfo video = testing::SmallVideoInfo();
  FileSink sink;
  std::unique_ptr<WriterFMP4> writer = RunSteps(nullptr, &video, false, false, 1000, {{'V', 0}}, sink);
  ASSERT_EQ(writer->Flush(nullptr, nullptr), 0);
  EXPECT_EQ(sink.log, "BeginMOOV 1 EndMOOV BeginFragment 2 2 2 2 2 2 EndFragment");
  std::string text(sink.init.begin(), sink.init.end());
  size_t mvhd = text.find("mvhd") - 4;
  EXPECT_EQ(sink.mvhdDurationOffset, mvhd + 24);
  EXPECT_EQ(Be(&sink.init[mvhd + 96 + 8], 4), 2u);  // next track id
  size_t trex = text.find("trex");
  EXPECT_EQ(text.find("trex", trex + 4), std::string::npos);
  EXPECT_EQ(Be(&sink.init[trex + 8], 4), 1u);  // track id
  EXPECT_EQ(text.find("soun"), std::string::npos);
  // The fragment: moof (mfhd sequence 1), video traf with tfhd flags 0x020008, mdat of the
  // 4 sample bytes, whose offset in trun points just past the mdat header.
  const Bytes& fragment = sink.fragments[0];
  std::string f(fragment.begin(), fragment.end());
  EXPECT_EQ(Be(&fragment[f.find("mfhd") + 8], 4), 1u);
  EXPECT_EQ(Be(&fragment[f.find("tfhd") + 4], 4), 0x020008u);
  size_t trun = f.find("trun");
  uint32_t moofSize = uint32_t(Be(&fragment[0], 4));
  EXPECT_EQ(Be(&fragment[trun + 12], 4), moofSize + 8);
  EXPECT_EQ(Bytes(fragment.begin() + moofSize, fragment.end()), (Bytes{0, 0, 0, 12, 'm', 'd', 'a', 't', 0x21, 0x10, 0x04, 0x60}));
}

// The sample entry follows the kind of track, not its size: a video track whose size is not
// known gets its codec's entry with a size of 0, never an audio entry over its record.
TEST(WriterFMP4, VideoTrackWithoutSizeKeepsItsVisualEntry) {
  MP4TrackInfo video = testing::SmallVideoInfo();
  video._width = video._height = 0;
  const uint8_t record[] = {0x01};
  video._pCodecBytes = record;
  video._codecBytesSize = sizeof(record);
  FileSink sink;
  std::unique_ptr<WriterFMP4> writer = RunSteps(nullptr, &video, false, false, 1000, {{'V', 0}}, sink);
  ASSERT_EQ(writer->Flush(nullptr, nullptr), 0);
  std::string text(sink.init.begin(), sink.init.end());
  EXPECT_EQ(text.find("mp4a"), std::string::npos);
  size_t stsd = text.find("stsd");
  ASSERT_NE(stsd, std::string::npos);
  // stsd: version and flags, entry count 1, then avc1 with width and height 0 and avcC {01}.
  size_t entry = stsd + 4 + 8;
  ASSERT_EQ(text.substr(entry + 4, 4), "avc1");
  EXPECT_EQ(Be(&sink.init[entry + 32], 4), 0u);
  size_t avcC = text.find("avcC", entry);
  ASSERT_NE(avcC, std::string::npos);
  EXPECT_EQ(Bytes(sink.init.begin() + avcC - 4, sink.init.begin() + avcC + 5), (Bytes{0, 0, 0, 9, 'a', 'v', 'c', 'C', 0x01}));
}

TEST(WriterFMP4, Failures) {
  MP4TrackInfo video = testing::SmallVideoInfo(), audio = testing::SmallAudioInfo();
  FileSink sink;
  int error = 0;
  EXPECT_EQ(WriterFMP4::Create("t", &audio, &video, false, media::timestamp_t(1000, 0), false, false, &sink, error), nullptr);
  EXPECT_EQ(error, ERR_MEDIAFORMATS_INVALID_FRAGMENT_DURATION);
  EXPECT_EQ(WriterFMP4::Create("t", &audio, &video, false, media::timestamp_t(-1, 1000), false, false, &sink, error), nullptr);
  EXPECT_EQ(error, ERR_MEDIAFORMATS_INVALID_FRAGMENT_DURATION);
  EXPECT_EQ(WriterFMP4::Create("t", &audio, &video, false, media::timestamp_t(1000, 1000), false, false, nullptr, error), nullptr);
  EXPECT_EQ(error, ERR_MEDIAFORMATS_NULL_OBSERVER);
  EXPECT_EQ(WriterFMP4::Create("t", nullptr, nullptr, false, media::timestamp_t(1000, 1000), false, false, &sink, error), nullptr);
  EXPECT_EQ(error, ERR_MEDIAFORMATS_INVALID_TRACK_INFO);
  MP4TrackInfo noDuration = video;
  noDuration._defaultSampleDuration = 0;
  EXPECT_EQ(WriterFMP4::Create("t", nullptr, &noDuration, false, media::timestamp_t(1000, 1000), false, false, &sink, error), nullptr);
  EXPECT_EQ(error, ERR_MEDIAFORMATS_INVALID_TRACK_INFO);

  // Codec changes: H.265 on an H.264 track fails; unknown tags pass.
  std::unique_ptr<WriterFMP4> writer(WriterFMP4::Create("t", &audio, &video, false, media::timestamp_t(1000, 1000), false, false, &sink, error));
  const Bytes payload = {1, 2, 3};
  EXPECT_EQ(writer->WriteVideoData(payload.data(), payload.size(), media::dts_cts_t(0, 90000), true, media::TAG_VH265),
            ERR_MEDIAFORMATS_WRITER_CODEC_CHANGED);
  EXPECT_EQ(writer->WriteVideoData(payload.data(), payload.size(), media::dts_cts_t(0, 90000), true, media::TAG_VUNK), 0);
  EXPECT_EQ(writer->WriteAudioData(payload.data(), payload.size(), media::dts_cts_t(0, 48000), media::TAG_AOPUS),
            ERR_MEDIAFORMATS_WRITER_CODEC_CHANGED);
  // Video alone in the last fragment: it goes out without the audio track; a second Flush finds
  // no fragment open.
  std::unique_ptr<WriterFMP4> idle(WriterFMP4::Create("t", &audio, &video, false, media::timestamp_t(1000, 1000), false, false, &sink, error));
  EXPECT_EQ(idle->WriteVideoData(payload.data(), payload.size(), media::dts_cts_t(0, 90000), true), 0);
  EXPECT_EQ(idle->Flush(nullptr, nullptr), 0);
  EXPECT_EQ(idle->Flush(nullptr, nullptr), 0) << "no fragment open: nothing to do";

  // The observer refusing the segment fails the write.
  FileSink refusing;
  refusing.refuseAfter = 0;
  std::unique_ptr<WriterFMP4> refused(WriterFMP4::Create("t", nullptr, &video, false, media::timestamp_t(1000, 1000), false, false, &refusing, error));
  EXPECT_EQ(refused->WriteVideoData(payload.data(), payload.size(), media::dts_cts_t(0, 90000), true),
            ERR_MEDIAFORMATS_FMP4_WRITER_STATE);
}

// A base timestamp moves each track's timeline to start there, from the track's own first DTS,
// and keeps the wall clock from replacing the base times; without one, the wall clock of the
// sync node gives them, in each track's clock.
TEST(WriterFMP4, BaseTimesFromABaseTimestampOrTheWallClock) {
  // Video: 10 s at 90000 plus the composition offset; audio: 10 s at 48000. On the wall clock:
  // 1,700,000,000,000 ms at the sync node's stream clock of 1 s.
  const std::vector<std::vector<traf_summary_t>> rebased = {{{1, 903000, 2}, {2, 480000, 2}},
                                                             {{1, 993000, 1}, {2, 482048, 1}}};
  const uint64_t video0 = 1700000000000ull * 90 - 90000, audio0 = 1700000000000ull * 48 - 48000;
  struct case_t {
    bool baseTimestamp, wallClock;
    std::vector<std::vector<traf_summary_t>> fragments;
    std::vector<long> starts;  // the first PTS in ms, rounded: 482048 / 48 is 10043
  };
  const case_t cases[] = {
      {true, false, rebased, {10000, 10043}},
      {true, true, rebased, {10000, 10043}},
      {false, true, {{{1, video0 + 503000, 2}, {2, audio0 + 100000, 2}}, {{1, video0 + 593000, 1}, {2, audio0 + 102048, 1}}},
       {2083, 2126}},
  };
  media::clock_sync_t sync;
  sync.sc = media::timestamp_t(90000, 90000);
  sync.wc = media::timestamp_t(1700000000000, 1000);
  for (const case_t& c : cases) {
    MP4TrackInfo video = testing::SmallVideoInfo(), audio = testing::SmallAudioInfo();
    if (c.baseTimestamp) video._baseTimestamp = audio._baseTimestamp = media::timestamp_t(10000, 1000);
    FileSink sink;
    std::unique_ptr<WriterFMP4> writer =
        RunSteps(&audio, &video, false, false, 1000,
                 {{'V', 500000, 3000}, {'A', 100000}, {'P', 545000, 3000}, {'A', 101024}, {'V', 590000, 3000}, {'A', 102048}},
                 sink, c.wallClock, &sync);
    ASSERT_EQ(writer->Flush(nullptr, nullptr), 0);
    std::vector<std::vector<traf_summary_t>> got;
    for (const Bytes& fragment : sink.fragments) got.push_back(Trafs(fragment));
    EXPECT_EQ(got, c.fragments) << c.baseTimestamp << c.wallClock;
    EXPECT_EQ(sink.starts, c.starts) << c.baseTimestamp << c.wallClock;
  }
}

}  // namespace
}  // namespace mediaformats
}  // namespace vrex
