// Several in-process file locks taken in the sorted order.
#include <algorithm>

#include "abstraction/filelock_closure.h"

namespace vrex {
namespace abstraction {

file_locks_closure_t::file_locks_closure_t(std::vector<file_lock_t>& locks) : _locks(locks) {
  std::sort(_locks.begin(), _locks.end(), compareLock);
  for (file_lock_t& lock : _locks) {
    _error = lock.Lock();
    if (_error < 0) return;
  }
  _locked = true;
}

void file_locks_closure_t::UnlockAll() const {
  for (auto it = _locks.rbegin(); it != _locks.rend(); ++it) it->Unlock();
}

}  // namespace abstraction
}  // namespace vrex
