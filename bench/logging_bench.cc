// What one log call costs the thread that logs, with AddonLogger and a file appender behind
// it, against writing the same line to /dev/null, to a file on disk, and to a file on disk
// with fdatasync. The appender only queues the line: its writer thread does the file I/O, so
// the caller's cost stays the same however slow the disk is.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "abstraction/logging.h"
#include "bench_ratio.h"
#include "common/logger/addon_logger.h"

namespace {

using vrex::abstraction::registerLoggingCallback;
using vrex::nodejs::common::AddonLogger;

constexpr int kErr = -2146762746;

// The directory of this run's files, removed at exit.
const std::string& TempDir() {
  static const std::string dir = [] {
    char pattern[] = "/tmp/vidora-logging-bench-XXXXXX";
    const char* made = mkdtemp(pattern);
    if (made == nullptr) abort();
    return std::string(made);
  }();
  return dir;
}

// A line as the appender writes it: header, body, " [n] " and a new line.
std::string SampleLine() {
  return "2026-11-22T12:00:00.000Z E logging_bench - <-# ReaderVREX::ReadFrame FAILED! Unable "
         "to read the packet header: err=" +
         std::to_string(kErr) + " [0] \n";
}

void Log() {
  LOGE << "<-# ReaderVREX::ReadFrame FAILED! Unable to read the packet header: err=" << kErr;
}

void DiscardLine(vrex::abstraction::log_level_t, unsigned long, const char* text,
                 unsigned long length) {
  benchmark::DoNotOptimize(text);
  benchmark::DoNotOptimize(length);
}

// Baseline: the cheapest system call that takes the line.
void BM_WriteDevNull(benchmark::State& state) {
  const std::string line = SampleLine();
  const int fd = open("/dev/null", O_WRONLY);
  for (auto _ : state) {
    if (write(fd, line.data(), line.size()) < 0) state.SkipWithError("write failed");
  }
  close(fd);
}
BENCHMARK(BM_WriteDevNull);

// Writing the line itself to a file on disk (into the page cache).
void BM_WriteFile(benchmark::State& state) {
  const std::string line = SampleLine();
  const std::string path = TempDir() + "/direct.log";
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0644);
  for (auto _ : state) {
    if (write(fd, line.data(), line.size()) < 0) state.SkipWithError("write failed");
  }
  close(fd);
  unlink(path.c_str());
}
BENCHMARK(BM_WriteFile);

// Writing the line to a file on disk and waiting for the disk: a slow disk's cost.
void BM_WriteFileDatasync(benchmark::State& state) {
  const std::string line = SampleLine();
  const std::string path = TempDir() + "/synced.log";
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0644);
  for (auto _ : state) {
    if (write(fd, line.data(), line.size()) < 0 || fdatasync(fd) != 0) {
      state.SkipWithError("write failed");
    }
  }
  close(fd);
  unlink(path.c_str());
}
BENCHMARK(BM_WriteFileDatasync);

// Formatting a line (time stamp, level, thread name, body) with a callback that drops it.
void BM_LogCallFormatOnly(benchmark::State& state) {
  registerLoggingCallback(&DiscardLine);
  for (auto _ : state) Log();
  registerLoggingCallback(nullptr);
}
BENCHMARK(BM_LogCallFormatOnly);

// The real thing: LOGE through AddonLogger into a rolling file appender.
void BM_LogCallFileAppender(benchmark::State& state) {
  registerLoggingCallback(&AddonLogger::Log);
  for (auto _ : state) Log();
  registerLoggingCallback(nullptr);
}
BENCHMARK(BM_LogCallFileAppender);

}  // namespace

int main(int argc, char** argv) {
  const std::string logPath = TempDir() + "/addon.log";
  AddonLogger::Instance().AddFileAppender(vrex::abstraction::LOG_LEVEL_ERROR, logPath,
                                          64 * 1024 * 1024, 2);
  const int result = vidora_bench::RunWithRatios(argc, argv, "BM_WriteDevNull");
  AddonLogger::Instance().RemoveAllAppenders();
  unlink(logPath.c_str());
  unlink((logPath + ".001").c_str());
  rmdir(TempDir().c_str());
  return result;
}
