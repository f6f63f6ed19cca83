// Several in-process file locks taken together, in the one order every holder of several
// files uses (device, then inode), so that no two tasks deadlock over a pair of files.
#pragma once

#include <vector>

#include "abstraction/filelock.h"

namespace vrex {
namespace abstraction {

// Sorts the referenced locks and locks them all on construction; the caller's vector must
// outlive the closure. The locks are released by UnlockAll or by their own destructors.
class file_locks_closure_t {
 public:
  explicit file_locks_closure_t(std::vector<file_lock_t>& locks);

  // Whether every lock was taken; false after a failure (the ones taken stay locked until
  // UnlockAll), or when a lock was not initialised.
  bool IsLocked() const { return _locked; }
  // The first failure, or 0.
  int Error() const { return _error; }
  // Unlocks from the last to the first.
  void UnlockAll() const;

  static bool compareLock(const file_lock_t& a, const file_lock_t& b) { return a < b; }

 private:
  std::vector<file_lock_t>& _locks;
  bool _locked = false;
  int _error = 0;
};

}  // namespace abstraction
}  // namespace vrex
