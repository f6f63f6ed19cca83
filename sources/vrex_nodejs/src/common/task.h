// Task: one unit of background work started from JavaScript and ended by a completion
// callback `callback(error, result)`.
//
// The road of one call: a binding makes the task and gives it to WorkersPoolsManager::Enqueue
// (main thread), the pool calls Enqueue when a slot is free, SignalWork runs on a Work thread,
// the finish handle brings the end back to the main thread, SignalWorkEnd calls JavaScript,
// and the pool (the TaskCleaner) drops the task, whose destructor gives the Work back.
//
// Threads: everything but SignalWork and SignalThreadCleanup runs on the main thread
// (uv_default_loop()); TriggerProgress may be called from any thread. Tasks are always held
// by std::shared_ptr and destroyed on the main thread.
#pragma once

#include <napi.h>
#include <uv.h>

#include <atomic>
#include <memory>
#include <string>

#include "common/async_callback.h"
#include "common/base_js_params.h"
#include "common/task_cleaner.h"
#include "common/time_stats.h"
#include "errors/errors.h"

namespace vrex {
namespace nodejs {
namespace common {

class Work;

class Task : public std::enable_shared_from_this<Task> {
 public:
  // What libuv handles and Work point to, so that a callback arriving after the task has gone
  // finds an expired pointer instead of freed memory.
  struct TaskData {
    std::weak_ptr<Task> task;
  };

  // An `id` below 1 takes GenerateId(); an empty `name` becomes "unk". `timeoutMs` of 0 or
  // below means no timer. Starts nothing.
  Task(Napi::Env& env, long id, const std::string& name, const std::string& poolName,
       bool hasProgress, long timeoutMs, const async_callback_info_t& completion);
  virtual ~Task();
  Task(const Task&) = delete;
  Task& operator=(const Task&) = delete;

  virtual bool IsOperation() const { return false; }
  virtual void Cancel() {}
  virtual void SignalWorkBegin(Napi::Env&, bool) {}
  // The work itself, on a Work thread. 0 is success, a negative code an error for JavaScript.
  virtual int SignalWork() = 0;
  // On the Work thread, after SignalWork.
  virtual void SignalThreadCleanup() {}
  virtual void SignalWorkProgress(Napi::Env&, bool) {}
  // Calls the completion callback once: callback(errorObject, null) for a non-zero `code`,
  // callback(null, resultObject) for 0. Both objects carry id, name, poolName, timedOut,
  // apiCallTime, operationStartTime, operationEndTime, callbackTime.
  virtual void SignalWorkEnd(Napi::Env& env, bool inJs, int code,
                             const vrex::errors::error_info_t* info);
  // Fill the error object and the result object before the common fields are set.
  virtual void GetCallbackParamError(Napi::Object&) {}
  virtual void GetCallbackParamInfo(Napi::Object&) {}

  // Ids for JavaScript, from 1 up.
  static long GenerateId();
  // Tasks now alive in the process.
  static long LivingCount() { return _cnt.load(); }

  // Starts the task: progress handle, SignalWorkBegin, a Work, the timer. Main thread; called
  // by the workers pool only. When no Work is free the task never runs and never calls back.
  void Enqueue(bool inJs, TaskCleaner* cleaner);
  // Asks for one SignalWorkProgress on the main thread; triggers before it runs coalesce.
  void TriggerProgress();

  Napi::Env Env() const { return _env; }
  long Id() const { return _id; }
  const std::string& Name() const { return _name; }
  const std::string& PoolName() const { return _poolName; }
  bool TimedOut() const { return _timedOut.load(); }
  long ApiCallTime() const { return _apiCallTime; }
  void SetApiCallTime(long ms) { _apiCallTime = ms; }
  // Set by the worker; a timeout's answer may read them while the work still runs.
  long OperationStartTime() const { return _operationStartTime.load(); }
  long OperationEndTime() const { return _operationEndTime.load(); }
  // Valid on the main thread once the run has ended.
  int Result() const { return _result; }
  const vrex::errors::error_info_t& ErrorInfo() const { return _errorInfo; }
  const time_stats_t& TimeStats() const { return _timeStats; }
  int log() const { return _log; }

 protected:
  Napi::Env _env;

 private:
  static void InternalWorkProc(Work* work);
  static void InternalJobFinished(Work* work, int status);
  static void InternalProgress(uv_async_t* handle);
  static void InternalTimerTriggered(uv_timer_t* handle);
  static void InternalDeleteUvProgress(uv_handle_t* handle);
  static void InternalDeleteUvTimer(uv_handle_t* handle);
  void InternalWork();
  void StartTimer();
  void GiveBackWork();

  const long _id;
  const std::string _name;
  const std::string _poolName;
  const bool _hasProgress;
  std::shared_ptr<Work> _work;
  uv_async_t* _progress = nullptr;
  uv_timer_t* _timer = nullptr;
  const long _timeoutMs;
  // Set by the timer on the main thread; the worker reads it before it begins.
  std::atomic<bool> _timedOut{false};
  // Written by the worker; read on the main thread after the finish handle fired.
  int _result = 0;
  vrex::errors::error_info_t _errorInfo;
  TaskCleaner* _cleaner = nullptr;  // not owned
  std::shared_ptr<async_callback_t> _completion;
  long _apiCallTime = 0;
  // Written by the worker, the start before the work and the end after it; read on the main
  // thread by a timeout's answer while the work runs.
  std::atomic<long> _operationStartTime{0};
  std::atomic<long> _operationEndTime{0};
  time_stats_t _timeStats;
  std::shared_ptr<TaskData> _taskData;
  const int _log;

  static std::atomic<long> _idGenerator;
  static std::atomic<long> _cnt;
};

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
