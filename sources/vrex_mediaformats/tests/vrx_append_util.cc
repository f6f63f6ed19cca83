// Helpers of the appender and recover tests: managed files, sources, and the comparison of a
// managed file with what it should hold.
#include "vrx_append_util.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>

#include "abstraction/byte_order.h"
#include "abstraction/fastfileoperations.h"
#include "mediaformats/vrx/vrx_packet.h"
#include "vrxfile/vrex_file_appender.h"
#include "vrxfile/vrex_file_appender_cache.h"

extern char** environ;

namespace vrex {
namespace mediaformats {
namespace vrx_testing {

using abstraction::LoadBE32;
using abstraction::LoadBE64;

namespace {

long DescriptorSize(const media::dts_cts_t& ts, unsigned long payload) {
  const media::timestamp_t dts = ts.Dts();
  return WriterVREX::ComputeRequiredSpace(&dts, ts.cts, payload);
}

std::string DescribeFrame(const frame_record_t& frame) {
  std::ostringstream text;
  text << "tid=" << frame.tid << " key=" << frame.key << " dts=" << frame.dts << " cts=" << frame.cts
       << " rate=" << frame.rate << " wc=" << frame.wallClock << " size=" << frame.bytes.size();
  return text.str();
}

bool SameFrame(const frame_record_t& a, const frame_record_t& b) {
  return a.tid == b.tid && a.key == b.key && a.dts == b.dts && a.cts == b.cts && a.rate == b.rate &&
         a.wallClock == b.wallClock && a.bytes == b.bytes;
}

// Checks the entries of `partition` against the wall clocks of the key frames kept, and that
// each one leads a fresh reader to that key frame.
std::string SeekTableMismatch(const std::string& path, const partition_t& partition,
                              const std::vector<long>& wallClocks) {
  std::ostringstream why;
  if (partition._seekPointsCount != wallClocks.size()) {
    why << "seek points " << partition._seekPointsCount << " instead of " << wallClocks.size();
    return why.str();
  }
  const long contentsEnd = partition._contents._offset + partition._contents._size;
  for (size_t i = 0; i < wallClocks.size(); ++i) {
    const seek_point_t& point = partition._pSeekPoints[i];
    if (point._wallClockMillis != wallClocks[i] || point._offset < partition._contents._offset ||
        point._offset >= contentsEnd) {
      why << "seek point " << i << " is " << point._offset << "/" << point._wallClockMillis
          << ", wanted " << wallClocks[i] << " inside the contents";
      return why.str();
    }
    int err = 0;
    auto reader = ReaderVREX::Create(nullptr, path.c_str(), true, point._offset, -1, err);
    const media::frame_t* frame = reader ? reader->ReadFrame(err) : nullptr;
    if (frame == nullptr || frame->trackId == VRX_TID_AAC_ADTS || !frame->keyFrame ||
        (frame->clockSync->IsValid() &&
         frame->clockSync->ComputeWallClock(frame->dtsCts.Dts(), 1000) != wallClocks[i])) {
      why << "seek point " << i << " at " << point._offset << " does not lead to its key frame";
      return why.str();
    }
  }
  return "";
}

}  // namespace

long appended_t::ContentsSize() const {
  if (frames >= source->frameEnds.size()) return source->contentsSize;
  return frames == 0 ? 0 : source->frameEnds[frames - 1];
}

void CreateManagedFile(const std::string& path, long size) {
  const long fd = abstraction::FastAllocateFile(path.c_str(), size, 0644);
  EXPECT_GE(fd, 0);
  EXPECT_EQ(internal::VREXFileAppender::AddSkipPackets(static_cast<int>(fd), 0, size, false), 0);
  close(static_cast<int>(fd));
}

Destination::~Destination() { internal::VREXFileAppenderCache::Evict(_id); }

long Destination::Append(const std::string& src, bool createNew, const Bytes& fixed,
                         const Bytes& dynamic) {
  int err = 0;
  std::shared_ptr<internal::VREXFileAppender> appender = internal::VREXFileAppender::Create(_id, err);
  if (!appender) return err;
  const long added = appender->Append(src, fixed.data(), dynamic.empty() ? nullptr : dynamic.data(),
                                      dynamic.size(), createNew);
  if (added < 0) internal::VREXFileAppenderCache::Evict(_id);
  return added;
}

shape_t NumberedShape(int n, int first, int count) {
  shape_t shape;
  shape.name = "numbered";
  shape.firstFrame = first;
  shape.frameCount = count;
  shape.wallClockBase += n * 4000L;
  return shape;
}

std::unique_ptr<source_t> WriteSource(const shape_t& shape) {
  std::unique_ptr<source_t> source(new source_t());
  source->recording = MakeRecording(shape);
  const Bytes& bytes = source->recording.bytes;
  source->file.Write(bytes);
  const long size = static_cast<long>(bytes.size());
  source->contentsSize = size;
  source->bare = !shape.partitioned;
  if (shape.partitioned) {
    vrx_packet_t header;
    EXPECT_EQ(header.Parse(bytes.data(), 32, 0, size), 1);
    source->contentsOffset = header.packetSize;
    source->contentsSize = size - static_cast<long>(LoadBE32(&bytes[size - 4])) - 4 - header.packetSize;
  }
  for (const frame_record_t& frame : source->recording.frames) {
    if (frame.wallClock >= 0) {
      source->appendTs = media::dts_cts_t(frame.dts, frame.rate, frame.cts);
      break;
    }
  }
  int err = 0;
  auto reader = ReaderVREX::Create(nullptr, source->file.path().c_str(), true, 0, -1, err);
  while (reader && reader->ReadFrame(err) != nullptr) {
    source->frameEnds.push_back(reader->GetCurrentRawOffset() - source->contentsOffset);
  }
  EXPECT_EQ(source->frameEnds.size(), source->recording.frames.size());
  return source;
}

int RunTool(const std::vector<std::string>& args, long killAfterMicros) {
  std::vector<char*> argv = {const_cast<char*>(VIDORA_VRX_APPEND_TOOL)};
  for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t pid = 0;
  EXPECT_EQ(posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ), 0);
  posix_spawn_file_actions_destroy(&actions);
  if (killAfterMicros >= 0) {
    std::this_thread::sleep_for(std::chrono::microseconds(killAfterMicros));
    kill(pid, SIGKILL);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  return status;
}

long WalkSkipChain(const std::string& path, long from, std::string& error) {
  const int fd = open(path.c_str(), O_RDONLY);
  const long size = lseek(fd, 0, SEEK_END);
  long at = from;
  while (at < size) {
    unsigned char header[12];
    unsigned char trailer[4];
    if (size - at < kEmptySkipPacketSize || pread(fd, header, 12, at) != 12 ||
        memcmp(header, kSkipPacketHeader, sizeof kSkipPacketHeader) != 0) {
      error = "no skip packet at " + std::to_string(at);
      break;
    }
    const long payload = LoadBE32(header + 8);
    if (payload + kEmptySkipPacketSize > size - at || pread(fd, trailer, 4, at + 12 + payload) != 4 ||
        LoadBE32(trailer) != payload + 12) {
      error = "skip packet at " + std::to_string(at) + " ends wrong";
      break;
    }
    at += payload + kEmptySkipPacketSize;
  }
  close(fd);
  return at == size ? from : -1;
}

std::string Mismatch(const std::string& path, const std::vector<expected_partition_t>& want,
                     bool exactFooters) {
  std::ostringstream why;
  int err = 0;
  const std::vector<partition_t> got = ReadPartitions(path, err);
  if (err != 0) return "the partition walk failed: err=" + std::to_string(err);
  if (got.size() != want.size()) {
    why << got.size() << " partitions instead of " << want.size();
    return why.str();
  }
  const Bytes file = ReadFileBytes(path);
  std::vector<frame_record_t> wantFrames;
  long at = 0;
  for (size_t j = 0; j < want.size(); ++j) {
    const expected_partition_t& w = want[j];
    const partition_t& p = got[j];
    why << "partition " << j << ": ";
    if (p._offset != at) return why.str() + "at " + std::to_string(p._offset) + " instead of " + std::to_string(at);
    if (memcmp(p._fixedMetadata, w.fixed.data(), kFixedMetadataSize) != 0) return why.str() + "fixed metadata";
    if (p._dynamicMetadata._size != static_cast<long>(w.dynamic.size()) ||
        !std::equal(w.dynamic.begin(), w.dynamic.end(), file.begin() + p._dynamicMetadata._offset)) {
      return why.str() + "dynamic metadata";
    }
    const long header = DescriptorSize(w.sources[0].source->appendTs, kPartitionHeaderFixedPayload + w.dynamic.size());
    if (p._contents._offset - p._offset != header) return why.str() + "header size";
    Bytes contents;
    std::vector<long> wallClocks;
    media::clock_sync_t lastSync;
    for (size_t k = 0; k < w.sources.size(); ++k) {
      const source_t& source = *w.sources[k].source;
      const size_t kept = std::min(w.sources[k].frames, source.recording.frames.size());
      const long end = w.sources[k].ContentsSize();
      const Bytes& bytes = source.recording.bytes;
      contents.insert(contents.end(), bytes.begin() + source.contentsOffset,
                      bytes.begin() + source.contentsOffset + end);
      for (size_t f = 0; f < kept; ++f) {
        frame_record_t frame = source.recording.frames[f];
        // Frames ahead of the source's first sync node run on the one before them.
        if (frame.wallClock < 0) frame.wallClock = lastSync.ComputeWallClock(media::timestamp_t(frame.dts, frame.rate), 1000);
        const bool entry = source.bare ? f == 0 : frame.tid != VRX_TID_AAC_ADTS && frame.key;
        if (entry && frame.wallClock >= 0) wallClocks.push_back(frame.wallClock);
        wantFrames.push_back(frame);
      }
      if (source.recording.lastSync.IsValid()) lastSync = source.recording.lastSync;
    }
    if (p._contents._size != static_cast<long>(contents.size()) ||
        !std::equal(contents.begin(), contents.end(), file.begin() + p._contents._offset)) {
      return why.str() + "contents of " + std::to_string(p._contents._size) + " bytes instead of " +
             std::to_string(contents.size());
    }
    const std::string table = SeekTableMismatch(path, p, wallClocks);
    if (!table.empty()) return why.str() + table;
    const long footer = DescriptorSize(w.sources.back().source->appendTs,
                                       kPartitionFooterFixedPayload + wallClocks.size() * kSeekPointSize);
    if (exactFooters && p._size != header + p._contents._size + footer) return why.str() + "footer size";
    at = p._offset + p._size;
    why.str("");
  }
  auto reader = ReaderVREX::Create(nullptr, path.c_str(), true, 0, -1, err);
  const std::vector<frame_record_t> frames = ReadAll(*reader, err);
  if (err != 0) return "the frame walk failed: err=" + std::to_string(err);
  for (size_t i = 0; i < std::min(frames.size(), wantFrames.size()); ++i) {
    if (!SameFrame(frames[i], wantFrames[i])) {
      return "frame " + std::to_string(i) + " is " + DescribeFrame(frames[i]) + ", wanted " +
             DescribeFrame(wantFrames[i]);
    }
  }
  if (frames.size() != wantFrames.size()) {
    return std::to_string(frames.size()) + " frames instead of " + std::to_string(wantFrames.size());
  }
  std::string error;
  if (WalkSkipChain(path, at, error) != at) return "skip chain: " + error;
  return "";
}

}  // namespace vrx_testing
}  // namespace mediaformats
}  // namespace vrex
