// Helpers of the MP4 family's tests; see mp4_test_util.h.
#include "mp4_test_util.h"

#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>

#include "media/codec_tags.h"
#include "mediaformats/mp4/reader_mp4.h"

namespace vrex {
namespace mediaformats {
namespace testing {

std::string RunCommand(const std::string& command, int& status) {
  std::string out;
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) {
    status = -1;
    return out;
  }
  char buffer[4096];
  size_t n;
  while ((n = fread(buffer, 1, sizeof(buffer), pipe)) > 0) out.append(buffer, n);
  status = pclose(pipe);
  return out;
}

bool HaveFfmpeg() {
  static const bool have = [] {
    int status = 0;
    RunCommand("ffprobe -version >/dev/null 2>&1 && ffmpeg -version >/dev/null 2>&1", status);
    return status == 0;
  }();
  return have;
}

std::string FixturePath(const std::string& name) { return std::string(VIDORA_FIXTURES_DIR) + "/mp4/" + name; }

std::vector<uint8_t> ReadFileBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<uint8_t>((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

void WriteFileBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
  std::ofstream out(path, std::ios::binary);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

std::string TempPath(const std::string& name) {
  // One directory per test process, removed when the process ends.
  struct temp_dir_t {
    std::string path;
    temp_dir_t() {
      char templ[] = "/tmp/vidora_mp4_XXXXXX";
      const char* made = mkdtemp(templ);
      path = made ? made : "/tmp";
    }
    ~temp_dir_t() {
      if (path != "/tmp") std::filesystem::remove_all(path);
    }
  };
  static const temp_dir_t dir;
  return dir.path + "/" + name;
}

std::string ToString(const packet_t& p) {
  std::ostringstream s;
  s << "track " << p.track << " pos " << p.pos << " size " << p.size << " key " << p.key << " dts "
    << p.dts << " cts " << p.cts;
  return s.str();
}

namespace {

// Makes each track's dts relative to its first packet.
void Relativize(std::vector<packet_t>& packets) {
  std::map<int, int64_t> first;
  for (packet_t& p : packets) {
    auto it = first.emplace(p.track, p.dts).first;
    p.dts -= it->second;
  }
}

}  // namespace

std::vector<packet_t> ProbePackets(const std::string& path) {
  int status = 0;
  std::string out = RunCommand(
      "ffprobe -v error -show_entries packet=stream_index,pos,size,flags,dts,pts -of csv=p=0 '" +
          path + "'",
      status);
  std::vector<packet_t> packets;
  if (status != 0) return packets;
  std::istringstream lines(out);
  std::string line;
  while (std::getline(lines, line)) {
    // stream_index,pts,dts,size,pos,flags; side data adds lines of other shapes
    if (line.empty() || !isdigit(static_cast<unsigned char>(line[0]))) continue;
    std::istringstream fields(line);
    std::string f[6];
    for (std::string& field : f) std::getline(fields, field, ',');
    packet_t p;
    p.track = std::stoi(f[0]) + 1;
    int64_t pts = std::stoll(f[1]);
    p.dts = std::stoll(f[2]);
    p.cts = pts - p.dts;
    p.size = std::stoll(f[3]);
    p.pos = std::stoll(f[4]);
    p.key = !f[5].empty() && f[5][0] == 'K';
    packets.push_back(p);
  }
  Relativize(packets);
  return packets;
}

namespace {
class NullReaderObserver : public ReaderMp4::Observer {};
}  // namespace

std::vector<packet_t> ReaderPackets(const std::string& path, int& error) {
  NullReaderObserver observer;
  std::unique_ptr<ReaderMp4> reader(ReaderMp4::Create(&observer, path, false, error));
  std::vector<packet_t> packets;
  if (!reader) return packets;
  while (const media::frame_t* frame = reader->ReadFrame(error)) {
    packet_t p;
    p.track = frame->trackId;
    p.pos = frame->offset;
    p.size = frame->size;
    p.key = frame->keyFrame;
    p.dts = frame->dtsCts.dts;
    p.cts = frame->dtsCts.cts;
    packets.push_back(p);
  }
  Relativize(packets);
  return packets;
}

std::vector<packet_t> OfTrack(const std::vector<packet_t>& packets, int track) {
  std::vector<packet_t> out;
  for (const packet_t& p : packets) {
    if (p.track == track) out.push_back(p);
  }
  return out;
}

std::string ReaderMismatchWithFfprobe(const std::string& path) {
  const std::vector<packet_t> probed = ProbePackets(path);
  if (probed.empty()) return "ffprobe listed nothing";
  int error = 0;
  const std::vector<packet_t> read = ReaderPackets(path, error);
  if (error != 0) return "ReaderMp4 failed: " + std::to_string(error);
  if (read.size() != probed.size()) {
    return std::to_string(read.size()) + " packets instead of " + std::to_string(probed.size());
  }
  for (int track = 1; track <= 2; ++track) {
    const std::vector<packet_t> expected = OfTrack(probed, track), actual = OfTrack(read, track);
    for (size_t i = 0; i < expected.size() && i < actual.size(); ++i) {
      if (!(actual[i] == expected[i])) {
        return "packet " + std::to_string(i) + "\n ours:    " + ToString(actual[i]) + "\n ffprobe: " + ToString(expected[i]);
      }
    }
    if (actual.size() != expected.size()) return "track " + std::to_string(track) + " differs in length";
  }
  return "";
}

std::vector<std::string> DecodedMd5s(const std::string& path, const std::string& stream) {
  int status = 0;
  bool mp4 = path.size() > 4 && path.compare(path.size() - 4, 4, ".mp4") == 0;
  std::string out = RunCommand(std::string("ffmpeg -v error ") + (mp4 ? "-ignore_editlist 1" : "") + " -i '" + path + "' -map 0:" + stream +
                                   " -fps_mode passthrough -f framemd5 - 2>/dev/null",
                               status);
  std::vector<std::string> md5s;
  std::istringstream lines(out);
  std::string line;
  while (std::getline(lines, line)) {
    if (line.empty() || line[0] == '#') continue;
    md5s.push_back(line.substr(line.rfind(',') + 1));
  }
  return md5s;
}

std::string MismatchWithSource(const std::string& out, const std::string& source,
                               const std::vector<std::pair<int, int>>& tracks, bool withCts) {
  const std::vector<packet_t> probed = ProbePackets(out);
  int error = 0;
  const std::vector<packet_t> read = ReaderPackets(source, error);
  for (const auto& [ourTrack, theirTrack] : tracks) {
    const std::vector<packet_t> ours = OfTrack(probed, ourTrack), theirs = OfTrack(read, theirTrack);
    const std::string track = "track " + std::to_string(ourTrack) + ": ";
    if (ours.size() != theirs.size()) {
      return track + std::to_string(ours.size()) + " packets instead of " + std::to_string(theirs.size());
    }
    for (size_t i = 0; i < ours.size(); ++i) {
      packet_t want = theirs[i];
      want.track = ours[i].track;
      want.pos = ours[i].pos;
      if (!withCts) want.cts = 0;
      if (!(ours[i] == want)) {
        return track + "packet " + std::to_string(i) + "\n ours:   " + ToString(ours[i]) + "\n source: " + ToString(want);
      }
    }
  }
  size_t decoded = 0;
  for (const char* stream : {"v", "a"}) {
    const std::vector<std::string> want = DecodedMd5s(source, stream), got = DecodedMd5s(out, stream);
    if (got != want) {
      return std::string(stream) + ": " + std::to_string(got.size()) + " decoded frames unlike the source's " +
             std::to_string(want.size());
    }
    decoded += want.size();
  }
  return decoded == 0 ? "the source decodes to nothing" : "";
}

bool MemoryMp4File::WriteMP4Data(const unsigned char* data, size_t size) {
  if (fail) return false;
  if (position + size > bytes.size()) bytes.resize(position + size);
  std::copy(data, data + size, bytes.begin() + static_cast<long>(position));
  position += size;
  return true;
}

bool MemoryMp4File::SeekIntoMP4Data(long offset, long whence) {
  if (fail || whence != 0 || offset < 0) return false;
  seeks.push_back(offset);
  position = static_cast<size_t>(offset);
  return true;
}

source_tracks_t TracksOf(const std::vector<owned_frame_t>& frames, uint32_t width, uint32_t height) {
  source_tracks_t t;
  for (const owned_frame_t& owned : frames) {
    const media::frame_t& f = owned.frame;
    bool video = media::tagKind(f.tag) == 'V';
    if (video && !t.hasVideo) {
      t.hasVideo = true;
      t.video._pCodecBytes = owned.config.data();
      t.video._codecBytesSize = owned.config.size();
      t.video._timescale = f.dtsCts.clockRate;
      t.video._width = width;
      t.video._height = height;
      t.video._codecType = f.tag;
    } else if (!video && !t.hasAudio) {
      t.hasAudio = true;
      t.audio._pCodecBytes = owned.config.data();
      t.audio._codecBytesSize = 2;  // the AudioSpecificConfig without its extension
      t.audio._timescale = f.dtsCts.clockRate;
      t.audio._defaultSampleDuration = 1024;
      t.audio._channels = 2;
      t.audio._codecType = f.tag;
    }
  }
  // One frame's duration, from the first two video frames.
  int64_t first = -1;
  for (const owned_frame_t& owned : frames) {
    const media::frame_t& f = owned.frame;
    if (media::tagKind(f.tag) != 'V') continue;
    if (first >= 0) {
      t.video._defaultSampleDuration = static_cast<uint32_t>(f.dtsCts.dts - first);
      break;
    }
    first = f.dtsCts.dts;
  }
  return t;
}

std::vector<owned_frame_t> ReadAllFrames(const std::string& path) {
  NullReaderObserver observer;
  int error = 0;
  std::unique_ptr<ReaderMp4> reader(ReaderMp4::Create(&observer, path, false, error));
  std::vector<owned_frame_t> frames;
  if (!reader) return frames;
  while (const media::frame_t* f = reader->ReadFrame(error)) {
    owned_frame_t owned{*f, std::vector<uint8_t>(static_cast<size_t>(f->size)),
                        std::vector<uint8_t>(f->pCodecConfig, f->pCodecConfig + f->codecConfigSize)};
    if (media::CopyFramePayload(*f, owned.payload.data()) != f->size) return {};
    owned.frame.pCodecConfig = nullptr;
    owned.frame.pDataSource = nullptr;
    frames.push_back(std::move(owned));
  }
  return frames;
}

namespace {
const uint8_t kAvcC[] = {1, 0x42, 0xC0, 0x1E, 0xFF, 0xE1, 0, 4, 0x67, 0x42, 0xC0, 0x1E, 1, 0, 2, 0x68, 0xCE};
const uint8_t kAsc[] = {0x11, 0x90};
}  // namespace

MP4TrackInfo SmallVideoInfo() {
  MP4TrackInfo v;
  v._pCodecBytes = kAvcC;
  v._codecBytesSize = sizeof(kAvcC);
  v._defaultSampleDuration = 3000;
  v._timescale = 90000;
  v._width = 640;
  v._height = 480;
  v._codecType = media::TAG_VH264;
  v._rfc6381Codec = "avc1.42C01E";
  return v;
}

MP4TrackInfo SmallAudioInfo() {
  MP4TrackInfo a;
  a._pCodecBytes = kAsc;
  a._codecBytesSize = 2;
  a._defaultSampleDuration = 1024;
  a._timescale = 48000;
  a._channels = 2;
  a._codecType = media::TAG_AAAC;
  a._rfc6381Codec = "mp4a.40.2";
  return a;
}

std::vector<uint8_t> FindBoxBody(const std::vector<uint8_t>& file, const char* type) {
  std::string text(file.begin(), file.end());
  size_t at = text.find(std::string(type, 4));
  if (at == std::string::npos || at < 4) return {};
  size_t start = at - 4;
  uint32_t size = (uint32_t(file[start]) << 24) | (file[start + 1] << 16) | (file[start + 2] << 8) | file[start + 3];
  if (size < 8 || start + size > file.size()) return {};
  return std::vector<uint8_t>(file.begin() + static_cast<long>(start + 8), file.begin() + static_cast<long>(start + size));
}

}  // namespace testing
}  // namespace mediaformats
}  // namespace vrex
