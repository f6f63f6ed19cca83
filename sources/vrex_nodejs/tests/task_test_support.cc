// The tests' environment: a work pool of 4 threads, so that "no free Work" is reachable; and
// a logging callback that keeps the lines.
#include "task_test_support.h"

#include "abstraction/logging.h"
#include "common/work_pool.h"

namespace vrex {
namespace nodejs {
namespace common {
namespace testing {

namespace {

std::mutex gLogMutex;
std::vector<std::string>* gLog = new std::vector<std::string>;  // guarded by gLogMutex

void KeepLine(vrex::abstraction::log_level_t, unsigned long, const char* text, unsigned long length) {
  std::lock_guard<std::mutex> lock(gLogMutex);
  gLog->emplace_back(text, length);
}

class TaskTestEnvironment : public ::testing::Environment {
 public:
  void SetUp() override {
    SetWorkPoolMaxSize(kTestWorkThreads);
  }
};

const auto* const gEnvironment = ::testing::AddGlobalTestEnvironment(new TaskTestEnvironment);

}  // namespace

void CapturedLog::Install() { vrex::abstraction::registerLoggingCallback(KeepLine); }

void CapturedLog::Clear() {
  std::lock_guard<std::mutex> lock(gLogMutex);
  gLog->clear();
}

std::vector<std::string> CapturedLog::Lines() {
  std::lock_guard<std::mutex> lock(gLogMutex);
  return *gLog;
}

bool CapturedLog::Contains(const std::string& text) {
  for (const std::string& line : Lines()) {
    if (line.find(text) != std::string::npos) return true;
  }
  return false;
}

}  // namespace testing
}  // namespace common
}  // namespace nodejs
}  // namespace vrex
