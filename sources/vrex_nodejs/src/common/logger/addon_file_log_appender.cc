// The rolling file appender and its writer thread.
#include "common/logger/addon_file_log_appender.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cstdio>
#include <utility>

#include "common/version.h"

namespace vrex {
namespace nodejs {
namespace common {

AddonFileLogAppender::AddonFileLogAppender(log_level_t level, const std::string& path,
                                           unsigned long maxFileSize,
                                           unsigned long maxFileCount)
    : AddonLogAppender(level),
      _path(path),
      _maxFileSize(maxFileSize),
      _maxFileCount(maxFileCount > kMaxFileCount ? kMaxFileCount : maxFileCount) {
  _thread = std::thread(&AddonFileLogAppender::loggingThread, this);
}

AddonFileLogAppender::~AddonFileLogAppender() {
  pthread_mutex_lock(&_mutex);
  _stop = true;
  pthread_cond_signal(&_cond);
  pthread_mutex_unlock(&_mutex);
  if (_thread.joinable()) _thread.join();
  if (_fd >= 0) close(_fd);
  pthread_cond_destroy(&_cond);
  pthread_mutex_destroy(&_mutex);
}

void AddonFileLogAppender::Log(log_level_t level, const char* text, unsigned long length) {
  if (!CanLog(level)) return;
  pthread_mutex_lock(&_mutex);
  _pending.emplace_back(text, length);
  pthread_cond_signal(&_cond);
  pthread_mutex_unlock(&_mutex);
}

void AddonFileLogAppender::loggingThread() {
  pthread_setname_np(pthread_self(), "Addon log thread");
  Roll();
  while (!_stop) {
    pthread_mutex_lock(&_mutex);
    while (_pending.empty() && !_stop) pthread_cond_wait(&_cond, &_mutex);
    if (_stop) {
      pthread_mutex_unlock(&_mutex);
      break;
    }
    std::string line = std::move(_pending.front());
    _pending.pop_front();
    size_t waiting = _pending.size();
    std::deque<std::string> dropped;
    if (waiting > kMaxPendingLines) {
      // Drop the whole backlog at once so the writer catches up after a burst.
      char marker[96];
      snprintf(marker, sizeof(marker), "~~~~~~~~~~~~~~ Dropped [%zu] messages ~~~~~~~~~~~~~~",
               waiting);
      dropped.swap(_pending);
      _pending.emplace_back(marker);
      waiting = 1;
    }
    pthread_mutex_unlock(&_mutex);
    dropped.clear();

    if (!Roll()) continue;
    char count[32];
    int countLength = snprintf(count, sizeof(count), " [%zu] ", waiting);
    iovec parts[3] = {{const_cast<char*>(line.data()), line.size()},
                      {count, static_cast<size_t>(countLength)},
                      {const_cast<char*>("\n"), 1}};
    const ssize_t expected = static_cast<ssize_t>(line.size() + countLength + 1);
    ssize_t written = writev(_fd, parts, 3);
    if (written != expected) {
      close(_fd);
      _fd = -1;
      continue;
    }
    _currentFileSize += static_cast<unsigned long>(written);
  }
}

std::string AddonFileLogAppender::IndexedPath(unsigned index) const {
  if (index == 0) return _path;
  char suffix[16];
  snprintf(suffix, sizeof(suffix), ".%03u", index);
  return _path + suffix;
}

bool AddonFileLogAppender::Roll(unsigned index) {
  const std::string from = IndexedPath(index);
  struct stat info;
  if (stat(from.c_str(), &info) != 0) return true;
  return rename(from.c_str(), IndexedPath(index + 1).c_str()) == 0;
}

bool AddonFileLogAppender::Roll() {
  if (_fd >= 0 && _currentFileSize < _maxFileSize) return true;
  if (_fd >= 0) close(_fd);
  _fd = -1;
  _currentFileSize = 0;
  if (_maxFileCount > 1) {
    for (int index = static_cast<int>(_maxFileCount) - 2; index >= 0; --index) {
      if (!Roll(static_cast<unsigned>(index))) return false;
    }
  }
  _fd = open(_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (_fd < 0) {
    fprintf(stderr, "Unable to open file %s; Error was: %d\n", _path.c_str(), errno);
    return false;
  }
  char first[512];
  int length = snprintf(first, sizeof(first), "PID: %lu; %s\n",
                        static_cast<unsigned long>(getpid()),
                        vrex::common::Version::GetBanner().c_str());
  if (length > static_cast<int>(sizeof(first)) - 1) length = sizeof(first) - 1;
  if (write(_fd, first, length) != length) {
    close(_fd);
    _fd = -1;
    return false;
  }
  _currentFileSize = static_cast<unsigned long>(length);
  return true;
}

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
