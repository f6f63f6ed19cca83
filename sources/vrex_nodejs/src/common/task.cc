// Task: the road from Enqueue to the destructor, across the Work thread and libuv handles.
#include "common/task.h"

#include <cstdio>

#include "abstraction/logging.h"
#include "common/clock.h"
#include "common/process_env.h"
#include "common/work.h"
#include "common/work_pool.h"
#include "nodejs/errors.h"

namespace vrex {
namespace nodejs {
namespace common {

std::atomic<long> Task::_idGenerator{1};
std::atomic<long> Task::_cnt{0};

namespace {

// A handle scope around a call into the task from libuv. Going on without the scope when it
// cannot be opened is better than dropping the task's end.
class task_scope_t {
 public:
  explicit task_scope_t(napi_env env) : _env(env) {
    if (napi_open_handle_scope(_env, &_scope) != napi_ok) _scope = nullptr;
  }
  ~task_scope_t() {
    if (_scope != nullptr) napi_close_handle_scope(_env, _scope);
  }
  task_scope_t(const task_scope_t&) = delete;
  task_scope_t& operator=(const task_scope_t&) = delete;

 private:
  napi_env _env;
  napi_handle_scope _scope = nullptr;
};

// The task behind a handle's or a Work's pointer to a TaskData pointer. `what` and
// `pointerWord` fill the log lines of a task that is gone.
std::shared_ptr<Task> ResolveTask(void* data, const char* what, const char* pointerWord) {
  auto* pointer = static_cast<std::shared_ptr<Task::TaskData>*>(data);
  if (pointer == nullptr) {
    LOGE << " Failed to " << what << ": no task data " << pointerWord << ".";
    return nullptr;
  }
  const std::shared_ptr<Task::TaskData> taskData = *pointer;
  if (!taskData) {
    LOGE << " Failed to " << what << ": no task data.";
    return nullptr;
  }
  std::shared_ptr<Task> task = taskData->task.lock();
  if (!task) LOGE << " Failed to " << what << ": no task.";
  return task;
}

long ElapsedMs(long sinceMs) { return static_cast<long>(GetTimestampMillis()) - sinceMs; }

}  // namespace

Task::Task(Napi::Env& env, long id, const std::string& name, const std::string& poolName,
           bool hasProgress, long timeoutMs, const async_callback_info_t& completion)
    : _env(env),
      _id(id < 1 ? GenerateId() : id),
      _name(name.empty() ? "unk" : name),
      _poolName(poolName),
      _hasProgress(hasProgress),
      _timeoutMs(timeoutMs),
      _completion(std::make_shared<async_callback_t>(completion)),
      _taskData(std::make_shared<TaskData>()),
      _log(process_env.traceTasks) {
  ++_cnt;
}

Task::~Task() {
  if (_log) LOGI << "#-> Task::~Task id=" << _id << " name=" << _name;
  --_cnt;
  if (_progress != nullptr) _progress->data = nullptr;
  GiveBackWork();
  if (_progress != nullptr) {
    uv_close(reinterpret_cast<uv_handle_t*>(_progress), InternalDeleteUvProgress);
    _progress = nullptr;
  }
  if (_timer != nullptr) {
    _timer->data = nullptr;
    uv_timer_stop(_timer);
    uv_close(reinterpret_cast<uv_handle_t*>(_timer), InternalDeleteUvTimer);
    _timer = nullptr;
  }
  if (_log) LOGI << "<-# Task::~Task id=" << _id << " in " << ElapsedMs(_apiCallTime) << " ms";
}

long Task::GenerateId() { return _idGenerator.fetch_add(1); }

void Task::Enqueue(bool inJs, TaskCleaner* cleaner) {
  if (_log) {
    LOGI << "#-> Task::Enqueue id=" << _id << " name=" << _name << " count=" << _cnt.load()
         << " pool=" << _poolName;
  }
  _cleaner = cleaner;
  _taskData->task = shared_from_this();
  if (_hasProgress && _progress == nullptr) {
    _progress = new uv_async_t;
    if (uv_async_init(uv_default_loop(), _progress, InternalProgress) != 0) {
      LOGE << "<-# Task::Enqueue FAILED! progress handle id=" << _id;
      delete _progress;
      _progress = nullptr;
    } else {
      _progress->data = &_taskData;
    }
  }
  SignalWorkBegin(_env, inJs);
  _work = GetWorkInstance();
  if (_work) {
    _work->SetUserData(&_taskData);
    _work->Setup(InternalWorkProc, InternalJobFinished);
    _work->Start();
  } else {
    LOGE << "\tTaskL::Enqueue Failed to get Work instance id=" << _id << " name=" << _name;
  }
  if (_timeoutMs > 0) StartTimer();
}

void Task::GiveBackWork() {
  if (!_work) return;
  _work->SetUserData(nullptr);
  _work->Stop();
  ReleaseWork(_work);
  _work.reset();
}

void Task::StartTimer() {
  _timer = new uv_timer_t;
  uv_timer_init(uv_default_loop(), _timer);
  _timer->data = &_taskData;
  uv_timer_start(_timer, InternalTimerTriggered, static_cast<uint64_t>(_timeoutMs), 0);
}

void Task::TriggerProgress() {
  if (_progress != nullptr) uv_async_send(_progress);
}

void Task::InternalWorkProc(Work* work) {
  const std::shared_ptr<Task> task = ResolveTask(work->UserData(), "start working", "pointer");
  if (!task || task->_timedOut.load()) return;
  task->InternalWork();
}

void Task::InternalWork() {
  const int64_t cpuStart = GetThreadCpuMicros();
  char threadName[32];
  snprintf(threadName, sizeof(threadName), "B_%u", static_cast<unsigned>(_id));
  SetThreadSelfName(threadName);

  const int64_t start = GetTimestampMicros();
  // Stamped before the work: a timeout's answer, given while it runs, tells when it began.
  _operationStartTime.store(static_cast<long>(start / 1000));
  _result = SignalWork();
  const int64_t end = GetTimestampMicros();
  _operationEndTime.store(static_cast<long>(end / 1000));
  if (_result < 0) {
    const vrex::errors::error_info_t* info = vrex::errors::GetErrorInfo();
    _errorInfo.chain = info->chain;
    _errorInfo.frames = info->frames;
    _errorInfo.extraInfo = info->extraInfo;
  }
  SignalThreadCleanup();

  SetThreadSelfName("free worker");
  const int64_t cpuEnd = GetThreadCpuMicros();
  _timeStats.userUs = static_cast<uint64_t>(end - start);
  _timeStats.cpuUs = static_cast<uint64_t>(cpuEnd - cpuStart);
  _timeStats.count = 1;
}

void Task::InternalJobFinished(Work* work, int status) {
  const std::shared_ptr<Task> task = ResolveTask(work->UserData(), "finish job", "ptr");
  if (!task) return;
  if (task->_log) LOGI << "#-> Task::InternalJobFinished id=" << task->_id << " status=" << status;
  if (!task->_timedOut.load()) {
    task_scope_t scope(task->_env);
    task->SignalWorkEnd(task->_env, false, task->_result, &task->_errorInfo);
  }
  // The answer is given: a timer still pending must not give a second one.
  if (task->_timer != nullptr) uv_timer_stop(task->_timer);
  work->SetUserData(nullptr);
  // Given back before the pool starts the next task, which may need this very thread.
  task->GiveBackWork();
  if (task->_cleaner != nullptr) {
    task_scope_t scope(task->_env);
    task->_cleaner->SignalTaskFinished(task->_env, false, task->_id);
  }
}

void Task::InternalProgress(uv_async_t* handle) {
  const std::shared_ptr<Task> task = ResolveTask(handle->data, "run progress", "ptr");
  if (!task || task->_timedOut.load()) return;
  task_scope_t scope(task->_env);
  task->SignalWorkProgress(task->_env, false);
}

void Task::InternalTimerTriggered(uv_timer_t* handle) {
  const std::shared_ptr<Task> task = ResolveTask(handle->data, "run timeout", "ptr");
  if (!task) return;
  task->_timedOut.store(true);
  const int code = VREX_ERROR(vrex::webrtcnodejs::ERR_NODEJS_OPERATION_TIMED_OUT);
  task_scope_t scope(task->_env);
  task->SignalWorkEnd(task->_env, false, code, vrex::errors::GetErrorInfo());
}

void Task::InternalDeleteUvProgress(uv_handle_t* handle) {
  delete reinterpret_cast<uv_async_t*>(handle);
}

void Task::InternalDeleteUvTimer(uv_handle_t* handle) {
  delete reinterpret_cast<uv_timer_t*>(handle);
}

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
