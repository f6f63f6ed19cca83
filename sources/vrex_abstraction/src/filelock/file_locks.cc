// The process-wide lock table.
#include "filelock/file_locks.h"

#include "abstraction/errors.h"
#include "abstraction/logging.h"
#include "errors/errors.h"

namespace vrex {
namespace abstraction {
namespace internal {

namespace {

// A failing pthread call means a corrupted table: nothing sane can follow.
void CheckPthread(int result, const char* call) {
  if (result == 0) return;
  LOGF << call << "() failed at " << ::vrex::errors::GetStackTrace() << " result=" << result;
  VREX_ASSERT(result == 0) << call;
}

class Guard {
 public:
  explicit Guard(pthread_mutex_t& mutex) : _mutex(mutex) {
    CheckPthread(pthread_mutex_lock(&_mutex), "pthread_mutex_lock");
  }
  ~Guard() { CheckPthread(pthread_mutex_unlock(&_mutex), "pthread_mutex_unlock"); }

 private:
  pthread_mutex_t& _mutex;
};

}  // namespace

FileLocks::FileLocks() {
  CheckPthread(pthread_mutex_init(&_mutex, nullptr), "pthread_mutex_init");
  CheckPthread(pthread_cond_init(&_changed, nullptr), "pthread_cond_init");
}

FileLocks::~FileLocks() {
  {
    Guard guard(_mutex);
    _shuttingDown = true;
    CheckPthread(pthread_cond_broadcast(&_changed), "pthread_cond_broadcast");
    while (_waiters != 0) CheckPthread(pthread_cond_wait(&_changed, &_mutex), "pthread_cond_wait");
  }
  pthread_cond_destroy(&_changed);
  pthread_mutex_destroy(&_mutex);
}

FileLocks& FileLocks::Instance() {
  // Never destroyed: worker threads still lock and unlock while the process exits, after
  // static destructors have run.
  static FileLocks* instance = new FileLocks;
  return *instance;
}

int FileLocks::Lock(const file_id_t& id, bool shared) {
  if (id.inode == 0) return VREX_ERROR(ERR_ABSTRACTION_LOCK_NOT_INITIALIZED);
  Guard guard(_mutex);
  for (;;) {
    if (_shuttingDown) {
      // The destructor waits for the last waiter to leave.
      CheckPthread(pthread_cond_broadcast(&_changed), "pthread_cond_broadcast");
      return VREX_ERROR(kSHUTTING_DOWN);
    }
    auto found = _locks.find(id);
    if (found == _locks.end()) {
      internal_lock_t& entry = _locks[id];
      entry.kind = shared ? internal_lock_t::kSHARED : internal_lock_t::kEXCLUSIVE;
      entry.holders = 1;
      break;
    }
    if (shared && found->second.kind != internal_lock_t::kEXCLUSIVE) {
      ++found->second.holders;
      break;
    }
    ++_waiters;
    CheckPthread(pthread_cond_wait(&_changed, &_mutex), "pthread_cond_wait");
    --_waiters;
  }
  CheckPthread(pthread_cond_broadcast(&_changed), "pthread_cond_broadcast");
  return 0;
}

void FileLocks::Unlock(const file_id_t& id) {
  Guard guard(_mutex);
  auto found = _locks.find(id);
  if (found == _locks.end()) return;
  if (--found->second.holders == 0) _locks.erase(found);
  CheckPthread(pthread_cond_broadcast(&_changed), "pthread_cond_broadcast");
}

unsigned FileLocks::Waiters() {
  Guard guard(_mutex);
  return _waiters;
}

unsigned FileLocks::Holders(const file_id_t& id) {
  Guard guard(_mutex);
  auto found = _locks.find(id);
  return found == _locks.end() ? 0 : found->second.holders;
}

}  // namespace internal
}  // namespace abstraction
}  // namespace vrex
