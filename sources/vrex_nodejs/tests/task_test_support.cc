// The tests' environment: a work pool of 4 threads, so that "no free Work" is reachable; a
// logging callback that keeps the lines; and the loop run until a condition holds.
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

// A turn of the loop runs its due timers first and then waits for I/O; a timer (a task's
// time limit) that makes the condition hold would leave the loop waiting for I/O that may
// never come. This handle checks the condition just before the wait and stops the loop.
// Unreferenced, so that it never keeps the loop alive; made once, as it lives with the loop.
uv_prepare_t* ConditionCheck() {
  static uv_prepare_t* const check = [] {
    auto* handle = new uv_prepare_t;
    uv_prepare_init(uv_default_loop(), handle);
    uv_unref(reinterpret_cast<uv_handle_t*>(handle));
    return handle;
  }();
  return check;
}

void StopWhenDone(uv_prepare_t* handle) {
  if ((*static_cast<const std::function<bool()>*>(handle->data))()) uv_stop(handle->loop);
}

}  // namespace

void RunLoopUntil(const std::function<bool()>& done) {
  uv_prepare_t* const check = ConditionCheck();
  check->data = const_cast<std::function<bool()>*>(&done);
  uv_prepare_start(check, StopWhenDone);
  while (!done()) {
    if (uv_run(uv_default_loop(), UV_RUN_ONCE) == 0 && !done()) {
      ADD_FAILURE() << "the event loop ran dry before the condition held";
      break;
    }
  }
  uv_prepare_stop(check);
  check->data = nullptr;
}

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
