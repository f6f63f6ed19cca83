// WorkersPool: limits how many tasks of one class run at once and queues the rest, in id
// order. It owns no threads (those come from the work pool) and no lock: every member is
// called on the main thread.
#pragma once

#include <napi.h>

#include <map>
#include <memory>
#include <string>

#include "common/task.h"
#include "common/task_cleaner.h"
#include "common/time_stats.h"

namespace vrex {
namespace nodejs {
namespace common {

// Tasks that JavaScript polls all the time ("statvfs"): the pool logs nothing about them.
bool IsTaskFrequent(const std::string& name);

class WorkersPool : public TaskCleaner {
 public:
  // A limit of 0 is stored as 1.
  WorkersPool(const std::string& name, unsigned long maxSize, unsigned long maxPending);

  // Starts the task if fewer than maxSize run, else queues it; with maxPending already
  // waiting the task is dropped: it is destroyed and never calls back. Counted in totalSeen
  // in every case.
  void Enqueue(std::shared_ptr<Task> task, bool inJs);
  // Adds the task's time to the statistics of its name, frees its slot and starts the oldest
  // pending tasks while there is room.
  void SignalTaskFinished(Napi::Env& env, bool inJs, long taskId) override;

  // A pending or running task, or an empty pointer.
  std::shared_ptr<Task> Find(long id) const;
  // Forgets a pending task (its count by name stays as it was); cancels a running one.
  void CancelTask(long id);
  // Drops every pending task and cancels every running one.
  void CancelAllTasks();

  void SetLimits(unsigned long maxSize, unsigned long maxPending);
  // Fills name, maxSize, pendingSize, inProgressSize, totalSeen, totalSeenSinceLastQuery
  // and stats; the query resets totalSeenSinceLastQuery.
  void GetJSInfo(Napi::Object& object);
  // "inprogress 1/4 [nop=1 ] pending 0/200 [nop=0 ]"
  std::string GetStats() const;

  const std::string& Name() const { return _name; }
  unsigned long MaxSize() const { return _maxSize; }
  unsigned long MaxPending() const { return _maxPending; }
  size_t PendingSize() const { return _pending.size(); }
  size_t InProgressSize() const { return _inProgress.size(); }
  uint64_t TotalSeen() const { return _totalSeen; }
  const std::map<std::string, time_stats_t>& Stats() const { return _stats; }

 private:
  void Start(const std::shared_ptr<Task>& task, bool inJs);

  uint64_t _totalSeen = 0;
  uint64_t _totalSeenAtLastQuery = 0;
  const std::string _name;
  unsigned long _maxSize;
  unsigned long _maxPending;
  // By id: ids grow, so the first entry is the oldest.
  std::map<long, std::shared_ptr<Task>> _pending;
  std::map<long, std::shared_ptr<Task>> _inProgress;
  std::map<std::string, long> _pendingByName;
  std::map<std::string, long> _inProgressByName;
  std::map<std::string, time_stats_t> _stats;
};

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
