// The work pool: a free list of Work under one mutex. The pool is never destroyed: at process
// exit its threads may still be running tasks, and joining them there would hang.
#include "common/work_pool.h"

#include <deque>
#include <mutex>
#include <thread>

#include "abstraction/logging.h"

namespace vrex {
namespace nodejs {
namespace common {

namespace {

struct work_pool_t {
  std::mutex mutex;
  std::deque<std::shared_ptr<Work>> free;  // guarded by mutex; oldest first
  int targetSize = -1;                     // guarded by mutex
  bool initialized = false;                // guarded by mutex
};

work_pool_t& Pool() {
  static work_pool_t* pool = new work_pool_t;
  return *pool;
}

int DefaultSize() {
  const unsigned count = std::thread::hardware_concurrency();
  return count == 0 ? 1 : static_cast<int>(count);
}

}  // namespace

int SetWorkPoolMaxSize(int size) {
  work_pool_t& pool = Pool();
  std::lock_guard<std::mutex> lock(pool.mutex);
  if (!pool.initialized) pool.targetSize = (size < 1 || size > 1023) ? DefaultSize() : size;
  return pool.targetSize;
}

std::shared_ptr<Work> GetWorkInstance() {
  work_pool_t& pool = Pool();
  std::lock_guard<std::mutex> lock(pool.mutex);
  if (!pool.initialized) {
    if (pool.targetSize == -1) {
      pool.targetSize = DefaultSize();
      LOGD << "GetWorkInstance thread pool use default value " << pool.targetSize;
    }
    for (int i = 0; i < pool.targetSize; ++i) pool.free.push_back(std::make_shared<Work>());
    pool.initialized = true;
  }
  if (pool.free.empty()) return nullptr;
  std::shared_ptr<Work> work = std::move(pool.free.front());
  pool.free.pop_front();
  return work;
}

void ReleaseWork(std::shared_ptr<Work> work) {
  work_pool_t& pool = Pool();
  std::lock_guard<std::mutex> lock(pool.mutex);
  pool.free.push_back(std::move(work));
}

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
