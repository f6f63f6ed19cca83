// The process-wide table behind file_lock_t: who holds which file, and how.
#pragma once

#include <pthread.h>

#include <map>

#include "abstraction/filelock.h"

namespace vrex {
namespace abstraction {
namespace internal {

struct internal_lock_t {
  static constexpr int kSHARED = 1;
  static constexpr int kEXCLUSIVE = 2;
  int kind = 0;
  unsigned holders = 0;
};

// One entry per locked file. Waiters sleep on one condition variable and recheck on every
// change. A writer has no priority: it goes on only when the entry is gone.
class FileLocks {
 public:
  // Lock's answer once the table is shutting down (errno EINTR in module 0).
  static constexpr int kSHUTTING_DOWN = static_cast<int>(0x80000004u);

  FileLocks();
  // Sets the shutting-down flag, wakes the waiters (they leave with kSHUTTING_DOWN) and waits
  // until they are gone.
  virtual ~FileLocks();
  FileLocks(const FileLocks&) = delete;
  FileLocks& operator=(const FileLocks&) = delete;

  // The table of the process; it lives until the process ends.
  static FileLocks& Instance();

  // Blocks until `id` can be held as asked. Fails with ERR_ABSTRACTION_LOCK_NOT_INITIALIZED
  // for an identity with inode 0, or kSHUTTING_DOWN.
  int Lock(const file_id_t& id, bool shared);
  // Drops one holder of `id`; unknown identities are ignored.
  void Unlock(const file_id_t& id);

  // For tests: how many threads wait in Lock, and the holders of `id`.
  unsigned Waiters();
  unsigned Holders(const file_id_t& id);

 private:
  std::map<file_id_t, internal_lock_t> _locks;  // guarded by _mutex
  bool _shuttingDown = false;                   // guarded by _mutex
  unsigned _waiters = 0;                        // guarded by _mutex
  pthread_mutex_t _mutex;
  pthread_cond_t _changed;
};

}  // namespace internal
}  // namespace abstraction
}  // namespace vrex
