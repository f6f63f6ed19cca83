// TaskCleaner: told on the main thread when a task's run has ended, so that its slot can be
// freed. WorkersPool implements it.
#pragma once

#include <napi.h>

namespace vrex {
namespace nodejs {
namespace common {

class TaskCleaner {
 public:
  virtual ~TaskCleaner() = default;
  // Main thread. Usually drops the last reference to the task.
  virtual void SignalTaskFinished(Napi::Env& env, bool inJs, long taskId) = 0;
};

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
