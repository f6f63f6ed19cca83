// BaseOperation: a task that produces a stream of bytes on a worker thread while JavaScript
// pauses, resumes, cancels and drains it.
//
// The subclass's ProcessData fills a local buffer on the worker; the loop (SignalWork) sends
// those bytes to the destination: a file, a TCP descriptor, the operation's own buffer for a
// JavaScript drain (dstCallback, then consumeOperationBufferedData or
// transferOperationBufferedData), or an OperationObserver. The operation's buffer is the one
// that crosses threads, and the backpressure: the worker waits while it holds maxBufferSize
// bytes or more, while paused, or while ProcessData asked for a pause of some seconds.
//
// An operation that produces nothing for 60 s (paused, blocked, or waiting for a consumer)
// ends itself. Cancel is a clean end: the result carries `canceled` true, not an error.
//
// At the end JavaScript sees, in order: a last progress of 100 (when not canceled), a last
// dstCallback when bytes are left, then callback(error, result). Bytes left stay readable as
// long as the task lives.
//
// Threads: the constructor, Set*, Pause, Resume, Cancel, ConsumeData, MoveAllData and the
// Signal* callbacks run on the main thread; SignalWork, Init and ProcessData on the worker. One
// mutex guards all the state the two share.
#pragma once

#include <pthread.h>

#include <string>
#include <vector>

#include "common/async_callback.h"
#include "common/iobuffer.h"
#include "common/operation_observer.h"
#include "common/task.h"

namespace vrex {
namespace nodejs {
namespace common {

struct state_flip_t {
  virtual ~state_flip_t() = default;
  long timestamp = 0;  // ms since the epoch
  bool paused = false;
};

class BaseOperation : public Task {
 public:
  // An operation that produces nothing for longer than this ends itself.
  static constexpr long kMaxIdleMillis = 60000;
  // The poll of a socket that cannot take more yet.
  static constexpr long kSocketPollMillis = 5;

  // `maxBufferSize` 0 is taken as 1. The callback records are the start, drain, completion
  // and progress callbacks; each may be empty.
  BaseOperation(Napi::Env& env, long taskId, const std::string& name, const std::string& poolName,
                unsigned long maxBufferSize, bool paused, const async_callback_info_t& start,
                const async_callback_info_t& dst, const async_callback_info_t& completion,
                const async_callback_info_t& progress);
  ~BaseOperation() override;

  bool IsOperation() const override { return true; }
  void Cancel() override;
  void Pause();
  void Resume();
  // The two-argument resumeOperation: nothing here.
  virtual void ResumeAutoPause(long) {}
  virtual unsigned long BufferedBytesCount();
  virtual int PauseOnlyVideo(bool) { return 0; }
  virtual int ChangeVideoSendingStyle(bool, long) { return 0; }

  bool IsPaused();
  bool IsCanceled();
  bool IsComplete();
  bool IsCompleteOrPaused();
  unsigned long GetMaxBufferSize();
  // 0 is ignored.
  void SetMaxBufferSize(unsigned long size);
  // Before Enqueue.
  void SetDestinationFile(const std::string& path);
  // Before Enqueue. The descriptor is duplicated, so the caller keeps its own; a negative one
  // is no destination. Returns 0, or the system error of a descriptor that is not open.
  int SetDestinationTcpFd(int fd);
  void SetObserver(OperationObserver* observer);

  // Copies up to `length` buffered bytes to `data` and consumes them; wakes the worker even
  // when nothing was copied. Returns the count. Main thread.
  unsigned long ConsumeData(void* data, unsigned long length);
  // Moves every buffered byte into `target` (without a copy when `target` is empty) and counts
  // them as written. Main thread.
  void MoveAllData(vrex::common::IOBuffer& target);

  unsigned long TotalRead();
  unsigned long TotalWrite();
  long GetInitCompletedTimestamp();
  long GetFirstReadTimestamp();
  long GetFirstSendTimestamp();

  int SignalWork() override;
  void SignalWorkBegin(Napi::Env& env, bool inJs) override;
  void SignalWorkProgress(Napi::Env& env, bool inJs) override;
  void SignalWorkEnd(Napi::Env& env, bool inJs, int code,
                     const vrex::errors::error_info_t* info) override;
  void GetCallbackParamInfo(Napi::Object& result) override;
  void GetCallbackParamError(Napi::Object& error) override;

 protected:
  // Opens the source and takes what ProcessData needs; `dstFile` is the destination file, or
  // empty. Worker thread. 0 or an error, which ends the operation.
  virtual int Init(const std::string& dstFile) = 0;
  virtual bool IsLowPriority() = 0;
  virtual void GetOperationStartCallbackInfo(Napi::Object& info) = 0;
  virtual void GetOperationEndCallbackInfo(Napi::Object& info) = 0;
  virtual void GetOperationEndCallbackError(Napi::Object& error) = 0;
  // Appends the next bytes to `buffer`, at most about `maxRead`; SetComplete(true) at the end of
  // the data. `fd` is the destination file's descriptor or -1. A positive `waitSeconds` asks
  // the loop to wait that long before the next call. Worker thread. 0 or an error.
  virtual int ProcessData(vrex::common::IOBuffer& buffer, int fd, unsigned long maxRead,
                          int& waitSeconds) = 0;
  // 0 to 100; called on the main thread under the mutex, so it must not take it.
  virtual int GetProgress() { return 0; }
  // Hands the buffer to the observer. Under the mutex.
  virtual void SignalWorkProgress_UNSAFE(Napi::Env& env);

  // Counts bytes that ProcessData moved to the destination file itself, for the totals and
  // the progress. Worker thread.
  void CountCopied(unsigned long bytes) { _copied += bytes; }
  void SetComplete(bool complete);
  // Shown after " ID:" in the log lines of media operations.
  void SetAction(long actionStart, long actionId);
  long ActionId() const { return _actionId; }

 private:
  class Locked;
  struct destination_t;

  // initCompletedTime, firstReadTime, firstSendTime, totalRead, totalWrite, stateFlips.
  void GetCommonInfo(Napi::Object& object);
  bool MustExit();
  bool MustWait(unsigned long& used, unsigned long& max);
  void Wait();
  void WaitEmptyBuffer(const char* file, int line);
  int SendTcpFdPendigData(vrex::common::IOBuffer& local);
  int WriteToDestinationFile(destination_t& destination, const vrex::common::IOBuffer& local,
                             bool& stop);
  int RunLoop(destination_t& destination, bool hasConsumer, bool buffersData);
  int Drain();
  void AddFlip(bool paused);
  void CallProgress(Napi::Env& env, bool inJs, int progress);
  long ElapsedWaiting(long startedMs);

  pthread_mutex_t _mutex;
  pthread_cond_t _cond;  // one waiter at most: the worker
  async_callback_t _startCallback;
  async_callback_t _dstCallback;
  async_callback_t _progressCallback;
  // Everything below is guarded by _mutex, unless marked otherwise.
  OperationObserver* _observer = nullptr;  // not owned
  vrex::common::IOBuffer _buffer;
  bool _progressFailed = false;
  int _progressError = 0;
  bool _canceled = false;
  bool _paused = false;
  bool _complete = false;
  unsigned long _totalRead = 0;
  unsigned long _totalWrite = 0;
  unsigned long _copied = 0;  // worker thread: CountCopied's bytes of the present ProcessData
  int _lastProgress = -1;  // main thread only
  std::string _dstFileName;  // set before Enqueue
  int _dstTcpFd = -1;        // set before Enqueue; our own duplicate
  unsigned long _maxBufferSize;
  long _initCompletedTimestamp = -1;
  long _firstReadTimestamp = -1;
  long _firstSendTimestamp = -1;
  int _waitSeconds = 0;
  long _actionStart = 0;
  long _actionId = 0;
  unsigned long _initTime = 0;   // worker only
  unsigned long _waitTime = 0;
  unsigned long _sleepTime = 0;
  unsigned long _idleTime = 0;
  std::vector<state_flip_t> _stateFlips;
};

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
