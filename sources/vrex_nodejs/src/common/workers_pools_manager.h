// WorkersPoolsManager: the process-wide registry of workers pools, by name. Main thread only.
//
// Only start-up and setWorkersPoolsLimits create pools: a task that names any other pool is
// dropped without a callback. Pools are never removed.
#pragma once

#include <napi.h>

#include <memory>
#include <string>
#include <vector>

#include "common/task.h"
#include "common/workers_pool.h"

namespace vrex {
namespace nodejs {
namespace common {

class WorkersPoolsManager {
 public:
  // The limits of every pool made here: how many tasks may wait.
  static constexpr unsigned long kMaxPending = 200;

  // Creates the pool with `maxSize`, or sets an existing one to max(maxSize, 2).
  static void SetupWorkersPool(const std::string& name, unsigned long maxSize);
  // Stamps apiCallTime (when unset) and gives the task to the pool it names. A task made in
  // an environment other than the main thread's (a worker thread's) is dropped: its end would
  // call into that environment from the main thread.
  static void Enqueue(std::shared_ptr<Task> task, bool inJs);
  // The first pool, in name order, that holds the id; or an empty pointer.
  static std::shared_ptr<Task> Find(long id);
  static void CancelTask(long id);
  // Drops every pending task and cancels every running one, in every pool. Safe to repeat.
  static void CancelAllTasks();
  // One object per pool, in name order, from index 0.
  static void GetJSInfo(Napi::Array& array);
  // The names of all pools, in name order.
  static std::vector<std::string> PoolNames();
  // The pool of that name, or null. The pointer stays valid for the life of the process.
  static WorkersPool* GetPool(const std::string& name);
};

// Gives `task` to the pool it names and returns its id, the value every task function returns
// to JavaScript.
Napi::Value EnqueueTask(Napi::Env env, std::shared_ptr<Task> task);

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
