// Cuts killed by SIGKILL: a child process (tools/vrx_append delete) cuts a managed file and
// dies right after each write of the file operations in turn, or at random moments; then
// recover runs, itself killed at one of its writes in a child every other round, and once
// more to the end. The file must then read clean and hold the frames of the state before the
// cut, after it, or after a whole step of it (whole partitions, the start partition's cut, the
// end partition's cut, each of which stands on its own), with seek tables that lead to the
// key frames kept. Writes of seek entries are also torn (their second half lost, as in a power
// cut); the words a cut writes (4, 8 and 12 bytes in one sector) either reach the disk or not.
//
// VIDORA_CRASH_LOOP_KILLS=N sets the random-moment kills: N / 20 for each cut (default 6).
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <chrono>
#include <random>

#include "abstraction/write_hook.h"
#include "mediaformats/errors.h"
#include "mediaformats/vrx/vrex_file_utils.h"
#include "vrx_cut_util.h"

namespace vrex {
namespace mediaformats {
namespace {

using namespace vrx_testing;

long At(long millis) { return CutFile::Base() + millis; }

struct crash_case_t {
  const char* name;
  long start, end;
  std::vector<cut_t> steps;
};

std::vector<long> writeLengths;
void RecordWrite(int, long length) { writeLengths.push_back(length); }

// The lengths of the writes a whole cut makes, recorded in this process on the file as made.
std::vector<long> WritesOf(const CutFile& file, const crash_case_t& c) {
  file.Restore();
  writeLengths.clear();
  abstraction::internal::SetWriteHook(RecordWrite);
  EXPECT_EQ(VREXFileUtils::VRXFileDeleteContent(file.path(), c.start, c.end, false), 0);
  abstraction::internal::SetWriteHook(nullptr);
  return writeLengths;
}

class CutCrashLoop {
 public:
  CutCrashLoop() : _file({{0, 1}, {2}, {4, 5}, {7}}), _random(11) {}

  // Kills the cut after write `write` (or after `delayMicros`), maybe kills a recover, then
  // recovers and checks.
  void Round(const crash_case_t& c, long write, long delayMicros, bool tear) {
    SCOPED_TRACE("killed at write " + std::to_string(write) + (tear ? " torn" : "") + " after " +
                 std::to_string(delayMicros) + " us, round " + std::to_string(_rounds + 1));
    _file.Restore();
    std::vector<std::string> args;
    if (write > 0) {
      args = {"--crash-after-write", std::to_string(write)};
      if (tear) args.push_back("--tear");
    }
    args.insert(args.end(), {"delete", _file.path(), std::to_string(c.start), std::to_string(c.end)});
    const int status = RunTool(args, delayMicros);
    ASSERT_TRUE(WIFSIGNALED(status) || (WIFEXITED(status) && WEXITSTATUS(status) == 0)) << status;
    if (WIFSIGNALED(status)) ++kills;
    if (++_rounds % 2 == 0) {
      const std::string at = std::to_string(1 + _random() % 6);
      const int recovering = RunTool({"--crash-after-write", at, "recover", _file.path()});
      if (WIFSIGNALED(recovering)) ++recoverKills;
    }
    last_partition_info_t info;
    const int recovered = VREXFileUtils::VRXFileRecover(_file.path(), &info);
    EXPECT_TRUE(recovered == 0 || recovered == ERR_MEDIAFORMATS_DELETE_OFFSET) << recovered;
    EXPECT_EQ(VREXFileUtils::VRXFileCheckPartitions(_file.path()), 0);
    const file_state_t got = ReadState(_file.path());
    ASSERT_EQ(got.framesErr, 0);
    ASSERT_EQ(got.partitionsErr, 0);
    std::string mismatches;
    for (size_t done = 0; done <= c.steps.size(); ++done) {
      const std::vector<cut_t> prefix(c.steps.begin(), c.steps.begin() + done);
      const std::string mismatch = _file.Mismatch(_file.After(prefix), true);
      if (mismatch.empty()) {
        ++states[done == 0 ? 0 : done == c.steps.size() ? 2 : 1];
        return;
      }
      mismatches += "\n  after " + std::to_string(done) + " steps: " + mismatch;
    }
    ADD_FAILURE() << c.name << ", killed at write " << write << " after " << delayMicros
                  << " us: the file matches no state the cut passes through" << mismatches;
  }

  const CutFile& file() const { return _file; }
  long kills = 0, recoverKills = 0;
  long states[3] = {0, 0, 0};  // before, between steps, after

 private:
  CutFile _file;
  std::mt19937 _random;
  long _rounds = 0;
};

long RandomKills() {
  const char* text = getenv("VIDORA_CRASH_LOOP_KILLS");
  return text != nullptr ? std::max(1L, atol(text) / 20) : 6;
}

TEST(VrxCutCrashTest, AKilledCutLeavesAStateItPassesThrough) {
  const std::vector<crash_case_t> cases = {
      {"the oldest content", 0, At(8500), {{cut_t::kWhole, 0}, {cut_t::kHead, 1, -1, At(8500)}}},
      {"a tail, a gap and a head", At(8600), At(16600),
       {{cut_t::kTail, 1, At(8600)}, {cut_t::kHead, 2, -1, At(16600)}}},
      {"over a key frame inside a partition", At(4400), At(4600), {{cut_t::kMiddle, 0, At(4400), At(4600)}}},
      {"the newest content", At(20500), At(99999), {{cut_t::kTail, 2, At(20500)}, {cut_t::kWhole, 3}}},
      {"everything", 0, At(99999), {{cut_t::kWhole, 0}, {cut_t::kWhole, 1}, {cut_t::kWhole, 2}, {cut_t::kWhole, 3}}},
  };
  CutCrashLoop loop;
  std::mt19937 random(5);
  for (const crash_case_t& c : cases) {
    SCOPED_TRACE(c.name);
    const std::vector<long> lengths = WritesOf(loop.file(), c);
    const auto start = std::chrono::steady_clock::now();
    loop.Round(c, 0, -1, false);  // not killed: the cut as a whole
    const long micros = static_cast<long>(std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::steady_clock::now() - start).count());
    for (size_t write = 1; write <= lengths.size(); ++write) {
      loop.Round(c, static_cast<long>(write), -1, false);
      if (lengths[write - 1] > 16) loop.Round(c, static_cast<long>(write), -1, true);
    }
    for (long i = 0; i < RandomKills(); ++i) {
      loop.Round(c, 0, static_cast<long>(random() % static_cast<unsigned long>(micros + 1)), false);
    }
    if (::testing::Test::HasFatalFailure()) return;
  }
  printf("cut crash loop: %ld kills of a cut, %ld of a recover after it; states met: before %ld, "
         "between steps %ld, after %ld\n",
         loop.kills, loop.recoverKills, loop.states[0], loop.states[1], loop.states[2]);
  EXPECT_GT(loop.states[1], 0) << "some kills fell between two steps";
  EXPECT_GT(loop.recoverKills, 0);
}

}  // namespace
}  // namespace mediaformats
}  // namespace vrex
