#include <pthread.h>
#include <sys/time.h>

#include <regex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "abstraction/logging.h"
#include "errors/errors.h"
#include "log_capture.h"

namespace vrex {
namespace abstraction {
namespace {

using vidora_testing::LogCapture;

TEST(LoggingTest, LineFormatCarriesUtcTimeLevelLetterAndThreadName) {
  LogCapture log;
  std::thread worker([] {
    pthread_setname_np(pthread_self(), "worker-7");
    LOGF << "fatal " << 1;
    LOGE << "error " << 2;
    LOGW << "warning";
    LOGI << "info";
    LOGD << "debug";
  });
  worker.join();
  const auto& lines = log.lines();
  ASSERT_EQ(5u, lines.size());
  const char letters[] = "FEWID";
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(i, lines[i].level);
    const std::regex line(std::string(R"(^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z )") + letters[i] +
                          " worker-7  - .+$");
    EXPECT_TRUE(std::regex_match(lines[i].text, line)) << lines[i].text;
  }
  EXPECT_TRUE(log.Contains(" - fatal 1"));
  EXPECT_TRUE(log.Contains(" - error 2"));
}

TEST(LoggingTest, TimeIsUtcNow) {
  LogCapture log;
  // time() may lag gettimeofday() by a tick, so the bounds come from the same clock as the line.
  timeval now;
  gettimeofday(&now, nullptr);
  const time_t before = now.tv_sec;
  LOGE << "x";
  gettimeofday(&now, nullptr);
  const time_t after = now.tv_sec;
  tm parsed = {};
  ASSERT_NE(nullptr, strptime(log.lines().at(0).text.c_str(), "%Y-%m-%dT%H:%M:%S", &parsed));
  const time_t logged = timegm(&parsed);
  EXPECT_GE(logged, before);
  EXPECT_LE(logged, after);
}

TEST(LoggingTest, ErrorInfoFormReplacesTheDashWithTheRecord) {
  LogCapture log;
  errors::returnErrorWithTracking(errors::SystemError(2), "where.cc", 12);
  LOGE_WITH_ERROR_INFO << "body";
  ASSERT_EQ(1u, log.Count());
  const std::string& text = log.lines()[0].text;
  const size_t errorsAt = text.find(" \nErrors:\n   0x80000002 at where.cc:12: ");
  ASSERT_NE(std::string::npos, errorsAt) << text;
  EXPECT_EQ(std::string::npos, text.find(" - "));
  EXPECT_EQ("Stack:\n\nbody", text.substr(text.size() - 12));
}

TEST(LoggingTest, NothingIsBuiltWithoutACallback) {
  registerLoggingCallback(nullptr);
  int evaluated = 0;
  LOGE << (++evaluated);
  EXPECT_EQ(0, evaluated);
  EXPECT_FALSE(isLoggingCallbackRegistered());
  LogCapture log;
  LOGE << (++evaluated);
  EXPECT_EQ(1, evaluated);
}

TEST(LoggingDeathTest, FailedAssertionLogsAndAborts) {
  registerLoggingCallback(nullptr);
  const int value = 3;
  EXPECT_DEATH({ VREX_ASSERT(value == 4) << "value was " << value; },
               "assert failed: `value == 4` F .* value was 3");
}

TEST(DumpTest, SixteenBytesALineWithOffsetsAndPrintables) {
  unsigned char bytes[20];
  for (int i = 0; i < 20; ++i) bytes[i] = static_cast<unsigned char>(0x3e + i);
  EXPECT_EQ(
      "000| 3E 3F 40 41 42 43 44 45 46 47 48 49 4A 4B 4C 4D  >?@ABCDEFGHIJKLM\n"
      "010| 4E 4F 50 51                                      NOPQ\n",
      dump_s(bytes, sizeof(bytes)));
  const unsigned char control[] = {0x00, 0x41, 0x7f, 0xff};
  EXPECT_EQ("000| 00 41 7F FF " + std::string(36, ' ') + " .A..\n", dump_s(control, 4));
  EXPECT_EQ("", dump_s(bytes, 0));
}

}  // namespace
}  // namespace abstraction
}  // namespace vrex
