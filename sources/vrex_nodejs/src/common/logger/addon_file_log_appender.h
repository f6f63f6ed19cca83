// A log appender that writes to rolling files on a thread of its own.
//
// Log() only queues a copy of the line, so a caller never waits for the disk. The writer
// thread ("Addon log thread") writes each line as "<line> [<lines still waiting>]\n". When
// more than 2000 lines wait, it drops them all and queues one marker line instead:
// "~~~~~~~~~~~~~~ Dropped [N] messages ~~~~~~~~~~~~~~".
// Files roll when the current one reaches maxFileSize: `path` is the newest, then
// `path.001`, `path.002`, ... up to maxFileCount files (at most 999). Each new file starts
// with "PID: <pid>; <banner>". Rolling only ever renames regular files: a directory or any other
// kind of file at one of the names stays where it is, untouched.
#pragma once

#include <pthread.h>

#include <atomic>
#include <deque>
#include <string>
#include <thread>

#include "common/logger/addon_log_appender.h"

namespace vrex {
namespace nodejs {
namespace common {

class AddonFileLogAppender : public AddonLogAppender {
 public:
  static constexpr unsigned long kMaxFileCount = 999;
  static constexpr size_t kMaxPendingLines = 2000;

  AddonFileLogAppender(log_level_t level, const std::string& path, unsigned long maxFileSize,
                       unsigned long maxFileCount);
  // 0 when `path` can take a log file: it is a regular file this process may write, or it does
  // not exist and its directory may be written. Otherwise the system error: EISDIR for a
  // directory, EINVAL for any other file that is not a regular one, the errno of the check.
  static int CheckPath(const std::string& path);

  // Stops and joins the writer thread; lines still queued are lost.
  ~AddonFileLogAppender() override;

  void Log(log_level_t level, const char* text, unsigned long length) override;

 private:
  void loggingThread();
  bool Roll();
  bool Roll(unsigned index);
  std::string IndexedPath(unsigned index) const;

  std::string _path;
  unsigned long _maxFileSize;
  unsigned long _maxFileCount;
  unsigned long _currentFileSize = 0;  // touched by the writer thread only
  int _fd = -1;                        // touched by the writer thread only
  pthread_mutex_t _mutex = PTHREAD_MUTEX_INITIALIZER;
  pthread_cond_t _cond = PTHREAD_COND_INITIALIZER;
  std::atomic<bool> _stop{false};
  std::deque<std::string> _pending;  // guarded by _mutex
  std::thread _thread;
};

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
