// Recording into managed files, each figure against a baseline of the same run:
//   Create/*       a 4 GiB managed file (fallocate and the skip chain) against fallocate alone;
//   Append/*       a one-minute temporary file of 1080p-sized H.264 (about 30 MB, written by
//                  WriterVREX) appended into a 4 GiB file, against `cp` of the same file;
//   FirstAppend/*  a 1-second append to a 4 GiB file of 10,000 partitions through a new
//                  appender (cold: the file's tail is worked out again) against the cached one.
// Files live in /tmp and are removed at exit. Run with --benchmark_repetitions=3 for medians.
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "abstraction/fastfileoperations.h"
#include "abstraction/filelock.h"
#include "bench_ratio.h"
#include "mediaformats/errors.h"
#include "mediaformats/vrx/writer_vrex.h"
#include "vrxfile/vrex_file_appender.h"
#include "vrxfile/vrex_file_appender_cache.h"

extern char** environ;

namespace {

using vrex::mediaformats::WriterVREX;
using vrex::mediaformats::internal::VREXFileAppender;
using vrex::mediaformats::internal::VREXFileAppenderCache;

constexpr long k4GiB = 1L << 32;

std::string ScratchPath(const char* name) {
  static std::vector<std::string> made;
  made.push_back("/tmp/vidora_append_bench_" + std::to_string(getpid()) + "_" + name);
  if (made.size() == 1) {
    atexit([] {
      for (const std::string& path : made) unlink(path.c_str());
    });
  }
  return made.back();
}

// Writes each packet straight to a descriptor.
class FileSink : public WriterVREX::Observer {
 public:
  explicit FileSink(int fd) : _fd(fd) {}
  bool WriteVREXData(const WriterVREX::message_t& message) override {
    return writev(_fd, message.pieces, message.count) == static_cast<ssize_t>(message.total);
  }

 private:
  int _fd;
};

// A temporary file as a camera leaves it: `frames` of 30 fps video, a key frame with its
// sync node every 2 s, with AAC frames between, in one partition. At full `scale` (1.0) about
// 4 Mbit/s, like 1080p H.264: key frames near 120 KB, others near 16 KB.
std::string WriteTemporary(const char* name, long frames, long startMillis, double scale) {
  const std::string path = ScratchPath(name);
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  FileSink sink(fd);
  int err = 0;
  auto writer = WriterVREX::Create(0xFFFFFFFF, &sink, err);
  WriterVREX::partition_info_t info;
  writer->OpenPartition(&info);
  std::mt19937 random(static_cast<unsigned>(frames));
  std::vector<unsigned char> payload(400 * 1024);
  for (unsigned char& byte : payload) byte = static_cast<unsigned char>(random());
  std::uniform_int_distribution<size_t> delta(12000 * scale, 20000 * scale);
  std::uniform_int_distribution<size_t> keySize(100000 * scale, 140000 * scale);
  vrex::media::clock_sync_t sync;
  for (long frame = 0; frame < frames; ++frame) {
    const long dts = frame * 3000;
    if (frame % 60 == 0) {
      sync.sc = vrex::media::timestamp_t(dts, 90000);
      sync.wc = vrex::media::timestamp_t(startMillis + frame * 1000 / 30, 1000);
      writer->WriteClockSync(sync);
    }
    const size_t size = frame % 60 == 0 ? keySize(random) : delta(random);
    writer->WriteVideoData(payload.data(), size, vrex::media::dts_cts_t(dts, 90000), frame % 60 == 0);
    writer->WriteAudioData(payload.data(), 300, vrex::media::dts_cts_t(frame * 1600 / 30, 48000));
  }
  writer->ClosePartition();
  close(fd);
  return path;
}

long CreateManaged(const std::string& path, long size) {
  const long fd = vrex::abstraction::FastAllocateFile(path.c_str(), size, 0644);
  if (fd < 0 || VREXFileAppender::AddSkipPackets(static_cast<int>(fd), 0, size, false) < 0) abort();
  close(static_cast<int>(fd));
  return size;
}

std::shared_ptr<VREXFileAppender> AppenderOf(const std::string& path) {
  vrex::abstraction::file_id_t id;
  int err = id.Init(path);
  std::shared_ptr<VREXFileAppender> appender = err < 0 ? nullptr : VREXFileAppender::Create(id, err);
  if (!appender) abort();
  return appender;
}

void Evict(const std::string& path) {
  vrex::abstraction::file_id_t id;
  id.Init(path);
  VREXFileAppenderCache::Evict(id);
}

// Removes `path` outside the measured time.
void RemoveUntimed(benchmark::State& state, const std::string& path) {
  state.PauseTiming();
  unlink(path.c_str());
  state.ResumeTiming();
}

void BM_Create_fallocate(benchmark::State& state) {
  const std::string path = ScratchPath("fallocate.vrx");
  for (auto _ : state) {
    const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0644);
    if (fallocate(fd, 0, 0, k4GiB) != 0) state.SkipWithError("fallocate");
    close(fd);
    RemoveUntimed(state, path);
  }
}
BENCHMARK(BM_Create_fallocate)->Name("Create/fallocate")->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_Create_Managed(benchmark::State& state) {
  const std::string path = ScratchPath("created.vrx");
  for (auto _ : state) {
    CreateManaged(path, k4GiB);
    RemoveUntimed(state, path);
  }
}
BENCHMARK(BM_Create_Managed)->Name("Create/managed file")->Unit(benchmark::kMillisecond)->UseRealTime();

const std::string& OneMinute() {
  static const std::string path = WriteTemporary("minute.vrx", 60 * 30, 1763800000000L, 1.0);
  return path;
}

void BM_Append_cp(benchmark::State& state) {
  const std::string copy = ScratchPath("cp.vrx");
  const char* argv[] = {"cp", OneMinute().c_str(), copy.c_str(), nullptr};
  for (auto _ : state) {
    pid_t pid = 0;
    int status = 0;
    if (posix_spawnp(&pid, "cp", nullptr, nullptr, const_cast<char**>(argv), environ) != 0 ||
        waitpid(pid, &status, 0) != pid || status != 0) {
      state.SkipWithError("cp");
    }
    RemoveUntimed(state, copy);
  }
}
BENCHMARK(BM_Append_cp)->Name("Append/cp")->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_Append_Appender(benchmark::State& state) {
  const std::string path = ScratchPath("append.vrx");
  CreateManaged(path, k4GiB);
  static const unsigned char kFixed[12] = {0};
  bool createNew = true;
  for (auto _ : state) {
    std::shared_ptr<VREXFileAppender> appender = AppenderOf(path);
    long added = appender->Append(OneMinute(), kFixed, nullptr, 0, createNew);
    if (added == vrex::mediaformats::ERR_MEDIAFORMATS_NOT_ENOUGH_SPACE) {
      state.PauseTiming();
      appender.reset();
      Evict(path);
      CreateManaged(path, k4GiB);
      appender = AppenderOf(path);
      state.ResumeTiming();
      added = appender->Append(OneMinute(), kFixed, nullptr, 0, createNew);
    }
    if (added <= 0) state.SkipWithError("append");
    createNew = !createNew;
  }
  Evict(path);
}
BENCHMARK(BM_Append_Appender)->Name("Append/VREXFileAppender")->Unit(benchmark::kMillisecond)->UseRealTime();

// A 4 GiB file of 10,000 small partitions, and the one-second source appended to it.
struct crowded_t {
  std::string path, source;
};
const crowded_t& Crowded() {
  static const crowded_t crowded = [] {
    crowded_t made{ScratchPath("crowded.vrx"), WriteTemporary("second.vrx", 30, 1763900000000L, 1.0)};
    CreateManaged(made.path, k4GiB);
    const std::string small = WriteTemporary("small.vrx", 2, 1763800000000L, 0.01);
    std::shared_ptr<VREXFileAppender> appender = AppenderOf(made.path);
    static const unsigned char kFixed[12] = {0};
    for (int i = 0; i < 10000; ++i) {
      if (appender->Append(small, kFixed, nullptr, 0, true) <= 0) abort();
    }
    return made;
  }();
  return crowded;
}

void FirstAppend(benchmark::State& state, bool cold) {
  const crowded_t& crowded = Crowded();
  static const unsigned char kFixed[12] = {0};
  for (auto _ : state) {
    if (cold) Evict(crowded.path);
    if (AppenderOf(crowded.path)->Append(crowded.source, kFixed, nullptr, 0, true) <= 0) {
      state.SkipWithError("append");
    }
  }
}
void BM_FirstAppend_Warm(benchmark::State& state) { FirstAppend(state, false); }
void BM_FirstAppend_Cold(benchmark::State& state) { FirstAppend(state, true); }
// A bounded count, so that the repetitions do not fill the file.
BENCHMARK(BM_FirstAppend_Warm)->Name("FirstAppend/warm")->Unit(benchmark::kMicrosecond)->UseRealTime()->Iterations(300);
BENCHMARK(BM_FirstAppend_Cold)->Name("FirstAppend/cold")->Unit(benchmark::kMicrosecond)->UseRealTime()->Iterations(300);

}  // namespace

int main(int argc, char** argv) {
  return vidora_bench::RunWithRatios(
      argc, argv, {"Create/fallocate/real_time", "Append/cp/real_time", "FirstAppend/warm/iterations:300/real_time"});
}
