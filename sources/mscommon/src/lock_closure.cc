// LockClosure: several files, both layers each, in sorted order.
#include "mscommon/lock_closure.h"

#include <algorithm>

namespace ms {

LockClosure::LockClosure(std::vector<CombinedLock>& locks) : _locks(locks) {
  std::sort(_locks.begin(), _locks.end(), compareLock);
  LockAll();
}

bool LockClosure::LockAll() {
  _locked = false;
  for (CombinedLock& lock : _locks) {
    if (lock.fileLock.Lock() < 0) return false;
    if (lock.ipcLock && !lock.ipcLock->Lock()) return false;
  }
  _locked = true;
  return true;
}

void LockClosure::UnlockAll() const {
  for (auto it = _locks.rbegin(); it != _locks.rend(); ++it) {
    it->fileLock.Unlock();
    if (it->ipcLock && it->ipcLock->IsLocked()) it->ipcLock->Unlock();
  }
}

}  // namespace ms
