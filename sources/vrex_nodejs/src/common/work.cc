// Work: the worker thread's loop and the finish handle.
#include "common/work.h"

#include "abstraction/logging.h"

namespace vrex {
namespace nodejs {
namespace common {

namespace {

void WorkReleaseUVAsyncObject(uv_handle_t* handle) { delete reinterpret_cast<uv_async_t*>(handle); }

}  // namespace

long Work::nextId() {
  static std::atomic<long> counter{0};
  return counter.fetch_add(1);
}

Work::Work() : _id(nextId()) { _thread = std::thread(&Work::run, this); }

Work::~Work() {
  {
    std::lock_guard<std::mutex> lock(_mutex);
    _stop = true;
    _cond.notify_one();
  }
  if (_thread.joinable()) _thread.join();
  if (_finishHandle != nullptr) {
    uv_close(reinterpret_cast<uv_handle_t*>(_finishHandle), WorkReleaseUVAsyncObject);
    _finishHandle = nullptr;
  }
}

void Work::Setup(work_function_t work, finish_function_t finish) {
  _work.swap(work);
  _finish.swap(finish);
}

void Work::Start() {
  std::unique_lock<std::mutex> lock(_mutex);
  if (_finishHandle == nullptr) {
    auto* handle = new uv_async_t;
    const int status = uv_async_init(uv_default_loop(), handle, uv_async_finish_callback);
    if (status != 0) {
      // Without a handle the run cannot report its end; the task then never calls back.
      LOGE << "<-# Work::Start FAILED! uv_async_init id=" << _id << " err=" << uv_strerror(status);
      delete handle;
    } else {
      handle->data = this;
      _finishHandle = handle;
    }
  }
  _running = true;
  // Notified after the unlock, so that the thread does not wake only to wait for the mutex.
  lock.unlock();
  _cond.notify_one();
}

void Work::Stop() {
  std::lock_guard<std::mutex> lock(_mutex);
  _running = false;
  _cond.notify_one();
}

bool Work::IsRunning() const {
  std::lock_guard<std::mutex> lock(_mutex);
  return _running;
}

void Work::run() {
  std::unique_lock<std::mutex> lock(_mutex);
  while (!_stop) {
    if (!_running) {
      _cond.wait(lock);
      continue;
    }
    lock.unlock();
    if (_work) _work(this);
    lock.lock();
    // Cleared before the send: once the main thread sees the finish, this Work may be handed
    // to the next task and started again. Until then nothing else touches the handle, so
    // the send needs no lock.
    _running = false;
    uv_async_t* const finishHandle = _finish ? _finishHandle : nullptr;
    lock.unlock();
    if (finishHandle != nullptr) uv_async_send(finishHandle);
    lock.lock();
  }
}

void Work::uv_async_finish_callback(uv_async_t* handle) {
  static_cast<Work*>(handle->data)->finish_callback(0);
}

void Work::finish_callback(int status) {
  // The handle is taken out before the finish function runs: that function may give this
  // Work to the next task, whose Start must then make a handle of its own.
  uv_async_t* handle;
  {
    std::lock_guard<std::mutex> lock(_mutex);
    handle = _finishHandle;
    _finishHandle = nullptr;
  }
  if (handle != nullptr) uv_close(reinterpret_cast<uv_handle_t*>(handle), WorkReleaseUVAsyncObject);
  // A copy: the call may Setup this Work for its next task.
  const finish_function_t finish = _finish;
  if (finish) finish(this, status);
}

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
