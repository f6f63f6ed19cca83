// A lock of one file among processes: flock(2) on a descriptor of its own.
//
// flock locks belong to the open file description, so two IPCFileLock objects on one path in
// one process exclude each other as two processes do. Within the process take a
// vrex::abstraction::file_lock_t first, so that threads wait on a condition variable rather
// than in TryLockFor's poll.
#pragma once

#include <chrono>
#include <string>

namespace ms {

class IPCFileLock {
 public:
  // The code a task ends with when TryLockFor runs out of time (errno EINTR in module 0).
  static constexpr int kTIMED_OUT = static_cast<int>(0x80000004u);
  // The time limit every task of the system gives TryLockFor.
  static constexpr unsigned long kDEFAULT_TIMEOUT_MS = 1500;

  // Opens `path` write-only (a file this process may not write cannot be locked). When that
  // fails the object exists uninitialised and every call returns false.
  IPCFileLock(const std::string& path, bool shared, bool trace = false);
  // Closes the descriptor, which releases the lock.
  ~IPCFileLock();
  IPCFileLock(const IPCFileLock&) = delete;
  IPCFileLock& operator=(const IPCFileLock&) = delete;

  // Waits without limit.
  bool Lock();
  // One attempt.
  bool TryLock();
  // Attempts every 100 ms at most until `millis` have passed; 0 tries once.
  bool TryLockFor(unsigned long millis);
  bool Unlock();

  bool IsLocked() const { return _locked; }
  bool IsInitialized() const { return _fd >= 0; }
  const std::string& Name() const { return _name; }

 private:
  typedef std::chrono::steady_clock clock_t_;

  bool CheckInitialized(const char* method) const;
  // flock with `operation` | LOCK_NB; 0 or the errno.
  int TryOnce();

  std::string _name;
  int _operation;  // LOCK_SH or LOCK_EX
  bool _locked = false;
  bool _trace;
  int _fd = -1;
  clock_t_::time_point _requested;
  clock_t_::time_point _acquired;
  clock_t_::time_point _released;
};

}  // namespace ms
