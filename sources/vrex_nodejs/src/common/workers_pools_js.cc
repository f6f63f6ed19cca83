// The pools seen from JavaScript: their statistics (getWorkersPoolsStats), and the task id a
// task function returns.
#include "common/workers_pools_manager.h"

namespace vrex {
namespace nodejs {
namespace common {

namespace {

Napi::Number Count(Napi::Env env, uint64_t value) {
  return Napi::Number::New(env, static_cast<double>(value));
}

}  // namespace

void WorkersPool::GetJSInfo(Napi::Object& object) {
  Napi::Env env = object.Env();
  object.Set("name", Napi::String::New(env, _name));
  object.Set("maxSize", Count(env, _maxSize));
  object.Set("pendingSize", Count(env, _pending.size()));
  object.Set("inProgressSize", Count(env, _inProgress.size()));
  object.Set("totalSeen", Count(env, _totalSeen));
  object.Set("totalSeenSinceLastQuery", Count(env, _totalSeen - _totalSeenAtLastQuery));
  _totalSeenAtLastQuery = _totalSeen;
  Napi::Object stats = Napi::Object::New(env);
  for (const auto& entry : _stats) {
    Napi::Object item = Napi::Object::New(env);
    item.Set("userUs", Count(env, entry.second.userUs));
    item.Set("cpuUs", Count(env, entry.second.cpuUs));
    item.Set("count", Count(env, entry.second.count));
    stats.Set(entry.first, item);
  }
  object.Set("stats", stats);
}

void WorkersPoolsManager::GetJSInfo(Napi::Array& array) {
  uint32_t index = 0;
  for (const std::string& name : PoolNames()) {
    Napi::Object object = Napi::Object::New(array.Env());
    GetPool(name)->GetJSInfo(object);
    array.Set(index++, object);
  }
}

Napi::Value EnqueueTask(Napi::Env env, std::shared_ptr<Task> task) {
  const long id = task->Id();
  WorkersPoolsManager::Enqueue(std::move(task), true);
  return Napi::Number::New(env, static_cast<double>(id));
}

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
