// The crash log, left by forked children that install the handler and then really crash.
#include <fcntl.h>
#include <grp.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "abstraction/crash_handler.h"
#include "abstraction/errors.h"
#include "abstraction/filelock.h"
#include "temp_dir.h"

namespace vrex {
namespace abstraction {
namespace {

const char kVersion[] = "vidora 9.8.7 (crash test) built today";
constexpr size_t kSavedLimit = 262144;

int64_t NowMillis() {
  timeval now;
  gettimeofday(&now, nullptr);
  return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_usec / 1000;
}

std::string Hex(uint32_t value) {
  char text[16];
  snprintf(text, sizeof text, "0x%08X", value);
  return text;
}

struct child_t {
  pid_t pid = 0;
  int signal = 0;  // the signal that ended it, or 0
  int exitCode = -1;
  std::string stderrText;
};

// Forks a child that runs `body` with its standard error in a file, and exits with 0 after it.
child_t RunChild(const TempDir& dir, const std::function<void()>& body) {
  const std::string errors = dir.path() + "/child.stderr";
  child_t child;
  child.pid = fork();
  if (child.pid == 0) {
    dup2(open(errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDERR_FILENO);
    body();
    _exit(0);
  }
  int status = 0;
  waitpid(child.pid, &status, 0);
  child.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
  child.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  child.stderrText = TempDir::Read(errors);
  return child;
}

// A crash log cut into its parts. A log that strays from the layout fails the test.
struct crash_log_t {
  long pid = 0;
  int64_t startSeconds = 0;
  std::string version;
  std::string body;  // the memory map, then the saved lines
  bool crashed = false;
  int64_t crashMillis = 0;
  uint32_t sender = 0;
  uint32_t signal = 0;
  std::vector<uint64_t> frames, customFrames;
};

crash_log_t ParseCrashLog(const std::string& text) {
  crash_log_t log;
  std::smatch head;
  static const std::regex kHead("^pid: (\\d+)\nstart timestamp: (\\d+)\nversion: ([^\n]*)\n");
  const std::string start = text.substr(0, 512);
  if (!std::regex_search(start, head, kHead)) {
    ADD_FAILURE() << "no head in:\n" << start;
    return log;
  }
  log.pid = std::stol(head[1]);
  log.startSeconds = std::stoll(head[2]);
  log.version = head[3];
  const size_t tail = text.find("crt: 0x", head.length(0));
  log.body = text.substr(head.length(0), tail == std::string::npos ? tail : tail - head.length(0));
  if (tail == std::string::npos) return log;
  log.crashed = true;
  // Each line of the crash becomes a letter, and the letters must spell the layout.
  static const std::regex kField("(crt|snd|sig|frm): 0x([0-9A-F]{8}|[0-9A-F]{16}); ");
  std::string shape;
  std::istringstream lines(text.substr(tail));
  for (std::string line; std::getline(lines, line);) {
    std::smatch field;
    if (line == "endstack" || line == "custom backtrace") {
      shape += line[0];
    } else if (std::regex_match(line, field, kField) &&
               (field[2].length() == 16) == (field[1] == "crt" || field[1] == "frm")) {
      shape += field[1].str()[2];
      const uint64_t value = std::stoull(field[2], nullptr, 16);
      if (field[1] == "crt") log.crashMillis = static_cast<int64_t>(value);
      if (field[1] == "snd") log.sender = static_cast<uint32_t>(value);
      if (field[1] == "sig") log.signal = static_cast<uint32_t>(value);
      if (field[1] == "frm") {
        (shape.find('c') == std::string::npos ? log.frames : log.customFrames).push_back(value);
      }
    } else {
      shape += '?';
    }
  }
  EXPECT_TRUE(std::regex_match(shape, std::regex("tdgm*ecm*e"))) << shape;
  EXPECT_EQ(text.back(), '\n');
  return log;
}

struct mapping_t {
  uint64_t start, end;
  bool executable;
};

// Reads `text` as lines of /proc/<pid>/maps; every line must be one.
std::vector<mapping_t> ParseMaps(const std::string& text) {
  std::vector<mapping_t> maps;
  static const std::regex kMapping(
      "([0-9a-f]+)-([0-9a-f]+) [-r][-w]([-x])[ps] [0-9a-f]+ [0-9a-f:]+ \\d+.*");
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    std::smatch match;
    if (!std::regex_match(line, match, kMapping)) {
      ADD_FAILURE() << "not a mapping: \"" << line.substr(0, 120) << "\"";
      break;
    }
    maps.push_back(
        {std::stoull(match[1], nullptr, 16), std::stoull(match[2], nullptr, 16), match[3] == "x"});
  }
  return maps;
}

// The faults are the real thing: neither the compiler nor a sanitizer may make them anything else.
__attribute__((noinline, no_sanitize("address", "undefined"))) void WriteThroughNull() {
  volatile int* volatile target = nullptr;
  *target = 1;
}

__attribute__((noinline, no_sanitize("address", "undefined"))) void ReadAt(uintptr_t address) {
  *reinterpret_cast<volatile const char*>(address);
}

__attribute__((noinline, no_sanitize("undefined"))) void DivideByZeroOrTrap(bool divide) {
#if defined(__x86_64__) || defined(__i386__)
  volatile int zero = 0, one = 1;
  if (divide) zero = one / zero;
  __builtin_trap();  // ud2
#else
  raise(divide ? SIGFPE : SIGILL);  // neither traps by itself here
#endif
}

// A page of a shared mapping past the end of its file, which was cut after it was mapped.
uintptr_t MapPastTheEnd(const TempDir& dir) {
  const long page = sysconf(_SC_PAGESIZE);
  const std::string path = dir.File("truncated", std::string(2 * page, 'x'));
  const int fd = open(path.c_str(), O_RDONLY);
  char* mapping = static_cast<char*>(mmap(nullptr, 2 * page, PROT_READ, MAP_SHARED, fd, 0));
  close(fd);
  EXPECT_EQ(truncate(path.c_str(), page), 0);
  return reinterpret_cast<uintptr_t>(mapping + page);
}

class CrashHandlerTest : public ::testing::Test {
 protected:
  std::string Path() const { return _dir.path() + "/service"; }
  std::string LogPath() const { return Path() + ".crash.log"; }

  // A child that installs the handler, saves `saved`, and runs `crash`.
  child_t Crash(const std::function<void()>& crash, const std::vector<std::string>& saved = {}) {
    return RunChild(_dir, [&] {
      if (InstallCrashHandler(Path(), kVersion) != 0) _exit(90);
      for (const std::string& text : saved) SaveCrashData(text);
      crash();
    });
  }

  // The log of `child`, whose head must be that of a start after `beforeMillis`.
  crash_log_t ReadLog(const child_t& child, int64_t beforeMillis, const std::string& path = "") {
    const crash_log_t log = ParseCrashLog(TempDir::Read(path.empty() ? LogPath() : path));
    EXPECT_EQ(log.pid, child.pid);
    EXPECT_GE(log.startSeconds, beforeMillis / 1000);
    EXPECT_LE(log.startSeconds, NowMillis() / 1000);
    EXPECT_EQ(log.version, kVersion);
    if (getgrnam(groupName) == nullptr) {
      EXPECT_EQ(child.stderrText, "");
    }
    return log;
  }

  TempDir _dir;
};

// Signals sent by kill() and abort(), and SIGTERM left alone, are the JavaScript tests' (test/
// crash_handler.test.js); here are the faults themselves, and SIGPIPE, which node ignores.
TEST_F(CrashHandlerTest, FatalSignalsLeaveTheLogAndEndTheProcessBySigkill) {
  constexpr int64_t kAny = -1;  // si_pid of a fault is the low half of an address
  const uintptr_t pastTheEnd = MapPastTheEnd(_dir);
  const struct {
    const char* how;
    int signal;
    std::function<void()> crash;
    int64_t sender;
    // Return addresses that both walks find: the signal's trampoline and the callers up from
    // the fault, as far as frame records go (the C library keeps none, so an abort() inside
    // it shows the trampoline alone).
    size_t sharedFrames;
  } cases[] = {
      {"write through a null pointer", SIGSEGV, WriteThroughNull, 0, 3},
      {"read of a mapped page past the end of its file", SIGBUS, [&] { ReadAt(pastTheEnd); },
       static_cast<uint32_t>(pastTheEnd), 3},
      {"integer division by zero", SIGFPE, [] { DivideByZeroOrTrap(true); }, kAny, 3},
      {"undefined instruction", SIGILL, [] { DivideByZeroOrTrap(false); }, kAny, 3},
      // Not caught: the process ends by the signal itself, and the log has no crash.
      {"SIGPIPE", SIGPIPE, [] { raise(SIGPIPE); }, kAny, 0},
  };
  char self[4096] = "";
  const ssize_t selfLength = readlink("/proc/self/exe", self, sizeof self - 1);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.how);
    const bool caught = c.signal != SIGPIPE;
    const int64_t before = NowMillis();
    const child_t child = Crash(c.crash);
    EXPECT_EQ(child.signal, caught ? SIGKILL : c.signal);
    const crash_log_t log = ReadLog(child, before);
    const auto maps = ParseMaps(log.body);
    EXPECT_NE(log.body.find(std::string(self, std::max<ssize_t>(selfLength, 0))),
              std::string::npos);
    EXPECT_NE(log.body.find("[stack]"), std::string::npos);
    ASSERT_EQ(log.crashed, caught);
    if (!caught) continue;
    EXPECT_GE(log.crashMillis, before);
    EXPECT_LE(log.crashMillis, NowMillis());
    EXPECT_EQ(log.signal, static_cast<uint32_t>(c.signal));
    if (c.sender != kAny) {
      EXPECT_EQ(Hex(log.sender), Hex(c.sender));
    }
    // Every frame of the unwinder lies in code that the map lists, and the frame-pointer walk
    // finds the same callers.
    ASSERT_GE(log.frames.size(), 3u);
    EXPECT_LE(log.frames.size(), 64u);
    EXPECT_LE(log.customFrames.size(), 64u);
    size_t shared = 0;
    for (const uint64_t frame : log.frames) {
      EXPECT_TRUE(std::any_of(
          maps.begin(), maps.end(),
          [&](const mapping_t& m) { return m.executable && frame >= m.start && frame < m.end; }))
          << std::hex << frame;
      shared += std::count(log.customFrames.begin(), log.customFrames.end(), frame) > 0;
    }
    EXPECT_GE(shared, c.sharedFrames);
  }
}

TEST_F(CrashHandlerTest, FailedAndRepeatedInstallations) {
  const std::string other = _dir.path() + "/other";
  const int64_t before = NowMillis();
  // The child tells its results through the saved lines of the crash that follows.
  const child_t child = RunChild(_dir, [&] {
    struct sigaction previous = {}, now = {};
    sigaction(SIGSEGV, nullptr, &previous);
    const int missing = InstallCrashHandler(_dir.path() + "/missing/service", kVersion);
    const int empty = InstallCrashHandler("", kVersion);
    sigaction(SIGSEGV, nullptr, &now);
    const int first = InstallCrashHandler(Path(), kVersion);
    const int second = InstallCrashHandler(other, "another version");
    const int third = InstallCrashHandler(Path(), "another version");
    SaveCrashData(Hex(missing) + " " + Hex(empty) + " " +
                  std::to_string(previous.sa_sigaction == now.sa_sigaction));
    SaveCrashData(Hex(first) + " " + Hex(second) + " " + Hex(third));
    WriteThroughNull();
  });
  EXPECT_EQ(child.signal, SIGKILL);
  const crash_log_t log = ReadLog(child, before);
  const std::string saved = "0x80000002 0x80010002 1\n0x00000000 0x00000000 0x00000000\n";
  EXPECT_EQ(log.body.substr(log.body.size() - saved.size()), saved);
  EXPECT_EQ(access((LogPath() + ".1").c_str(), F_OK), -1);
}

TEST_F(CrashHandlerTest, ElevenStartsKeepTheLastTen) {
  const int64_t before = NowMillis();
  std::vector<child_t> starts;
  for (int start = 0; start < 11; ++start) {
    starts.push_back(
        RunChild(_dir, [&] { _exit(InstallCrashHandler(Path(), kVersion) == 0 ? 0 : 1); }));
    ASSERT_EQ(starts.back().exitCode, 0);
  }
  const mode_t mask = umask(0);
  umask(mask);
  const group* serviceGroup = getgrnam(groupName);
  // The newest run is the log itself, the one before it .1, and so on to .9.
  for (int slot = 0; slot < 10; ++slot) {
    SCOPED_TRACE(slot);
    const std::string path = slot == 0 ? LogPath() : LogPath() + "." + std::to_string(slot);
    EXPECT_FALSE(ReadLog(starts[10 - slot], before, path).crashed);
    struct stat info;
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0660 & ~mask);
    if (serviceGroup != nullptr) {
      EXPECT_EQ(info.st_gid, serviceGroup->gr_gid);
    }
  }
  EXPECT_EQ(access((LogPath() + ".10").c_str(), F_OK), -1);
}

TEST_F(CrashHandlerTest, SavedTextKeepsTheLatest262144Bytes) {
  std::vector<std::string> numbered;
  for (int i = 0; i < 300; ++i)
    numbered.push_back(std::to_string(100000 + i) + std::string(994, 'a' + i % 26));
  const std::string huge(300000, 'h');
  const std::string fits(kSavedLimit - 1, 'f');  // with its new line, exactly the limit
  const std::vector<std::string> cases[] = {
      {"camera 12 connected", "", "recording /data/a.vrx"},
      numbered,
      {"first", huge},
      {"dropped", fits},
      {fits + "+"},
      {huge, "after 1", "after 2"},
  };
  for (const auto& texts : cases) {
    SCOPED_TRACE(texts.size());
    const int64_t before = NowMillis();
    const child_t child = Crash(WriteThroughNull, texts);
    EXPECT_EQ(child.signal, SIGKILL);
    std::string all;
    for (const std::string& text : texts) all += text + "\n";
    const std::string expected = all.substr(all.size() - std::min(all.size(), kSavedLimit));
    const crash_log_t log = ReadLog(child, before);
    ASSERT_GE(log.body.size(), expected.size());
    const size_t mapsEnd = log.body.size() - expected.size();
    EXPECT_TRUE(log.body.compare(mapsEnd, std::string::npos, expected) == 0);
    // Exactly the memory map stands before it: nothing older was kept.
    EXPECT_FALSE(ParseMaps(log.body.substr(0, mapsEnd)).empty());
  }
}

}  // namespace
}  // namespace abstraction
}  // namespace vrex
