// Recording into managed files, each figure against a baseline of the same run:
//   Create/*       a 4 GiB managed file (fallocate and the skip chain) against fallocate alone;
//   Append/*       a one-minute temporary file of 1080p-sized H.264 (about 30 MB, written by
//                  WriterVREX) appended into a 4 GiB file, against `cp` of the same file;
//   FirstAppend/*  a 1-second append to a 4 GiB file of 10,000 partitions through a new
//                  appender (cold: the file's tail is worked out again) against the cached one.
// Files live in VIDORA_BENCH_DIR (else /tmp) and are removed at exit. Run with
// --benchmark_repetitions=3 for medians.
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
#include "vrx_bench_files.h"
#include "mediaformats/errors.h"
#include "mediaformats/vrx/writer_vrex.h"
#include "vrxfile/vrex_file_appender.h"
#include "vrxfile/vrex_file_appender_cache.h"

extern char** environ;

namespace {

using vidora_bench::ScratchPath;
using vidora_bench::WriteTemporary;
using vrex::mediaformats::internal::VREXFileAppender;
using vrex::mediaformats::internal::VREXFileAppenderCache;

constexpr long k4GiB = 1L << 32;

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
