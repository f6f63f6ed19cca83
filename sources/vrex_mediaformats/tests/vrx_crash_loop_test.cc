// Appends killed by SIGKILL: a real child process (tools/vrx_append loop) appends temporary
// files one after another, as new partitions and as growth, and dies at random moments or
// right after a chosen write of the file operations (sometimes torn). After each death,
// recover runs and the file must hold exactly what recover's rules keep: every append that
// completed, except those of a tail partition whose growth the kill tore (recover drops it
// whole); with salvage, every one of them. The append in flight may be there whole or not at
// all (with salvage, also as a prefix of its frames).
//
// VIDORA_CRASH_LOOP_KILLS=N sets the kills of each loop (default 200).
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <random>
#include <sstream>
#include <thread>

#include "mediaformats/errors.h"
#include "vrx_append_util.h"
#include "vrxfile/vrex_file_recover.h"

namespace vrex {
namespace mediaformats {
namespace {

using namespace vrx_testing;
using internal::VREXFileRecover;

constexpr long kFileSize = 256 * 1024;
constexpr int kBatch = 8;              // sources given to one child
constexpr long kWritesPerAppend = 5;   // header or contents length, copy, footer, chain (two)
const Bytes kFixed = {'c', 'r', 'a', 's', 'h', '-', 'l', 'o', 'o', 'p', 0, 1};

struct stats_t {
  long kills = 0, atWrite = 0, torn = 0, completed = 0, lost = 0;
  long inFlightWhole = 0, inFlightGone = 0, inFlightPart = 0, unrecoverable = 0, refilled = 0;
};

// How a child ends: killed after a delay, killed by itself at a write, or not at all.
enum class death_t { kDelay, kAtWrite, kNone };

class CrashLoop {
 public:
  explicit CrashLoop(bool salvage) : _salvage(salvage), _random(salvage ? 7 : 3) {
    CreateManagedFile(_dst.path(), kFileSize);
  }

  // One child's life and the check after its death. Returns how long the child lived.
  long Round(death_t death, long maxMicros) {
    const bool atWrite = death == death_t::kAtWrite;
    std::vector<std::string> args;
    long delay = -1;
    if (atWrite) {
      args.push_back("--crash-after-write");
      args.push_back(std::to_string(1 + _random() % (kBatch * kWritesPerAppend)));
      if (_random() % 2) args.push_back("--tear");
    } else if (death == death_t::kDelay) {
      delay = static_cast<long>(_random() % (maxMicros + 1));
    }
    TempFile log;
    args.insert(args.end(), {"loop", _dst.path(), log.path(), std::to_string(_random())});
    std::vector<const source_t*> batch;
    for (int i = 0; i < kBatch; ++i, ++_number) {
      // Sources of different lengths and starts, so that no two lay their packets alike.
      const int first = (_number * 11) % 40, count = 20 + (_number * 7) % 30;
      _sources.push_back(WriteSource(NumberedShape(_number, first, count)));
      batch.push_back(_sources.back().get());
      args.push_back(_sources.back()->file.path());
    }
    const auto start = std::chrono::steady_clock::now();
    const int status = RunTool(args, delay);
    const long lived = static_cast<long>(std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::steady_clock::now() - start).count());
    const bool killed = WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
    EXPECT_TRUE(killed || (WIFEXITED(status) && WEXITSTATUS(status) == 0)) << "child status " << status;
    if (killed) {
      ++_stats.kills;
      if (atWrite) ++_stats.atWrite;
      if (atWrite && args[2] == "--tear") ++_stats.torn;
    }
    Check(log.path(), batch);
    return lived;
  }

  const stats_t& stats() const { return _stats; }

 private:
  void Apply(std::vector<expected_partition_t>& model, const source_t* source, bool createNew,
             size_t frames = SIZE_MAX) {
    if (createNew || model.empty()) model.push_back({kFixed, {}, {}});
    model.back().sources.emplace_back(source, frames);
  }

  // Reads what the child says it did, recovers, and matches the file with what may be there.
  void Check(const std::string& logPath, const std::vector<const source_t*>& batch) {
    std::ifstream log(logPath);
    std::string kind;
    long index = 0, value = 0;
    const source_t* inFlight = nullptr;
    bool inFlightNew = false, full = false;
    while (log >> kind >> index) {
      if (kind == "F") full = true;
      if (kind == "F") break;
      log >> value;
      if (kind == "B") {
        inFlight = batch[index];
        inFlightNew = value != 0;
      } else {
        Apply(_model, inFlight, inFlightNew);
        inFlight = nullptr;
        ++_stats.completed;
      }
    }
    const Bytes before = ReadFileBytes(_dst.path());
    last_partition_info_t info;
    const int recovered = VREXFileRecover(_dst.path(), &info, _salvage).Recover();
    const bool growth = inFlight != nullptr && !inFlightNew && !_model.empty();
    if (!_salvage && recovered == ERR_MEDIAFORMATS_DELETE_OFFSET &&
        VREXFileRecover(_dst.path(), &info).Check() != 0) {
      // The kill tore the first partition: recover cannot help, and leaves the file as it is.
      EXPECT_TRUE(growth ? _model.size() == 1 : _model.empty());
      EXPECT_EQ(ReadFileBytes(_dst.path()), before);
      _stats.lost += growth ? static_cast<long>(_model[0].sources.size()) : 0;
      ++_stats.unrecoverable;
      Reset();
      return;
    }
    std::vector<std::pair<const char*, std::vector<expected_partition_t>>> candidates;
    candidates.push_back({"without the append in flight", _model});
    if (inFlight != nullptr) {
      std::vector<expected_partition_t> whole = _model;
      Apply(whole, inFlight, inFlightNew);
      candidates.push_back({"with the append in flight", whole});
      if (_salvage) {
        // As many frames as the file holds past what completed.
        std::vector<expected_partition_t> part = _model;
        Apply(part, inFlight, inFlightNew, 0);
        part.back().sources.back().frames = FramesKept(part);
        if (part.back().sources.back().frames > 0) candidates.push_back({"with part of it", part});
      } else if (growth) {
        candidates.push_back({"without the torn tail partition",
                              std::vector<expected_partition_t>(_model.begin(), _model.end() - 1)});
      }
    }
    std::string mismatches;
    for (size_t i = 0; i < candidates.size(); ++i) {
      const std::string mismatch = Mismatch(_dst.path(), candidates[i].second, false);
      if (!mismatch.empty()) {
        mismatches += std::string("\n  ") + candidates[i].first + ": " + mismatch;
        continue;
      }
      if (i == 0 && inFlight != nullptr) ++_stats.inFlightGone;
      if (i == 1) ++_stats.inFlightWhole;
      if (i == 2 && _salvage) ++_stats.inFlightPart;
      if (i == 2 && !_salvage) _stats.lost += static_cast<long>(_model.back().sources.size());
      _model = candidates[i].second;
      EXPECT_EQ(recovered, _model.empty() ? ERR_MEDIAFORMATS_DELETE_OFFSET : 0);
      if (full) Reset();
      return;
    }
    FAIL() << "the file matches nothing recover may leave (recover=" << recovered << ")" << mismatches;
  }

  // How many frames of the last append of `part` the file's last partition holds.
  size_t FramesKept(const std::vector<expected_partition_t>& part) {
    int err = 0;
    const std::vector<partition_t> partitions = ReadPartitions(_dst.path(), err);
    long contents = partitions.empty() ? -1 : partitions.back()._contents._size;
    const std::vector<appended_t>& appends = part.back().sources;
    for (size_t i = 0; i + 1 < appends.size(); ++i) contents -= appends[i].ContentsSize();
    const source_t& source = *appends.back().source;
    for (size_t frames = 1; partitions.size() == part.size() && frames <= source.frameEnds.size(); ++frames) {
      if (source.frameEnds[frames - 1] == contents) return frames;
    }
    return 0;
  }

  void Reset() {
    ++_stats.refilled;
    _model.clear();
    CreateManagedFile(_dst.path(), kFileSize);
  }

  const bool _salvage;
  std::mt19937 _random;
  TempFile _dst;
  int _number = 0;
  std::vector<std::unique_ptr<source_t>> _sources;
  std::vector<expected_partition_t> _model;
  stats_t _stats;
};

long KillsWanted() {
  const char* text = getenv("VIDORA_CRASH_LOOP_KILLS");
  return text != nullptr ? std::max(1L, atol(text)) : 200;
}

// How long a child takes to append a whole batch, from start to end.
long BatchMicros() {
  CrashLoop probe(false);
  return probe.Round(death_t::kNone, 0);
}

void RunLoop(bool salvage) {
  const long maxMicros = BatchMicros();
  printf("a child appends its %d sources in %ld us\n", kBatch, maxMicros);
  CrashLoop loop(salvage);
  for (long round = 0; loop.stats().kills < KillsWanted() && round < 4 * KillsWanted(); ++round) {
    loop.Round(round % 2 == 1 ? death_t::kAtWrite : death_t::kDelay, maxMicros);
    if (::testing::Test::HasFatalFailure()) return;
  }
  const stats_t& s = loop.stats();
  printf("crash loop%s: kills=%ld (at a write %ld, torn %ld), appends completed before a kill=%ld, "
         "lost=%ld, in flight: whole %ld, gone %ld, part %ld; files beyond recover %ld, refilled %ld\n",
         salvage ? " with salvage" : "", s.kills, s.atWrite, s.torn, s.completed, s.lost,
         s.inFlightWhole, s.inFlightGone, s.inFlightPart, s.unrecoverable, s.refilled);
  EXPECT_GE(s.kills, KillsWanted());
  if (salvage) {
    EXPECT_EQ(s.lost, 0) << "salvage loses nothing that completed";
  }
}

TEST(VrxCrashLoopTest, RecoverKeepsWhatCompleted) { RunLoop(false); }

TEST(VrxCrashLoopTest, SalvageKeepsEverythingThatCompleted) { RunLoop(true); }

}  // namespace
}  // namespace mediaformats
}  // namespace vrex
