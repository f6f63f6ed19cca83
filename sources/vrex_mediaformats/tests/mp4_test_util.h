// Helpers of the MP4 family's tests: running ffprobe/ffmpeg, reading their packet lists and
// files, and the packets of a file as ReaderMp4 sees them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "media/frame.h"
#include "mediaformats/mp4/mp4_track_info.h"
#include "mediaformats/mp4/writer_mp4.h"

namespace vrex {
namespace mediaformats {
namespace testing {

// Runs a shell command; returns its standard output and sets `status` to the exit status.
std::string RunCommand(const std::string& command, int& status);
// True when ffprobe and ffmpeg can be run.
bool HaveFfmpeg();
#define SKIP_WITHOUT_FFMPEG() \
  if (!::vrex::mediaformats::testing::HaveFfmpeg()) GTEST_SKIP() << "ffmpeg/ffprobe not installed"

std::string FixturePath(const std::string& name);  // under test/fixtures/mp4
std::vector<uint8_t> ReadFileBytes(const std::string& path);
void WriteFileBytes(const std::string& path, const std::vector<uint8_t>& bytes);
// A path in the test's temporary directory.
std::string TempPath(const std::string& name);

// One packet, in the terms both ffprobe and our reader can state: times relative to the first
// packet of its stream, in that stream's clock.
struct packet_t {
  int track = 0;  // 1-based: ffprobe's stream index + 1, or our track id
  int64_t pos = -1;
  int64_t size = 0;
  bool key = false;
  int64_t dts = 0;  // minus the stream's first dts
  int64_t cts = 0;  // pts - dts
  bool operator==(const packet_t& o) const {
    return track == o.track && pos == o.pos && size == o.size && key == o.key && dts == o.dts &&
           cts == o.cts;
  }
};
std::string ToString(const packet_t& p);

// ffprobe -show_packets of `path`, times in each stream's time base. Empty when it fails.
std::vector<packet_t> ProbePackets(const std::string& path);
// ReaderMp4's frames of `path`, made relative the same way; `error` is Create's code.
std::vector<packet_t> ReaderPackets(const std::string& path, int& error);
// The packets of one track, in order.
std::vector<packet_t> OfTrack(const std::vector<packet_t>& packets, int track);
// Empty when ReaderMp4 gives the packets ffprobe lists for `path`, track for track; else the
// first difference.
std::string ReaderMismatchWithFfprobe(const std::string& path);
// Empty when `out` probes and decodes as the fixture `source` reads and decodes: for each pair of
// `tracks` (out's track, the source's), the same packets but for their positions, with
// composition offsets of 0 in `out` unless `withCts`; and the same decoded pictures and sound.
// Else the first difference.
std::string MismatchWithSource(const std::string& out, const std::string& source,
                               const std::vector<std::pair<int, int>>& tracks, bool withCts);
// The md5 column of `ffmpeg -f framemd5` decoding the stream `stream` ("v" or "a") of `path`,
// edit lists of an .mp4 ignored, without timestamps: two files that decode the same compare equal
// whatever their timing and their stream order.
std::vector<std::string> DecodedMd5s(const std::string& path, const std::string& stream);


// A file in memory behind WriterMP4::Observer: writes at a position, seeks, and a log of the
// seeks made.
class MemoryMp4File : public WriterMP4::Observer {
 public:
  bool WriteMP4Data(const unsigned char* data, size_t size) override;
  bool SeekIntoMP4Data(long offset, long whence) override;
  void WriteMP4Complete() override {}

  std::vector<uint8_t> bytes;
  std::vector<long> seeks;
  size_t position = 0;
  bool fail = false;  // answer false from now on
};

// Every frame of an MP4 file as ReaderMp4 gives it, with copies of its payload and codec
// configuration (frame.pCodecConfig is cleared: it pointed into the reader).
struct owned_frame_t {
  media::frame_t frame;
  std::vector<uint8_t> payload;
  std::vector<uint8_t> config;
};
std::vector<owned_frame_t> ReadAllFrames(const std::string& path);

// The track infos that describe the first audio and video frames; they point into `frames`.
struct source_tracks_t {
  MP4TrackInfo audio;
  MP4TrackInfo video;
  bool hasAudio = false;
  bool hasVideo = false;
};
source_tracks_t TracksOf(const std::vector<owned_frame_t>& frames, uint32_t width, uint32_t height);

// Small hand-made tracks: H.264 640x480 at 90 kHz, 3000 ticks a frame, with a baseline avcC;
// AAC LC 48 kHz stereo (AudioSpecificConfig 11 90).
MP4TrackInfo SmallVideoInfo();
MP4TrackInfo SmallAudioInfo();

// The body of the first box of `type` found anywhere in `file` by its type letters (header
// excluded); empty when none.
std::vector<uint8_t> FindBoxBody(const std::vector<uint8_t>& file, const char* type);

}  // namespace testing
}  // namespace mediaformats
}  // namespace vrex
