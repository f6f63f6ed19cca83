#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "common/logger/addon_file_log_appender.h"
#include "common/logger/addon_logger.h"
#include "common/version.h"

namespace vrex {
namespace nodejs {
namespace common {
namespace {

std::string ReadFile(const std::string& path) {
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

bool Exists(const std::string& path) {
  struct stat info;
  return stat(path.c_str(), &info) == 0;
}

// Waits until the file holds `count` lines (the writer thread works on its own).
std::vector<std::string> WaitForLines(const std::string& path, size_t count) {
  for (int i = 0; i < 500; ++i) {
    std::vector<std::string> lines = Lines(ReadFile(path));
    if (lines.size() >= count) return lines;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return Lines(ReadFile(path));
}

// Waits until the file holds `text`.
void WaitForText(const std::string& path, const std::string& text) {
  for (int i = 0; i < 500 && ReadFile(path).find(text) == std::string::npos; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

class AddonFileLogAppenderTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/vidora-log-XXXXXX";
    _dir = mkdtemp(pattern);
    _path = _dir + "/addon.log";
  }
  void TearDown() override { std::system(("rm -rf " + _dir).c_str()); }

  void Log(AddonFileLogAppender& appender, log_level_t level, const std::string& text) {
    appender.Log(level, text.c_str(), text.size());
  }

  std::string _dir;
  std::string _path;
};

TEST_F(AddonFileLogAppenderTest, NewFileStartsWithPidLineAndLinesCarryTheWaitingCount) {
  AddonFileLogAppender appender(3, _path, 1000000, 5);
  Log(appender, 1, "first");
  Log(appender, 3, "third level");
  Log(appender, 4, "too detailed");  // above the appender's level: never queued
  const std::vector<std::string> lines = WaitForLines(_path, 3);
  ASSERT_EQ(3u, lines.size());
  EXPECT_EQ("PID: " + std::to_string(getpid()) + "; " + vrex::common::Version::GetBanner(),
            lines[0]);
  EXPECT_TRUE(std::regex_match(lines[1], std::regex(R"(first \[[01]\] )"))) << lines[1];
  EXPECT_EQ("third level [0] ", lines[2]);
}

TEST_F(AddonFileLogAppenderTest, LevelCanChangeLater) {
  AddonFileLogAppender appender(1, _path, 1000000, 5);
  EXPECT_FALSE(appender.CanLog(2));
  appender.setLogLevel(4);
  EXPECT_TRUE(appender.CanLog(4));
  Log(appender, 4, "debug now");
  EXPECT_EQ("debug now [0] ", WaitForLines(_path, 2).at(1));
}

TEST_F(AddonFileLogAppenderTest, RollsToNumberedFilesNewestFirst) {
  const std::string pidLine = "PID: " + std::to_string(getpid()) + "; " +
                              vrex::common::Version::GetBanner() + "\n";
  // Each file takes the PID line and one log line before it is over the limit.
  AddonFileLogAppender appender(4, _path, pidLine.size() + 1, 3);
  for (int i = 0; i < 4; ++i) {
    Log(appender, 1, "line " + std::to_string(i));
    WaitForText(_path, "line " + std::to_string(i));
  }
  EXPECT_NE(std::string::npos, ReadFile(_path).find("line 3 "));
  EXPECT_NE(std::string::npos, ReadFile(_path + ".001").find("line 2 "));
  EXPECT_NE(std::string::npos, ReadFile(_path + ".002").find("line 1 "));
  EXPECT_FALSE(Exists(_path + ".003"));  // three files in all
}

TEST_F(AddonFileLogAppenderTest, OneFileRollsByTruncating) {
  AddonFileLogAppender appender(4, _path, 10, 1);
  Log(appender, 1, "aaa");
  WaitForLines(_path, 2);
  Log(appender, 1, "bbb");
  WaitForText(_path, "bbb");
  const std::string text = ReadFile(_path);
  EXPECT_EQ(std::string::npos, text.find("aaa"));
  EXPECT_NE(std::string::npos, text.find("bbb"));
  EXPECT_FALSE(Exists(_path + ".001"));
}

TEST_F(AddonFileLogAppenderTest, FileCountIsCutAt999) {
  std::ofstream(_path + ".997") << "was 997";
  std::ofstream(_path + ".998") << "was 998";
  std::ofstream(_path) << "was current";
  {
    AddonFileLogAppender appender(4, _path, 1000000, 5000);
    Log(appender, 1, "x");
    WaitForLines(_path, 2);
  }
  EXPECT_FALSE(Exists(_path + ".999"));
  EXPECT_EQ("was 997", ReadFile(_path + ".998"));
  EXPECT_EQ("was current", ReadFile(_path + ".001"));
}

TEST_F(AddonFileLogAppenderTest, RollingRenamesOnlyRegularFiles) {
  // A directory in the middle of the chain stops the files behind it from moving onto it.
  ASSERT_EQ(0, mkdir((_path + ".002").c_str(), 0755));
  std::ofstream(_path + ".002/inside") << "untouched";
  std::ofstream(_path + ".001") << "was 001";
  std::ofstream(_path) << "was current";
  {
    AddonFileLogAppender appender(4, _path, 1000000, 5);
    Log(appender, 1, "x");
    WaitForLines(_path, 2);
  }
  EXPECT_EQ("untouched", ReadFile(_path + ".002/inside"));
  EXPECT_EQ("was current", ReadFile(_path + ".001"));
  EXPECT_FALSE(Exists(_path + ".003"));
}

struct burst_count_t {
  long written = 0;
  long dropped = 0;
  long markers = 0;
  long smallestDrop = 0;
};

// Counts the burst lines written and the lines that marker lines say were dropped.
burst_count_t CountBurst(const std::string& path) {
  static const std::regex marker(
      R"(~~~~~~~~~~~~~~ Dropped \[(\d+)\] messages ~~~~~~~~~~~~~~ \[\d+\] )");
  burst_count_t count;
  for (const std::string& line : Lines(ReadFile(path))) {
    std::smatch match;
    if (std::regex_match(line, match, marker)) {
      const long dropped = std::stol(match[1]);
      count.smallestDrop = count.markers == 0 ? dropped : std::min(count.smallestDrop, dropped);
      count.dropped += dropped;
      ++count.markers;
    } else if (line.rfind("burst line [", 0) == 0) {
      ++count.written;
    }
  }
  return count;
}

TEST_F(AddonFileLogAppenderTest, BurstIsDroppedWithAMarkerAndNothingElseIsLost) {
  // Queueing a line is far cheaper than writing it, so a tight loop builds a backlog.
  const long total = 50000;
  burst_count_t count;
  {
    AddonFileLogAppender appender(4, _path, 1ul << 40, 2);
    for (long i = 0; i < total; ++i) Log(appender, 1, "burst line");
    // The destructor loses what still waits: let the writer account for every line first.
    for (int wait = 0; wait < 6000; ++wait) {
      count = CountBurst(_path);
      if (count.written + count.dropped >= total) break;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  }
  EXPECT_GE(count.markers, 1);
  EXPECT_GT(count.smallestDrop, 2000);
  EXPECT_EQ(total, count.written + count.dropped);
}

// An appender that remembers the level it was given.
class LevelProbe : public AddonLogAppender {
 public:
  LevelProbe() : AddonLogAppender(1) {}
  void Log(log_level_t, const char*, unsigned long) override {}
  log_level_t level() const { return _level; }
};

TEST(AddonLoggerTest, EnvironmentLevelWinsOverTheRequestedOne) {
  auto* probe = new LevelProbe();
  AddonLogger::Instance().AddAppender(probe);
  unsetenv("ADDON_LOG_LEVEL");
  AddonLogger::Instance().setLogLevel(2);
  EXPECT_EQ(2, probe->level());
  setenv("ADDON_LOG_LEVEL", "4", 1);
  AddonLogger::Instance().setLogLevel(1);
  EXPECT_EQ(4, probe->level());
  AddonLogger::Instance().setLogLevel(0);
  EXPECT_EQ(4, probe->level());
  unsetenv("ADDON_LOG_LEVEL");
  AddonLogger::Instance().RemoveAllAppenders();
}

// An appender that keeps every line it is offered.
class Collect : public AddonLogAppender {
 public:
  explicit Collect(std::vector<std::string>* out) : AddonLogAppender(2), _out(out) {}
  void Log(log_level_t level, const char* text, unsigned long length) override {
    if (CanLog(level)) _out->emplace_back(text, length);
  }

 private:
  std::vector<std::string>* _out;
};

TEST(AddonLoggerTest, OffersEachLineToEveryAppenderInOrder) {
  std::vector<std::string> first, second;
  AddonLogger::Instance().AddAppender(new Collect(&first));
  AddonLogger::Instance().AddAppender(new Collect(&second));
  vrex::abstraction::registerLoggingCallback(&AddonLogger::Log);
  LOGE << "to both";
  LOGD << "filtered";
  vrex::abstraction::registerLoggingCallback(nullptr);
  AddonLogger::Instance().RemoveAllAppenders();
  ASSERT_EQ(1u, first.size());
  ASSERT_EQ(1u, second.size());
  EXPECT_EQ(first[0], second[0]);
  EXPECT_NE(std::string::npos, first[0].find(" - to both"));
}

}  // namespace
}  // namespace common
}  // namespace nodejs
}  // namespace vrex
