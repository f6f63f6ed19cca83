// IPCFileLock: flock on a descriptor of its own.
#include "mscommon/ipc_file_lock.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/file.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>

#include "abstraction/logging.h"

namespace ms {

namespace {

long Millis(std::chrono::steady_clock::duration d) {
  return static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(d).count());
}

void SleepMillis(long millis) {
  struct timespec left = {millis / 1000, (millis % 1000) * 1000000L};
  while (nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

}  // namespace

IPCFileLock::IPCFileLock(const std::string& path, bool shared, bool trace)
    : _name(path), _operation(shared ? LOCK_SH : LOCK_EX), _trace(trace) {
  if (_name.empty()) {
    LOGE << "<-# IPCFileLock::IPCFileLock init failed, name is empty, exit";
    return;
  }
  // Non-blocking: a FIFO without a reader would otherwise hold the thread in open() for ever.
  _fd = open(_name.c_str(), O_WRONLY | O_CLOEXEC | O_NONBLOCK);
  if (_fd < 0) {
    LOGE << "<-# IPCFileLock::IPCFileLock init failed, name=" << _name << ", reason : " << strerror(errno);
  }
}

IPCFileLock::~IPCFileLock() {
  if (_fd >= 0) close(_fd);
}

bool IPCFileLock::CheckInitialized(const char* method) const {
  if (_fd >= 0) return true;
  LOGE << "<-# IPCFileLock::" << method << " instance not initialized. name=" << _name;
  return false;
}

int IPCFileLock::TryOnce() {
  if (flock(_fd, _operation | LOCK_NB) == 0) {
    _locked = true;
    _acquired = clock_t_::now();
    return 0;
  }
  return errno;
}

bool IPCFileLock::Lock() {
  if (!CheckInitialized("Lock")) return false;
  _requested = clock_t_::now();
  int result;
  do {
    result = flock(_fd, _operation);
  } while (result != 0 && errno == EINTR);
  if (result != 0) {
    LOGE << "<-# IPCFileLock::Lock FAILED! name=" << _name << ", reason : " << strerror(errno);
    return false;
  }
  _locked = true;
  _acquired = clock_t_::now();
  return true;
}

bool IPCFileLock::TryLock() {
  if (!CheckInitialized("TryLock")) return false;
  _requested = clock_t_::now();
  return TryOnce() == 0;
}

bool IPCFileLock::TryLockFor(unsigned long millis) {
  if (!CheckInitialized("TryLockFor")) return false;
  _requested = clock_t_::now();
  const clock_t_::time_point deadline = _requested + std::chrono::milliseconds(millis);
  int result = TryOnce();
  while (result == EWOULDBLOCK) {
    const clock_t_::time_point now = clock_t_::now();
    if (now >= deadline) break;
    // Rounded up, so that the last attempt is not made before the deadline.
    const long remaining = static_cast<long>(std::chrono::ceil<std::chrono::milliseconds>(deadline - now).count());
    SleepMillis(std::min(100L, remaining));
    result = TryOnce();
  }
  if (result != 0 && result != EWOULDBLOCK) {
    LOGE << "<-# IPCFileLock::TryLockFor name=" << _name << ", try lock failed " << strerror(result);
  }
  return _locked;
}

bool IPCFileLock::Unlock() {
  if (!CheckInitialized("Unlock")) return false;
  if (flock(_fd, LOCK_UN) != 0) {
    LOGE << "<-# IPCFileLock::Unlock FAILED! name=" << _name << ", reason : " << strerror(errno);
    return false;
  }
  _locked = false;
  _released = clock_t_::now();
  if (_trace) {
    LOGI << "IPCFileLock::Unlock, name=" << _name << ", duration=" << Millis(_released - _requested)
         << ", waiting time=" << Millis(_acquired - _requested)
         << ", locked for=" << Millis(_released - _acquired);
  }
  return true;
}

}  // namespace ms
