// WorkersPoolsManager. The map is never destroyed: pools live until the process ends, and
// exit hooks still reach them after static destructors would have run.
#include "common/workers_pools_manager.h"

#include <uv.h>

#include <algorithm>
#include <map>

#include "abstraction/logging.h"
#include "common/clock.h"

namespace vrex {
namespace nodejs {
namespace common {

namespace {

std::map<std::string, std::unique_ptr<WorkersPool>>& workers_pools_() {
  static auto* pools = new std::map<std::string, std::unique_ptr<WorkersPool>>;
  return *pools;
}

}  // namespace

constexpr unsigned long WorkersPoolsManager::kMaxPending;

void WorkersPoolsManager::SetupWorkersPool(const std::string& name, unsigned long maxSize) {
  auto& pools = workers_pools_();
  auto found = pools.find(name);
  WorkersPool* pool;
  if (found != pools.end()) {
    pool = found->second.get();
    pool->SetLimits(std::max(maxSize, 2UL), kMaxPending);
  } else {
    pool = new WorkersPool(name, maxSize, kMaxPending);
    pools.emplace(name, std::unique_ptr<WorkersPool>(pool));
  }
  LOGI << "    WorkersPoolsManager::SetupWorkersPool workers pool `" << name << "` is set to "
       << pool->MaxSize() << " concurrent workers and " << pool->MaxPending() << " pending tasks";
}

void WorkersPoolsManager::Enqueue(std::shared_ptr<Task> task, bool inJs) {
  if (task->ApiCallTime() == 0) task->SetApiCallTime(static_cast<long>(GetTimestampMillis()));
  uv_loop_t* loop = nullptr;
  if (napi_get_uv_event_loop(task->Env(), &loop) != napi_ok || loop != uv_default_loop()) {
    LOGE << "<-# WorkersPoolsManager::Enqueue task id=" << task->Id() << " name=" << task->Name()
         << " does not come from the main thread! Dropping task";
    return;
  }
  WorkersPool* pool = GetPool(task->PoolName());
  if (pool == nullptr) {
    LOGE << "<-# WorkersPoolsManager::Enqueue Workers pool `" << task->PoolName()
         << "` not found! Dropping task";
    return;
  }
  pool->Enqueue(std::move(task), inJs);
}

std::shared_ptr<Task> WorkersPoolsManager::Find(long id) {
  for (const auto& entry : workers_pools_()) {
    std::shared_ptr<Task> task = entry.second->Find(id);
    if (task) return task;
  }
  return nullptr;
}

void WorkersPoolsManager::CancelTask(long id) {
  for (const auto& entry : workers_pools_()) entry.second->CancelTask(id);
}

void WorkersPoolsManager::CancelAllTasks() {
  for (const auto& entry : workers_pools_()) entry.second->CancelAllTasks();
}

std::vector<std::string> WorkersPoolsManager::PoolNames() {
  std::vector<std::string> names;
  for (const auto& entry : workers_pools_()) names.push_back(entry.first);
  return names;
}

WorkersPool* WorkersPoolsManager::GetPool(const std::string& name) {
  auto& pools = workers_pools_();
  const auto found = pools.find(name);
  return found == pools.end() ? nullptr : found->second.get();
}

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
