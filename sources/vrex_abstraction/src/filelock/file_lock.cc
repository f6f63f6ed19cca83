// file_lock_t: one file locked among the threads of this process.
#include "abstraction/errors.h"
#include "abstraction/filelock.h"
#include "errors/errors.h"
#include "filelock/file_locks.h"

namespace vrex {
namespace abstraction {

file_lock_t::~file_lock_t() { Unlock(); }

file_lock_t::file_lock_t(file_lock_t&& other) noexcept
    : file_id_t(std::move(other)), _locked(other._locked), _shared(other._shared) {
  other._locked = false;
}

file_lock_t& file_lock_t::operator=(file_lock_t&& other) noexcept {
  if (this != &other) {
    Unlock();
    file_id_t::operator=(std::move(other));
    _locked = other._locked;
    _shared = other._shared;
    other._locked = false;
  }
  return *this;
}

int file_lock_t::Init(const char* filePath, bool shared) {
  if (inode != 0) return VREX_ERROR(ERR_ABSTRACTION_LOCK_ALREADY_INITIALIZED);
  if (filePath == nullptr) return VREX_ERROR(ERR_ABSTRACTION_INVALID_PARAMETERS);
  _shared = shared;
  return file_id_t::Init(filePath);
}

int file_lock_t::Lock() {
  Unlock();
  if (inode == 0) return VREX_ERROR(ERR_ABSTRACTION_LOCK_NOT_INITIALIZED);
  const int err = internal::FileLocks::Instance().Lock(*this, _shared);
  _locked = err >= 0;
  return err;
}

int file_lock_t::Unlock() {
  if (!_locked) return 0;
  internal::FileLocks::Instance().Unlock(*this);
  _locked = false;
  return 0;
}

}  // namespace abstraction
}  // namespace vrex
