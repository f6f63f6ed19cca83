// Both lock layers of one file together, and several files locked in one order.
//
// Order for one file: file_lock_t (threads of this process), then IPCFileLock (processes);
// released in reverse. Several files are locked by device, then inode, which is why two
// holders of overlapping file sets never deadlock.
#pragma once

#include <memory>
#include <vector>

#include "abstraction/filelock.h"
#include "mscommon/ipc_file_lock.h"

namespace ms {

struct CombinedLock {
  vrex::abstraction::file_lock_t fileLock;
  std::shared_ptr<IPCFileLock> ipcLock;
};

// Sorts the referenced locks and takes both layers of each on construction, waiting without
// limit; releases them all when it goes. The caller's vector must outlive the closure.
class LockClosure {
 public:
  explicit LockClosure(std::vector<CombinedLock>& locks);
  ~LockClosure() { UnlockAll(); }
  LockClosure(const LockClosure&) = delete;
  LockClosure& operator=(const LockClosure&) = delete;

  // Whether all are held; an empty vector counts as locked.
  bool IsLocked() const { return _locked; }
  // From the last to the first: the file_lock_t, then the IPCFileLock of each.
  void UnlockAll() const;
  // Takes all again in sorted order, after UnlockAll.
  bool LockAll();

  static bool compareLock(const CombinedLock& a, const CombinedLock& b) {
    return a.fileLock < b.fileLock;
  }

 private:
  std::vector<CombinedLock>& _locks;
  bool _locked = false;
};

}  // namespace ms
