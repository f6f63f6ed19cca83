// ExecutedAppends: the process-wide record of the source files already appended, so that a
// finished temporary file handed over twice (a retry after a lost answer, two recorders on one
// file) is appended once. An entry lasts an hour, or until its file is gone.
//
// Threads: any; the mutex is held for the map only, never during an append.
#pragma once

#include <ctime>
#include <map>
#include <mutex>
#include <string>

namespace vrex {
namespace mediaformats {
namespace internal {

class ExecutedAppends {
 public:
  // The one record of the process (never destroyed: workers may append while the host exits).
  static ExecutedAppends& Instance();

  explicit ExecutedAppends(long maxAgeSeconds) : _maxAgeSeconds(maxAgeSeconds) {}

  // Records `src` as appended now and returns 0, or ERR_MEDIAFORMATS_DOUBLE_APPEND when it is
  // recorded already. Sweeps either way.
  int Begin(const std::string& src);
  // Forgets `src` after a failed append, so that it may be tried again, and sweeps.
  void Forget(const std::string& src);

 private:
  // Drops the entries older than the limit and those whose file no longer exists.
  void Sweep_UNSAFE();

  const long _maxAgeSeconds;
  std::mutex _mutex;
  std::map<std::string, time_t> _appended;  // guarded by _mutex
};

}  // namespace internal
}  // namespace mediaformats
}  // namespace vrex
