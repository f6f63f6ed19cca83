// The road of one task through a Work thread and libuv, without JavaScript: results, times,
// the error record, progress, the timer, and the "no free Work" path.
#include "common/task.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <set>
#include <thread>
#include <vector>

#include "common/clock.h"
#include "common/work_pool.h"
#include "common/workers_pool.h"
#include "nodejs/errors.h"
#include "task_test_support.h"

namespace vrex {
namespace nodejs {
namespace common {
namespace testing {
namespace {

using vrex::webrtcnodejs::ERR_NODEJS_FILE_IO;
using vrex::webrtcnodejs::ERR_NODEJS_OPERATION_TIMED_OUT;

std::string ThreadName(pthread_t thread) {
  char name[32] = {0};
  pthread_getname_np(thread, name, sizeof(name));
  return name;
}

class TaskTest : public TaskFixture {
 protected:
  void SetUp() override {
    TaskFixture::SetUp();
    _pool = &MakePool("test", 10);
  }

  std::shared_ptr<ProbeTask> Enqueue(std::shared_ptr<ProbeTask> task) {
    task->SetApiCallTime(static_cast<long>(GetTimestampMillis()));
    _pool->Enqueue(task, false);
    return task;
  }

  WorkersPool* _pool = nullptr;
};

TEST_F(TaskTest, RunsOnANamedWorkerAndFreesItsSlot) {
  pthread_t worker{};
  std::string nameDuringWork;
  const long id = Enqueue(std::make_shared<ProbeTask>(&_journal, "probe", "test", -1, false,
                                                      [&](ProbeTask&) {
                                                        worker = pthread_self();
                                                        nameDuringWork = ThreadName(worker);
                                                        return 0;
                                                      }))
                      ->Id();
  std::weak_ptr<Task> watch = _pool->Find(id);
  ASSERT_FALSE(watch.expired());
  RunLoopUntil([&] { return !_journal.ends.empty(); });

  ASSERT_EQ(_journal.ends.size(), 1u);
  EXPECT_EQ(_journal.ends[0].id, id);
  EXPECT_EQ(_journal.ends[0].code, 0);
  EXPECT_FALSE(_journal.ends[0].timedOut);
  EXPECT_TRUE(_journal.ends[0].info.chain.empty());
  EXPECT_EQ(nameDuringWork, "B_" + std::to_string(id));
  EXPECT_FALSE(pthread_equal(worker, pthread_self()));
  // The slot is freed and the task dropped in the same finish callback.
  EXPECT_TRUE(watch.expired());
  EXPECT_EQ(_pool->InProgressSize(), 0u);
  EXPECT_EQ(ThreadName(worker), "free worker");

  const auto& stats = _pool->Stats();
  ASSERT_EQ(stats.count("probe"), 1u);
  EXPECT_EQ(stats.at("probe").count, 1u);
}

TEST_F(TaskTest, CopiesTheWorkersErrorRecord) {
  int line = 0;
  Enqueue(std::make_shared<ProbeTask>(&_journal, "probe", "test", -1, false, [&](ProbeTask&) {
    line = __LINE__ + 1;
    const int code = VREX_ERROR(ERR_NODEJS_FILE_IO);
    vrex::errors::addExtraInfo("path", "/nowhere");
    return code;
  }));
  // The main thread's own record holds something else: the end must not read it.
  VREX_ERROR(vrex::webrtcnodejs::ERR_NODEJS_INVALID_STATE);
  RunLoopUntil([&] { return !_journal.ends.empty(); });

  const end_record_t& end = _journal.ends.at(0);
  EXPECT_EQ(end.code, ERR_NODEJS_FILE_IO);
  ASSERT_EQ(end.info.chain.size(), 1u);
  EXPECT_EQ(end.info.chain[0].code, ERR_NODEJS_FILE_IO);
  EXPECT_EQ(end.info.chain[0].line, line);
  EXPECT_TRUE(std::string(end.info.chain[0].file).find("task_test.cc") != std::string::npos);
  EXPECT_EQ(end.info.extraInfo, (std::map<std::string, std::string>{{"path", "/nowhere"}}));
}

TEST_F(TaskTest, TimeoutAnswersOnceAndDropsTheLateResult) {
  constexpr long kLimitMs = 5;
  Gate gate;
  const std::shared_ptr<ProbeTask> task =
      Enqueue(std::make_shared<ProbeTask>(&_journal, "slow", "test", kLimitMs, false, [&](ProbeTask&) {
        gate.Wait();
        return VREX_ERROR(ERR_NODEJS_FILE_IO);
      }));
  const long id = task->Id();
  // The work has begun, and the limit passes before the loop turns: the answer comes from the
  // timers that open the turn, and then nothing else will come until the gate opens.
  gate.AwaitArrivals(1);
  std::this_thread::sleep_for(std::chrono::milliseconds(2 * kLimitMs));
  RunLoopUntil([&] { return !_journal.ends.empty(); });

  ASSERT_EQ(_journal.ends.size(), 1u);
  EXPECT_EQ(_journal.ends[0].code, ERR_NODEJS_OPERATION_TIMED_OUT);
  EXPECT_TRUE(_journal.ends[0].timedOut);
  ASSERT_FALSE(_journal.ends[0].info.chain.empty());
  EXPECT_EQ(_journal.ends[0].info.chain[0].code, ERR_NODEJS_OPERATION_TIMED_OUT);
  // The worker still runs: the slot stays taken until it ends.
  EXPECT_EQ(_pool->InProgressSize(), 1u);
  EXPECT_EQ(_pool->Find(id), task);

  gate.Open();
  RunLoopUntil([&] { return _pool->InProgressSize() == 0; });
  EXPECT_EQ(_journal.ends.size(), 1u) << "the late result reached the task's end";
  EXPECT_EQ(task->Result(), ERR_NODEJS_FILE_IO);
  EXPECT_EQ(_pool->Stats().at("slow").count, 1u);
}

TEST_F(TaskTest, ATimeoutMeetingTheEndAnswersOnce) {
  // Limits of 1 ms against work of about 1 ms: the timer and the end meet in either order, in
  // one turn of the loop or in two, while the worker stamps the times the answer reads.
  constexpr int kRounds = 25;
  for (int round = 0; round < kRounds; ++round) {
    std::vector<std::weak_ptr<Task>> watches;
    for (int i = 0; i < kTestWorkThreads; ++i) {
      watches.push_back(Enqueue(std::make_shared<ProbeTask>(
          &_journal, "racing", "test", 1, false, [i](ProbeTask&) {
            std::this_thread::sleep_for(std::chrono::microseconds(800 + 100 * i));
            return 0;
          })));
    }
    RunLoopUntil([&] {
      for (const auto& watch : watches) {
        if (!watch.expired()) return false;
      }
      return true;
    });
  }

  ASSERT_EQ(_journal.ends.size(), static_cast<size_t>(kRounds * kTestWorkThreads));
  std::set<long> answered;
  for (const end_record_t& end : _journal.ends) {
    EXPECT_TRUE(answered.insert(end.id).second) << "task " << end.id << " answered twice";
    EXPECT_EQ(end.code, end.timedOut ? ERR_NODEJS_OPERATION_TIMED_OUT : 0) << end.id;
    if (!end.timedOut) {
      EXPECT_GT(end.operationStartTime, 0) << end.id;
      EXPECT_LE(end.operationStartTime, end.operationEndTime) << end.id;
    }
  }
  EXPECT_EQ(_pool->InProgressSize(), 0u);
  // A task whose limit passed before its worker began never runs, and counts no run.
  std::lock_guard<std::mutex> lock(_journal.startedMutex);
  EXPECT_EQ(_pool->Stats().at("racing").count, _journal.started.size());
}

TEST_F(TaskTest, NoTimerWithoutALimit) {
  for (long timeoutMs : {0L, -1L}) {
    _journal.ends.clear();
    Enqueue(std::make_shared<ProbeTask>(&_journal, "probe", "test", timeoutMs));
    RunLoopUntil([&] { return !_journal.ends.empty(); });
    EXPECT_FALSE(_journal.ends[0].timedOut) << timeoutMs;
    // Nothing of the task is left on the loop: no timer keeps it alive.
    RunLoopUntil([&] { return Task::LivingCount() == _living; });
    EXPECT_EQ(uv_run(uv_default_loop(), UV_RUN_NOWAIT), 0) << timeoutMs;
  }
}

TEST_F(TaskTest, ProgressRunsOnTheMainThreadAndCoalesces) {
  constexpr int kTriggers = 1000;
  const std::shared_ptr<ProbeTask> task = std::make_shared<ProbeTask>(
      &_journal, "progress", "test", -1, true, [](ProbeTask& self) {
        for (int i = 0; i < kTriggers; ++i) self.TriggerProgress();
        return 0;
      });
  // A trigger after SignalWork returned, racing the finish handle: either order is safe.
  task->cleanup = [](ProbeTask& self) { self.TriggerProgress(); };
  Enqueue(task);
  RunLoopUntil([&] { return !_journal.ends.empty(); });

  EXPECT_GE(_journal.progressThreads.size(), 1u);
  EXPECT_LE(_journal.progressThreads.size(), static_cast<size_t>(kTriggers + 1));
  for (pthread_t thread : _journal.progressThreads) EXPECT_TRUE(pthread_equal(thread, pthread_self()));
}

TEST_F(TaskTest, WithoutAFreeWorkTheTaskNeverRunsAndKeepsItsSlot) {
  Gate gate;
  for (int i = 0; i < kTestWorkThreads; ++i) {
    Enqueue(std::make_shared<ProbeTask>(&_journal, "busy", "test", -1, false, [&](ProbeTask&) {
      gate.Wait();
      return 0;
    }));
  }
  gate.AwaitArrivals(kTestWorkThreads);
  bool ran = false;
  const long stranded = Enqueue(std::make_shared<ProbeTask>(&_journal, "stranded", "test", -1,
                                                            false, [&](ProbeTask&) {
                                                              ran = true;
                                                              return 0;
                                                            }))
                            ->Id();
  EXPECT_TRUE(CapturedLog::Contains("\tTaskL::Enqueue Failed to get Work instance"));

  gate.Open();
  RunLoopUntil([&] { return _journal.ends.size() == static_cast<size_t>(kTestWorkThreads); });
  DrainLoop();
  EXPECT_FALSE(ran);
  for (const end_record_t& end : _journal.ends) EXPECT_NE(end.id, stranded);
  EXPECT_EQ(_pool->InProgressSize(), 1u);
  EXPECT_NE(_pool->Find(stranded), nullptr);
  // Freed Works do not pick it up later either.
  std::shared_ptr<Work> work = GetWorkInstance();
  ASSERT_NE(work, nullptr);
  ReleaseWork(work);
  EXPECT_EQ(_pool->InProgressSize(), 1u);
}

// A task kind that keeps the base end: with no completion callback it must reach no
// JavaScript, and still free its slot.
class SilentTask : public Task {
 public:
  explicit SilentTask(Napi::Env& env, long timeoutMs, Gate* gate)
      : Task(env, 0, "", "test", false, timeoutMs, async_callback_info_t{}), _gate(gate) {}
  int SignalWork() override {
    if (_gate != nullptr) _gate->Wait();
    return 0;
  }

 private:
  Gate* _gate;
};

TEST_F(TaskTest, WithoutACallbackTheBaseEndCallsNothingAndFreesTheSlot) {
  Napi::Env env(nullptr);
  Gate gate;
  // [timeoutMs, gate]: a plain end, and a timed-out end followed by the late one.
  const std::pair<long, Gate*> cases[] = {{-1, nullptr}, {5, &gate}};
  for (const auto& entry : cases) {
    auto task = std::make_shared<SilentTask>(env, entry.first, entry.second);
    EXPECT_EQ(task->Name(), "unk");
    std::weak_ptr<Task> watch = task;
    const Task* running = task.get();  // alive until its gate opens
    _pool->Enqueue(std::move(task), false);
    if (entry.second != nullptr) {
      RunLoopUntil([&] { return running->TimedOut(); });
      entry.second->Open();
    }
    RunLoopUntil([&] { return watch.expired(); });
    EXPECT_EQ(_pool->InProgressSize(), 0u);
  }
  EXPECT_EQ(_pool->Stats().at("unk").count, 2u);
}

TEST(WorkPoolTest, SizeIsFixedByTheFirstRequest) {
  EXPECT_EQ(SetWorkPoolMaxSize(kTestWorkThreads), kTestWorkThreads);
  std::vector<std::shared_ptr<Work>> taken;
  for (int i = 0; i < kTestWorkThreads; ++i) {
    taken.push_back(GetWorkInstance());
    ASSERT_NE(taken.back(), nullptr);
  }
  EXPECT_EQ(GetWorkInstance(), nullptr);
  EXPECT_EQ(SetWorkPoolMaxSize(64), kTestWorkThreads);
  EXPECT_EQ(SetWorkPoolMaxSize(0), kTestWorkThreads);
  // Oldest first: released in one order, handed out again in that order.
  for (auto it = taken.rbegin(); it != taken.rend(); ++it) ReleaseWork(*it);
  for (auto it = taken.rbegin(); it != taken.rend(); ++it) EXPECT_EQ(GetWorkInstance(), *it);
  for (auto& work : taken) ReleaseWork(work);
}

}  // namespace
}  // namespace testing
}  // namespace common
}  // namespace nodejs
}  // namespace vrex
