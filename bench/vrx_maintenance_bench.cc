// Maintenance of a 4 GiB managed file holding 24 one-hour partitions (30 fps, a key frame
// with its sync node every 2 s, AAC between; about 150 MB an hour), made at start by
// VREXFileUtils from temporary files written by WriterVREX. Page cache warm. Each operation is
// compared with read() of as many bytes as it touched (read and written, counted by the
// kernel), in one go: so the ratio tells what the operation costs beyond the bytes it must
// touch, and the byte count shows that these grow with what is cut, not with the file.
//   Cut the oldest hour    the first partition, whole
//   Cut a middle minute    one minute in the 13th hour: frames under a skip packet, 30 seek
//                          entries out of the footer
//   Estimate one hour      the 13th hour: the key frames before its start and after its end
//   Check                  recover's walk: every partition through header, footer and table
// A cut is undone between iterations, outside the measured time, from a copy of the file.
// Run with --benchmark_repetitions=3 for medians.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "abstraction/fastfileoperations.h"
#include "abstraction/write_hook.h"
#include "bench_ratio.h"
#include "mediaformats/vrx/reader_vrex.h"
#include "mediaformats/vrx/vrex_file_utils.h"
#include "vrx_bench_files.h"

namespace {

using vrex::mediaformats::VREXFileUtils;

constexpr long k4GiB = 1L << 32;
constexpr long kHourMillis = 3600 * 1000;
constexpr long kStart = 1763800000000L;

// Bytes read and written by this process so far, and the calls that did it, as the kernel
// counts them.
struct io_t {
  long bytes = 0, calls = 0;
};
io_t TouchedSoFar() {
  std::ifstream io("/proc/self/io");
  std::string key;
  long value = 0;
  io_t total;
  while (io >> key >> value) {
    if (key == "rchar:" || key == "wchar:") total.bytes += value;
    if (key == "syscr:" || key == "syscw:") total.calls += value;
  }
  return total;
}

// The file, and a copy of it as made from which a cut is undone.
struct day_t {
  std::string path, pristine;
};

const day_t& Day() {
  static const day_t day = [] {
    day_t made{vidora_bench::ScratchPath("day.vrx"), vidora_bench::ScratchPath("day-pristine.vrx")};
    if (VREXFileUtils::VRXFileCreate(made.path, k4GiB, 0644) < 0) abort();
    static const unsigned char kFixed[12] = {0};
    for (int hour = 0; hour < 24; ++hour) {
      const std::string name = "hour-" + std::to_string(hour) + ".vrx";
      const std::string source = vidora_bench::WriteTemporary(name.c_str(), 3600 * 30, kStart + hour * kHourMillis, 0.06);
      if (VREXFileUtils::VRXFileAppend(source, made.path, kFixed, nullptr, 0, true) <= 0) abort();
      unlink(source.c_str());
    }
    if (VREXFileUtils::VRXFileClose(made.path) < 0) abort();
    const int from = open(made.path.c_str(), O_RDONLY);
    const int to = open(made.pristine.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (vrex::abstraction::FastCopyFile(to, 0, from, 0, -1) < 0) abort();
    close(from);
    close(to);
    return made;
  }();
  return day;
}

// The ranges a cut wrote, so that they can be put back from the copy.
std::vector<std::pair<long, long>> written;
void RecordWrite(int fd, long length) { written.emplace_back(lseek(fd, 0, SEEK_CUR) - length, length); }

void Undo() {
  const int from = open(Day().pristine.c_str(), O_RDONLY);
  const int to = open(Day().path.c_str(), O_WRONLY);
  std::vector<char> bytes;
  for (const auto& range : written) {
    bytes.resize(static_cast<size_t>(range.second));
    if (pread(from, bytes.data(), bytes.size(), range.first) != range.second ||
        pwrite(to, bytes.data(), bytes.size(), range.first) != range.second) {
      abort();
    }
  }
  written.clear();
  close(from);
  close(to);
}

int Cut(long start, long end) {
  vrex::abstraction::internal::SetWriteHook(RecordWrite);
  const int err = VREXFileUtils::VRXFileDeleteContent(Day().path, start, end, false);
  vrex::abstraction::internal::SetWriteHook(nullptr);
  return err;
}

int Estimate(long start, long end) {
  int err = 0;
  auto reader = vrex::mediaformats::ReaderVREX::Create(nullptr, {Day().path}, true, 0, -1, err);
  if (!reader) return err;
  err = reader->SeekToWallClock(start, vrex::mediaformats::SNAP_TO_IDR_BEFORE).second;
  const long first = reader->GetCurrentRawOffset();
  if (err >= 0) err = reader->SeekToWallClock(end, vrex::mediaformats::SNAP_TO_IDR_AFTER).second;
  return err < 0 ? err : reader->GetCurrentRawOffset() - first > 0 ? 0 : -1;
}

struct operation_t {
  const char* group;  // "<group>/<what>" is the benchmark, "<group>/read()" its baseline
  const char* what;
  int (*run)();
  bool changes;
};

const operation_t kOperations[] = {
    {"Cut the oldest hour", "VRXFileDeleteContent", [] { return Cut(0, kStart + kHourMillis - 1); }, true},
    {"Cut a middle minute", "VRXFileDeleteContent",
     [] { return Cut(kStart + 12 * kHourMillis + 1800000, kStart + 12 * kHourMillis + 1860000); }, true},
    {"Estimate one hour", "SeekToWallClock twice",
     [] { return Estimate(kStart + 12 * kHourMillis, kStart + 13 * kHourMillis); }, false},
    {"Check", "VRXFileCheckPartitions", [] { return VREXFileUtils::VRXFileCheckPartitions(Day().path); }, false},
};

// What one run of each operation touches.
const std::map<std::string, long>& Touched() {
  static const std::map<std::string, long> touched = [] {
    Day();  // made before anything is counted
    std::map<std::string, long> counts;
    for (const operation_t& op : kOperations) {
      const io_t before = TouchedSoFar();
      if (op.run() < 0) abort();
      const io_t after = TouchedSoFar();
      counts[op.group] = after.bytes - before.bytes;
      printf("%-20s touches %9ld bytes (%.4f%% of the file) in %ld reads and writes\n", op.group,
             after.bytes - before.bytes, 100.0 * (after.bytes - before.bytes) / k4GiB, after.calls - before.calls);
      if (op.changes) Undo();
    }
    return counts;
  }();
  return touched;
}

void BM_Operation(benchmark::State& state, const operation_t* op) {
  Touched();
  for (auto _ : state) {
    if (op->run() < 0) state.SkipWithError(op->group);
    if (op->changes) {
      state.PauseTiming();
      Undo();
      state.ResumeTiming();
    }
  }
  state.counters["touched"] = static_cast<double>(Touched().at(op->group));
}

void BM_Read(benchmark::State& state, const operation_t* op) {
  const long count = Touched().at(op->group);
  std::vector<char> buffer(static_cast<size_t>(count));
  const int fd = open(Day().path.c_str(), O_RDONLY);
  for (auto _ : state) {
    if (pread(fd, buffer.data(), buffer.size(), 0) != count) state.SkipWithError("read");
  }
  close(fd);
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> baselines;
  for (const operation_t& op : kOperations) {
    const std::string group = op.group;
    benchmark::RegisterBenchmark((group + "/read()").c_str(), BM_Read, &op)->Unit(benchmark::kMicrosecond)->UseRealTime();
    benchmark::RegisterBenchmark((group + "/" + op.what).c_str(), BM_Operation, &op)
        ->Unit(benchmark::kMicrosecond)->UseRealTime();
    baselines.push_back(group + "/read()/real_time");
  }
  return vidora_bench::RunWithRatios(argc, argv, baselines);
}
