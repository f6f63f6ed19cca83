// The rolling file appender and its writer thread.
#include "common/logger/addon_file_log_appender.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <utility>

#include "common/version.h"
#include "errors/errors.h"

namespace vrex {
namespace nodejs {
namespace common {

namespace {

bool IsRegularOrAbsent(const std::string& path) {
  struct stat info;
  return lstat(path.c_str(), &info) != 0 || S_ISREG(info.st_mode);
}

}  // namespace

int AddonFileLogAppender::CheckPath(const std::string& path) {
  struct stat info;
  if (lstat(path.c_str(), &info) == 0) {
    if (S_ISDIR(info.st_mode)) return VREX_ERROR(vrex::errors::SystemError(EISDIR));
    if (!S_ISREG(info.st_mode)) return VREX_ERROR(vrex::errors::SystemError(EINVAL));
    if (access(path.c_str(), W_OK) != 0) return VREX_ERROR(vrex::errors::SystemError(errno));
    return 0;
  }
  if (errno != ENOENT) return VREX_ERROR(vrex::errors::SystemError(errno));
  const size_t slash = path.find_last_of('/');
  const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  if (access(directory.c_str(), W_OK | X_OK) != 0) return VREX_ERROR(vrex::errors::SystemError(errno));
  return 0;
}

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
  const std::string to = IndexedPath(index + 1);
  struct stat info;
  if (lstat(from.c_str(), &info) != 0) return true;
  // Something else than a log file at either name: the older file stays as it is.
  if (!S_ISREG(info.st_mode) || !IsRegularOrAbsent(to)) return true;
  return rename(from.c_str(), to.c_str()) == 0;
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
  // Never through a link, never blocking on a FIFO, never truncating what is not a regular file.
  if (!IsRegularOrAbsent(_path)) {
    fprintf(stderr, "Unable to open file %s; Error was: %d\n", _path.c_str(), EINVAL);
    return false;
  }
  _fd = open(_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0644);
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
