// BaseOperation on the worker: the loop that moves ProcessData's bytes to the destination,
// and the waits of its backpressure.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <memory>
#include <utility>

#include "abstraction/filelock.h"
#include "abstraction/logging.h"
#include "common/base_operation.h"
#include "common/base_operation_locked.h"
#include "common/clock.h"
#include "mscommon/ipc_file_lock.h"

namespace vrex {
namespace nodejs {
namespace common {

using vrex::common::IOBuffer;

namespace {

timespec MonotonicIn(long millis) {
  timespec at;
  clock_gettime(CLOCK_MONOTONIC, &at);
  at.tv_sec += millis / 1000;
  at.tv_nsec += (millis % 1000) * 1000000;
  if (at.tv_nsec >= 1000000000) {
    at.tv_sec += 1;
    at.tv_nsec -= 1000000000;
  }
  return at;
}

long NowMillis() { return static_cast<long>(GetTimestampMillis()); }

void SleepMillis(long millis) {
  timespec left = {millis / 1000, (millis % 1000) * 1000000};
  while (nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

}  // namespace

// The destination file of one run: its descriptor and the locks that guard each write.
struct BaseOperation::destination_t {
  std::string path;
  int fd = -1;
  vrex::abstraction::file_lock_t fileLock;
  std::unique_ptr<ms::IPCFileLock> ipcLock;  // null or unusable: no process-wide lock

  ~destination_t() {
    if (fd >= 0) close(fd);
  }
};

bool BaseOperation::MustExit() {
  Locked lock(_mutex);
  if (_idleTime > static_cast<unsigned long>(kMaxIdleMillis)) {
    LOGW << "    BaseOperation::MustExit ID:" << _actionId << " idle_time_=" << _idleTime
         << " exceeds " << kMaxIdleMillis << " ms. Exiting.";
    return true;
  }
  if (_canceled) {
    LOGI << "    BaseOperation::MustExit ID:" << _actionId << " canceled. Exiting.";
    return true;
  }
  if (_progressError != 0) {
    LOGI << "    BaseOperation::MustExit ID:" << _actionId << " progress error. Exiting.";
    return true;
  }
  return _progressFailed;
}

bool BaseOperation::MustWait(unsigned long& used, unsigned long& max) {
  Locked lock(_mutex);
  used = _buffer.GetAvailableBytesCount();
  max = _maxBufferSize;
  if (used >= max) return true;
  return _paused || _waitSeconds > 0;
}

long BaseOperation::ElapsedWaiting(long startedMs) {
  const long elapsed = NowMillis() - startedMs;
  _waitTime += elapsed;
  _idleTime += elapsed;
  return elapsed;
}

void BaseOperation::Wait() {
  Locked lock(_mutex);
  const unsigned long used = _buffer.GetAvailableBytesCount();
  if (!_paused && _waitSeconds <= 0 && _dstTcpFd > 0 && used > 0) {
    // A socket that cannot take more yet: poll it. The mutex stays held, by design, so the
    // main thread's calls on this operation wait out the 5 ms.
    SleepMillis(kSocketPollMillis);
    _sleepTime += kSocketPollMillis;
    _idleTime += kSocketPollMillis;
    return;
  }
  const long started = NowMillis();
  if (_waitSeconds > 0) {
    // A wait asked for by ProcessData lasts its time: a drain taking bytes does not cut it
    // short (the source has nothing new to give), only a cancel does.
    const timespec until = MonotonicIn(_waitSeconds * 1000L);
    while (!_canceled && pthread_cond_timedwait(&_cond, &_mutex, &until) != ETIMEDOUT) {
    }
    _waitSeconds = 0;
  } else if (!_canceled && (_paused || used >= _maxBufferSize)) {
    // Checked under the mutex: a Resume, Cancel or drain that came since MustWait is not lost.
    const timespec until = MonotonicIn(kMaxIdleMillis);
    pthread_cond_timedwait(&_cond, &_mutex, &until);
  }
  if (ElapsedWaiting(started) >= kMaxIdleMillis) {
    LOGW << "    BaseOperation::Wait ID:" << _actionId << " Wait timeout exceeded " << kMaxIdleMillis
         << " ms";
  }
}

void BaseOperation::WaitEmptyBuffer(const char* file, int line) {
  Locked lock(_mutex);
  if (_paused || _canceled || _buffer.GetAvailableBytesCount() == 0) return;
  // One wake-up, whatever it was; bounded so that a consumer who went away ends the
  // operation by the idle limit instead of holding this thread for ever.
  const long started = NowMillis();
  const timespec until = MonotonicIn(kMaxIdleMillis);
  pthread_cond_timedwait(&_cond, &_mutex, &until);
  if (ElapsedWaiting(started) >= kMaxIdleMillis) {
    LOGW << "    BaseOperation::WaitEmptyBuffer ID:" << _actionId << " no consumer for "
         << kMaxIdleMillis << " ms at " << file << ":" << line;
  }
}

int BaseOperation::SendTcpFdPendigData(IOBuffer& local) {
  int fd;
  {
    Locked lock(_mutex);
    fd = _dstTcpFd;
    if (fd < 0) return 0;
    if (_firstSendTimestamp < 0) _firstSendTimestamp = NowMillis();
    if (_buffer.GetAvailableBytesCount() > 0) {
      int sent = 0;
      int err = 0;
      if (!_buffer.WriteToTCPFd(fd, 0x7fffffff, sent, err)) {
        return VREX_ERROR(vrex::errors::SystemError(err));
      }
      _totalWrite += sent;
      if (_buffer.GetAvailableBytesCount() > 0) {
        // Older bytes always go first: the new ones queue behind them.
        _buffer.MoveData();
        _buffer.ReadFromBuffer(local.GetPointer() + local.GetConsumed(), local.GetAvailableBytesCount());
        local.IgnoreAll();
        return 0;
      }
    }
  }
  if (local.GetAvailableBytesCount() == 0) return 0;
  int sent = 0;
  int err = 0;
  if (!local.WriteToTCPFd(fd, 0x7fffffff, sent, err)) return VREX_ERROR(vrex::errors::SystemError(err));
  Locked lock(_mutex);
  _totalWrite += sent;
  if (local.GetAvailableBytesCount() > 0) {
    _buffer.MoveData();
    _buffer.ReadFromBuffer(local.GetPointer() + local.GetConsumed(), local.GetAvailableBytesCount());
  }
  local.IgnoreAll();
  return 0;
}

int BaseOperation::WriteToDestinationFile(destination_t& destination, const IOBuffer& local,
                                          bool& stop) {
  int result = destination.fileLock.Lock();
  if (result != 0) {
    LOGE << "<-# BaseOperation::SignalWork ID:" << _actionId << " Lock failed with error " << result;
    stop = true;
    return result;
  }
  ms::IPCFileLock* ipc = destination.ipcLock.get();
  if (ipc != nullptr && !ipc->TryLockFor(ms::IPCFileLock::kDEFAULT_TIMEOUT_MS)) {
    LOGE << "    BaseOperation::SignalWork IPCFileLock timed out: " << destination.path;
    destination.fileLock.Unlock();
    stop = true;
    return 0;
  }
  const uint8_t* data = local.GetPointer() + local.GetConsumed();
  const size_t count = local.GetAvailableBytesCount();
  size_t written = 0;
  while (written < count) {
    const ssize_t once = write(destination.fd, data + written, count - written);
    if (once <= 0) {
      const int err = once < 0 ? errno : ENOSPC;
      LOGE << "<-# BaseOperation::SignalWork ID:" << _actionId << " write failed with error " << err
           << " for file " << destination.path;
      result = VREX_ERROR(vrex::errors::SystemError(err));
      stop = true;
      break;
    }
    written += static_cast<size_t>(once);
  }
  const int unlocked = destination.fileLock.Unlock();
  if (unlocked != 0) {
    LOGE << "<-# BaseOperation::SignalWork ID:" << _actionId << " Unlock failed with error " << unlocked;
  }
  if (ipc != nullptr) ipc->Unlock();
  Locked lock(_mutex);
  _totalWrite += written;
  return result;
}

int BaseOperation::RunLoop(destination_t& destination, bool hasConsumer, bool buffersData) {
  IOBuffer local;
  long firstRead = -1;
  for (;;) {
    if (MustExit()) return 0;
    unsigned long used = 0;
    unsigned long max = 0;
    if (MustWait(used, max)) {
      Wait();
      local.IgnoreAll();
      const int sent = SendTcpFdPendigData(local);
      if (sent != 0) {
        LOGE << "<-# BaseOperation::SignalWork ID:" << _actionId
             << " SendTcpFdPendigData failed with error " << sent;
        return sent;
      }
      if (hasConsumer) TriggerProgress();
      continue;
    }
    local.IgnoreAll();
    const int processed = ProcessData(local, destination.fd, max - used, _waitSeconds);
    if (processed != 0) {
      LOGE << "<-# BaseOperation::SignalWork ID:" << _actionId << " ProcessData returned error "
           << processed;
      return processed;
    }
    if (_waitSeconds > 0) continue;
    if (firstRead == -1) {
      firstRead = NowMillis();
      Locked lock(_mutex);
      _firstReadTimestamp = firstRead;
    }
    const uint32_t produced = local.GetAvailableBytesCount();
    const unsigned long copied = std::exchange(_copied, 0);
    if (produced == 0 && copied == 0) {
      if (IsComplete()) return 0;
      continue;
    }
    {
      Locked lock(_mutex);
      _idleTime = 0;
      _totalRead += produced + copied;
      _totalWrite += copied;
      if (buffersData) {
        _buffer.MoveData();
        _buffer.ReadFromBuffer(local.GetPointer() + local.GetConsumed(), produced);
      }
    }
    if (hasConsumer) TriggerProgress();
    if (destination.fd >= 0 && produced > 0) {
      bool stop = false;
      const int written = WriteToDestinationFile(destination, local, stop);
      if (stop) return written;
    }
    const int sent = SendTcpFdPendigData(local);
    if (sent != 0) {
      LOGE << "<-# BaseOperation::SignalWork ID:" << _actionId
           << " SendTcpFdPendigData failed with error " << sent;
      return sent;
    }
  }
}

int BaseOperation::Drain() {
  IOBuffer local;
  const bool hasDrain = !_dstCallback.IsEmpty();
  for (;;) {
    if (BufferedBytesCount() == 0 || MustExit()) return 0;
    const int sent = SendTcpFdPendigData(local);
    if (sent != 0) {
      LOGE << "<-# BaseOperation::SignalWork ID:" << _actionId
           << " SendTcpFdPendigData failed with error " << sent;
      return sent;
    }
    if (BufferedBytesCount() == 0) return 0;
    // A drain waits for its consumer, a socket polls, and a paused operation waits for its
    // resume; a consumer that takes a part at each call is called again for the rest.
    if (hasDrain && !IsPaused()) {
      WaitEmptyBuffer(__FILE__, __LINE__);
    } else {
      Wait();
    }
    if (hasDrain) TriggerProgress();
  }
}

int BaseOperation::SignalWork() {
  const long started = NowMillis();
  LOGE << "#-> BaseOperation::SignalWork START ID:" << _actionId << " id=" << Id();
  destination_t destination;
  int dstTcpFd;
  {
    Locked lock(_mutex);
    destination.path = _dstFileName;
    dstTcpFd = _dstTcpFd;
  }
  const long initStart = NowMillis();
  if (!destination.path.empty()) {
    destination.fd = open(destination.path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0640);
    if (destination.fd < 0) {
      const int code = VREX_ERROR(vrex::errors::SystemError(errno));
      LOGE << "<-# BaseOperation::SignalWork ID:" << _actionId << " open failed with error " << code
           << " for file " << destination.path;
      return code;
    }
    const int locked = destination.fileLock.Init(destination.path.c_str(), false);
    if (locked != 0) {
      LOGE << "<-# BaseOperation::SignalWork ID:" << _actionId << " file lock failed with error "
           << locked << " for file " << destination.path;
      return locked;
    }
  }
  int result = Init(destination.path);
  if (result != 0) {
    LOGE << "<-# BaseOperation::SignalWork ID:" << _actionId << " Init failed with error " << result;
    return result;
  }
  _initTime += NowMillis() - initStart;

  bool hasConsumer;
  bool buffersData;
  {
    Locked lock(_mutex);
    // The operation's buffer is filled only for those who take from it: a drain or an
    // observer. A progress callback alone is told of progress, and takes nothing.
    buffersData = _observer != nullptr || !_dstCallback.IsEmpty();
    hasConsumer = buffersData || !_progressCallback.IsEmpty();
    _initCompletedTimestamp = NowMillis();
  }
  if (!destination.path.empty()) {
    destination.ipcLock.reset(new ms::IPCFileLock(destination.path, false));
    if (!destination.ipcLock->IsInitialized()) destination.ipcLock.reset();
  }

  result = RunLoop(destination, hasConsumer, buffersData);
  if (result == 0 && (dstTcpFd > 0 || !_dstCallback.IsEmpty())) result = Drain();
  if (result == 0) {
    Locked lock(_mutex);
    result = _progressError;
  }
  Locked lock(_mutex);
  LOGE << "<-# BaseOperation::SignalWork END ID:" << _actionId << " total=" << NowMillis() - started
       << " _initTime=" << _initTime << " _waitTime=" << _waitTime << " _sleepTime=" << _sleepTime
       << " res=" << result << " total_read=" << _totalRead << " total_write=" << _totalWrite;
  return result;
}

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
