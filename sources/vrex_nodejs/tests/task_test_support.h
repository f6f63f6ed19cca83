// What the task and pool tests share: a task kind that only these tests know, a gate that
// holds a worker until the test opens it, the event loop driven by hand, and captured log
// lines. No JavaScript engine is involved: these tasks hold no JavaScript callback.
#pragma once

#include <gtest/gtest.h>
#include <pthread.h>
#include <uv.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "common/task.h"
#include "common/workers_pool.h"
#include "fake_node_api.h"

namespace vrex {
namespace nodejs {
namespace common {
namespace testing {

// The size of the work pool in these tests.
constexpr int kTestWorkThreads = 4;

// Holds the workers that wait on it until Open; counts those that arrived. A gate left shut
// for kGateLimit opens by itself with a failure: a test whose loop never comes back to open
// it fails instead of hanging.
class Gate {
 public:
  static constexpr std::chrono::seconds kGateLimit{5};

  void Open() {
    std::lock_guard<std::mutex> lock(_mutex);
    _open = true;
    _cond.notify_all();
  }
  void Wait() {
    std::unique_lock<std::mutex> lock(_mutex);
    ++_arrived;
    _cond.notify_all();
    if (!_cond.wait_for(lock, kGateLimit, [this] { return _open; })) {
      ADD_FAILURE() << "a worker waited " << kGateLimit.count()
                    << " s on a gate that the test never opened";
      _open = true;
      _cond.notify_all();
    }
  }
  // Blocks the test until `count` workers wait (or passed) here.
  void AwaitArrivals(int count) {
    std::unique_lock<std::mutex> lock(_mutex);
    _cond.wait(lock, [this, count] { return _arrived >= count; });
  }

 private:
  std::mutex _mutex;
  std::condition_variable _cond;
  bool _open = false;
  int _arrived = 0;
};

// One SignalWorkEnd as the task saw it.
struct end_record_t {
  long id;
  int code;
  bool timedOut;
  vrex::errors::error_info_t info;
  long operationStartTime;
  long operationEndTime;
};

// What the probe tasks of one test write down. Main-thread fields are only touched there;
// `started` is written by workers.
struct journal_t {
  std::vector<end_record_t> ends;
  std::vector<long> cancels;
  std::vector<pthread_t> progressThreads;
  std::mutex startedMutex;
  std::vector<long> started;  // guarded by startedMutex, in the order SignalWork began
};

// A task whose work is `body` (0 when none). Its end is recorded instead of going to
// JavaScript.
class ProbeTask : public Task {
 public:
  ProbeTask(journal_t* journal, const std::string& name, const std::string& pool,
            long timeoutMs = -1, bool hasProgress = false,
            std::function<int(ProbeTask&)> body = nullptr)
      : Task(Env(), 0, name, pool, hasProgress, timeoutMs, async_callback_info_t{}),
        _journal(journal),
        _body(std::move(body)) {}

  int SignalWork() override {
    {
      std::lock_guard<std::mutex> lock(_journal->startedMutex);
      _journal->started.push_back(Id());
    }
    return _body ? _body(*this) : 0;
  }
  void SignalThreadCleanup() override {
    if (cleanup) cleanup(*this);
  }
  void SignalWorkProgress(Napi::Env&, bool) override {
    _journal->progressThreads.push_back(pthread_self());
  }
  void SignalWorkEnd(Napi::Env&, bool, int code, const vrex::errors::error_info_t* info) override {
    _journal->ends.push_back({Id(), code, TimedOut(), info ? *info : vrex::errors::error_info_t{},
                              OperationStartTime(), OperationEndTime()});
  }
  void Cancel() override { _journal->cancels.push_back(Id()); }

  std::function<void(ProbeTask&)> cleanup;

 private:
  static Napi::Env& Env() {
    static Napi::Env env(nullptr);
    return env;
  }

  journal_t* _journal;
  std::function<int(ProbeTask&)> _body;
};

// Runs the default loop until `done` holds, and returns without waiting for more once it
// does. Fails when the loop has nothing left that could make it hold.
void RunLoopUntil(const std::function<bool()>& done);

// Runs the loop until nothing is left on it: every handle of every task closed and freed.
inline void DrainLoop() { uv_run(uv_default_loop(), UV_RUN_DEFAULT); }

// Log lines written since the last Clear. Install (again) in each test's SetUp: other tests
// of this binary set callbacks of their own.
class CapturedLog {
 public:
  static void Install();
  static void Clear();
  static std::vector<std::string> Lines();
  static bool Contains(const std::string& text);
};

// A test's own pools and journal; at its end no task may be left alive, no handle open on
// the loop, and no JavaScript reached.
class TaskFixture : public ::testing::Test {
 protected:
  void SetUp() override {
    _living = Task::LivingCount();
    CapturedLog::Install();
    CapturedLog::Clear();
  }
  void TearDown() override {
    _pools.clear();
    DrainLoop();
    EXPECT_EQ(Task::LivingCount(), _living) << "a task outlived its test";
    EXPECT_EQ(UnexpectedNodeApiCalls(), 0);
    EXPECT_EQ(OpenHandleScopes(), 0);
  }

  WorkersPool& MakePool(const std::string& name, unsigned long maxSize, unsigned long maxPending = 200) {
    _pools.push_back(std::make_unique<WorkersPool>(name, maxSize, maxPending));
    return *_pools.back();
  }

  journal_t _journal;
  std::vector<std::unique_ptr<WorkersPool>> _pools;
  long _living = 0;
};

}  // namespace testing
}  // namespace common
}  // namespace nodejs
}  // namespace vrex
