// Work: one long-lived thread that runs one function at a time and reports its end to the
// main thread through a libuv async handle on uv_default_loop().
//
// Main thread: Setup, Start, Stop, the finish function, the destructor. Worker thread: the
// work function. A Work is handed out by GetWorkInstance (work_pool.h) and given back with
// ReleaseWork; Setup and Start are only called while it is not running.
#pragma once

#include <uv.h>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace vrex {
namespace nodejs {
namespace common {

class Work {
 public:
  typedef std::function<void(Work*)> work_function_t;
  typedef std::function<void(Work*, int status)> finish_function_t;

  Work();
  // Stops and joins the thread (waiting for a function under way), then closes the handle.
  ~Work();
  Work(const Work&) = delete;
  Work& operator=(const Work&) = delete;

  // Swaps in the function run on the thread and the one run on the main thread after it.
  void Setup(work_function_t work, finish_function_t finish);
  // Wakes the thread to run the work function once. Makes the finish handle if there is none.
  void Start();
  // Clears the request to run; a function under way is not interrupted.
  void Stop();
  bool IsRunning() const;

  long Id() const { return _id; }
  // Opaque to Work: the task machinery keeps the address of a task's TaskData pointer here.
  void SetUserData(void* data) { _userData.store(data); }
  void* UserData() const { return _userData.load(); }

  // Process-wide counter, starting at 0.
  static long nextId();

 private:
  void run();
  void finish_callback(int status);
  static void uv_async_finish_callback(uv_async_t* handle);

  std::atomic<void*> _userData{nullptr};
  const long _id;
  bool _stop = false;                  // guarded by _mutex
  bool _running = false;               // guarded by _mutex
  uv_async_t* _finishHandle = nullptr;  // guarded by _mutex; one per run, closed by the finish
  std::thread _thread;
  mutable std::mutex _mutex;
  std::condition_variable _cond;
  work_function_t _work;      // written only while the thread is idle
  finish_function_t _finish;  // written only while the thread is idle
};

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
