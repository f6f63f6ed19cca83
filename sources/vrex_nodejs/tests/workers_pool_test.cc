// Workers pools: limits, the pending queue in id order, drops, statistics, cancel, the
// manager's floor rule and unknown pools; and a stress run over many pools.
#include "common/workers_pool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#include "common/workers_pools_manager.h"
#include "task_test_support.h"

namespace vrex {
namespace nodejs {
namespace common {
namespace testing {
namespace {

class WorkersPoolTest : public TaskFixture {
 protected:
  // Enqueues a probe task whose work waits on `gate` when one is given.
  long Offer(WorkersPool& pool, const std::string& name, Gate* gate = nullptr) {
    auto task = std::make_shared<ProbeTask>(&_journal, name, pool.Name(), -1, false, [gate](ProbeTask&) {
      if (gate != nullptr) gate->Wait();
      return 0;
    });
    const long id = task->Id();
    pool.Enqueue(std::move(task), false);
    return id;
  }

  std::vector<long> EndedIds() const {
    std::vector<long> ids;
    for (const end_record_t& end : _journal.ends) ids.push_back(end.id);
    return ids;
  }

};

TEST_F(WorkersPoolTest, TheTaskPastTheFullPendingQueueIsDroppedButCounted) {
  WorkersPool& pool = MakePool("full", 1, 200);
  Gate gate;
  const long first = Offer(pool, "probe", &gate);
  gate.AwaitArrivals(1);
  for (int i = 0; i < 200; ++i) Offer(pool, "probe");
  const long living = Task::LivingCount();
  const long dropped = Offer(pool, "probe");
  EXPECT_EQ(Task::LivingCount(), living) << "the dropped task must be destroyed at once";
  EXPECT_EQ(pool.TotalSeen(), 202u);
  EXPECT_EQ(pool.PendingSize(), 200u);
  EXPECT_EQ(pool.Find(dropped), nullptr);
  EXPECT_TRUE(CapturedLog::Contains("    WorkersPool::Enqueue pool full task id=" + std::to_string(dropped) +
                                    " name=probe dropped because pending queue is full. Pending task count 200"));

  gate.Open();
  RunLoopUntil([&] { return _journal.ends.size() == 201u; });
  const std::vector<long> ended = EndedIds();
  EXPECT_EQ(ended.front(), first);
  EXPECT_EQ(std::count(ended.begin(), ended.end(), dropped), 0);
  EXPECT_EQ(pool.Stats().at("probe").count, 201u);
}

TEST_F(WorkersPoolTest, ZeroLimitsAreStoredAsOne) {
  WorkersPool& pool = MakePool("zero", 0, 0);
  EXPECT_EQ(pool.MaxSize(), 1u);
  EXPECT_EQ(pool.MaxPending(), 1u);
}

TEST_F(WorkersPoolTest, StatsLineAndFindFollowRunningAndPendingTasks) {
  WorkersPool& pool = MakePool("line", 1);
  Gate gate;
  const long running = Offer(pool, "alpha", &gate);
  gate.AwaitArrivals(1);
  const long waiting = Offer(pool, "beta");
  Offer(pool, "beta");
  EXPECT_EQ(pool.GetStats(), "inprogress 1/1 [alpha=1 ] pending 2/200 [beta=2 ]");
  ASSERT_NE(pool.Find(running), nullptr);
  EXPECT_EQ(pool.Find(running)->Id(), running);
  ASSERT_NE(pool.Find(waiting), nullptr);
  EXPECT_EQ(pool.Find(waiting)->Id(), waiting);
  EXPECT_EQ(pool.Find(waiting + 1000), nullptr);
  gate.Open();
  RunLoopUntil([&] { return _journal.ends.size() == 3u; });
}

TEST_F(WorkersPoolTest, CancelForgetsPendingTasksAndCancelsRunningOnes) {
  WorkersPool& pool = MakePool("cancel", 1);
  Gate gate;
  const long running = Offer(pool, "probe", &gate);
  gate.AwaitArrivals(1);
  const long pendingA = Offer(pool, "probe");
  const long pendingB = Offer(pool, "probe");
  const long pendingC = Offer(pool, "probe");

  pool.CancelTask(pendingA);
  EXPECT_EQ(pool.Find(pendingA), nullptr);
  EXPECT_TRUE(_journal.cancels.empty()) << "a pending task is dropped, not cancelled";
  pool.CancelTask(running);
  EXPECT_EQ(_journal.cancels, std::vector<long>{running});
  // The count by name is left as it was for a single cancel.
  EXPECT_EQ(pool.GetStats(), "inprogress 1/1 [probe=1 ] pending 2/200 [probe=3 ]");

  pool.CancelAllTasks();
  pool.CancelAllTasks();
  EXPECT_EQ(pool.PendingSize(), 0u);
  EXPECT_EQ(pool.Find(pendingB), nullptr);
  EXPECT_EQ(pool.Find(pendingC), nullptr);
  EXPECT_EQ(_journal.cancels, (std::vector<long>{running, running, running}));
  EXPECT_EQ(pool.GetStats(), "inprogress 1/1 [probe=1 ] pending 0/200 []");

  gate.Open();
  RunLoopUntil([&] { return pool.InProgressSize() == 0; });
  EXPECT_EQ(EndedIds(), std::vector<long>{running});
}

TEST_F(WorkersPoolTest, ManagerSetsUpPoolsWithAFloorOfTwoOnChange) {
  struct step_t {
    unsigned long requested;
    unsigned long expected;
  };
  const step_t steps[] = {{1, 1}, {1, 2}, {7, 7}, {2, 2}, {1, 2}, {300, 300}};
  // Pools are never removed: a name of its own for each run, which must begin with no pool.
  static int run = 0;
  const std::string name = "FloorTest" + std::to_string(run++);
  for (const step_t& step : steps) {
    WorkersPoolsManager::SetupWorkersPool(name, step.requested);
    WorkersPool* pool = WorkersPoolsManager::GetPool(name);
    ASSERT_NE(pool, nullptr);
    EXPECT_EQ(pool->MaxSize(), step.expected) << step.requested;
    EXPECT_EQ(pool->MaxPending(), 200u);
    EXPECT_TRUE(CapturedLog::Contains("    WorkersPoolsManager::SetupWorkersPool workers pool `" + name +
                                      "` is set to " + std::to_string(step.expected) +
                                      " concurrent workers and 200 pending tasks"));
    CapturedLog::Clear();
  }
}

TEST_F(WorkersPoolTest, ManagerDropsTasksOfAnUnknownPoolAndFindsOthersByName) {
  WorkersPoolsManager::SetupWorkersPool("ManagerA", 2);
  WorkersPoolsManager::SetupWorkersPool("ManagerB", 2);
  const long living = Task::LivingCount();
  auto lost = std::make_shared<ProbeTask>(&_journal, "probe", "NoSuchPool");
  const long lostId = lost->Id();
  WorkersPoolsManager::Enqueue(std::move(lost), false);
  EXPECT_EQ(Task::LivingCount(), living);
  EXPECT_EQ(WorkersPoolsManager::Find(lostId), nullptr);
  EXPECT_TRUE(CapturedLog::Contains("<-# WorkersPoolsManager::Enqueue Workers pool `NoSuchPool` not found! Dropping task"));

  Gate gate;
  auto held = std::make_shared<ProbeTask>(&_journal, "probe", "ManagerB", -1, false, [&](ProbeTask&) {
    gate.Wait();
    return 0;
  });
  const long heldId = held->Id();
  EXPECT_EQ(held->ApiCallTime(), 0);
  WorkersPoolsManager::Enqueue(held, false);
  EXPECT_GT(held->ApiCallTime(), 0) << "the manager stamps the call time";
  EXPECT_EQ(WorkersPoolsManager::Find(heldId), held);
  held.reset();
  gate.Open();
  RunLoopUntil([&] { return WorkersPoolsManager::Find(heldId) == nullptr; });
  EXPECT_EQ(EndedIds(), std::vector<long>{heldId});
}

TEST_F(WorkersPoolTest, StressManyPoolsThousandsOfTasks) {
  // One pool per work thread, each with its pending queue full, several times over.
  constexpr int kRounds = 5;
  constexpr int kPerRound = 201;
  std::vector<WorkersPool*> pools;
  for (int p = 0; p < kTestWorkThreads; ++p) pools.push_back(&MakePool("stress" + std::to_string(p), 1));
  std::map<long, std::string> poolOf;
  std::map<std::string, std::vector<long>> offered;
  for (int round = 0; round < kRounds; ++round) {
    for (int i = 0; i < kPerRound; ++i) {
      for (WorkersPool* pool : pools) {
        const long id = Offer(*pool, "stress");
        poolOf[id] = pool->Name();
        offered[pool->Name()].push_back(id);
      }
    }
    for (WorkersPool* pool : pools) EXPECT_EQ(pool->PendingSize(), static_cast<size_t>(kPerRound - 1));
    RunLoopUntil([&] { return _journal.ends.size() == poolOf.size(); });
  }

  std::map<std::string, std::vector<long>> ended;
  for (const end_record_t& end : _journal.ends) {
    EXPECT_EQ(end.code, 0);
    ended[poolOf.at(end.id)].push_back(end.id);
  }
  EXPECT_EQ(ended, offered) << "each pool of limit 1 ends its tasks in id order";
  for (WorkersPool* pool : pools) {
    EXPECT_EQ(pool->TotalSeen(), static_cast<uint64_t>(kRounds * kPerRound));
    EXPECT_EQ(pool->Stats().at("stress").count, static_cast<uint64_t>(kRounds * kPerRound));
    EXPECT_EQ(pool->InProgressSize(), 0u);
  }
  EXPECT_EQ(Task::LivingCount(), _living);
}

}  // namespace
}  // namespace testing
}  // namespace common
}  // namespace nodejs
}  // namespace vrex
