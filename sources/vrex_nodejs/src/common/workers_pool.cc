// WorkersPool: the running and pending maps, and their log lines.
#include "common/workers_pool.h"

#include <sstream>

#include "abstraction/logging.h"

namespace vrex {
namespace nodejs {
namespace common {

namespace {

void AppendCounts(std::ostringstream& out, const std::map<std::string, long>& counts) {
  for (const auto& entry : counts) out << entry.first << "=" << entry.second << " ";
}

}  // namespace

bool IsTaskFrequent(const std::string& name) { return name == "statvfs"; }

WorkersPool::WorkersPool(const std::string& name, unsigned long maxSize, unsigned long maxPending)
    : _name(name), _maxSize(maxSize == 0 ? 1 : maxSize), _maxPending(maxPending == 0 ? 1 : maxPending) {}

void WorkersPool::SetLimits(unsigned long maxSize, unsigned long maxPending) {
  _maxSize = maxSize;
  _maxPending = maxPending;
}

std::string WorkersPool::GetStats() const {
  std::ostringstream out;
  out << "inprogress " << _inProgress.size() << "/" << _maxSize << " [";
  AppendCounts(out, _inProgressByName);
  out << "] pending " << _pending.size() << "/" << _maxPending << " [";
  AppendCounts(out, _pendingByName);
  out << "]";
  return out.str();
}

void WorkersPool::Start(const std::shared_ptr<Task>& task, bool inJs) {
  _inProgress.emplace(task->Id(), task);
  ++_inProgressByName[task->Name()];
  task->Enqueue(inJs, this);
}

void WorkersPool::Enqueue(std::shared_ptr<Task> task, bool inJs) {
  ++_totalSeen;
  if (_maxSize > _inProgress.size()) {
    Start(task, inJs);
    if (!IsTaskFrequent(task->Name())) {
      LOGI << "    WorkersPool::Enqueue pool " << _name << " task id=" << task->Id()
           << " name=" << task->Name() << " starting now " << GetStats();
    }
    return;
  }
  if (_maxPending <= _pending.size()) {
    LOGE << "    WorkersPool::Enqueue pool " << _name << " task id=" << task->Id()
         << " name=" << task->Name()
         << " dropped because pending queue is full. Pending task count " << _pending.size();
    return;
  }
  _pending.emplace(task->Id(), task);
  ++_pendingByName[task->Name()];
  if (!IsTaskFrequent(task->Name())) {
    LOGI << "    WorkersPool::Enqueue pool " << _name << " task id=" << task->Id()
         << " name=" << task->Name() << " added to pending list " << GetStats();
  }
}

void WorkersPool::SignalTaskFinished(Napi::Env&, bool inJs, long taskId) {
  const auto found = _inProgress.find(taskId);
  if (found != _inProgress.end()) {
    // Held until the log line is written: erasing may destroy the task.
    const std::shared_ptr<Task> task = found->second;
    _stats[task->Name()].Add(task->TimeStats());
    _inProgress.erase(found);
    --_inProgressByName[task->Name()];
    if (!IsTaskFrequent(task->Name())) {
      LOGI << "    WorkersPool::SignalTaskFinished release task id=" << taskId
           << " name=" << task->Name() << " " << GetStats();
    }
  }
  while (_inProgress.size() < _maxSize && !_pending.empty()) {
    const std::shared_ptr<Task> next = _pending.begin()->second;
    _pending.erase(_pending.begin());
    --_pendingByName[next->Name()];
    if (!IsTaskFrequent(next->Name())) {
      LOGI << "    WorkersPool::SignalTaskFinished start taskId=" << next->Id()
           << " name=" << next->Name() << " " << GetStats();
    }
    Start(next, inJs);
  }
}

std::shared_ptr<Task> WorkersPool::Find(long id) const {
  auto found = _pending.find(id);
  if (found != _pending.end()) return found->second;
  found = _inProgress.find(id);
  if (found != _inProgress.end()) return found->second;
  return nullptr;
}

void WorkersPool::CancelTask(long id) {
  _pending.erase(id);
  const auto running = _inProgress.find(id);
  if (running != _inProgress.end()) running->second->Cancel();
}

void WorkersPool::CancelAllTasks() {
  // Moved out first: destroying a task must not meet a map in the middle of a change.
  std::map<long, std::shared_ptr<Task>> dropped;
  dropped.swap(_pending);
  _pendingByName.clear();
  dropped.clear();
  // A copy: Cancel may reach back into the pool.
  const std::map<long, std::shared_ptr<Task>> running = _inProgress;
  for (const auto& entry : running) entry.second->Cancel();
}

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
