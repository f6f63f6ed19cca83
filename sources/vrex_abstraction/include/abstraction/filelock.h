// File identity and the in-process file lock.
//
// A .vrx file is shared by the tasks of this process and by other processes. file_lock_t orders
// the threads of this process through one table keyed by file identity (device and inode), so
// two paths to one file (hard links, relative and absolute names) lock the same entry. Other
// processes are kept out by ms::IPCFileLock (flock), always taken after file_lock_t.
#pragma once

#include <cstdint>
#include <string>

namespace vrex {
namespace abstraction {

// What identifies a file: two identities are the same file when device and inode match, and
// they are ordered by device, then inode.
struct file_id_t {
  // What Init returns for a path that does not exist (errno ENOENT in module 0).
  static constexpr int kFILE_NOT_FOUND = static_cast<int>(0x80000002u);

  uint64_t device = 0;     // st_dev
  uint64_t inode = 0;      // st_ino; 0 means "not initialised"
  int64_t size = 0;        // st_size when Init ran
  std::string path;        // as given
  long fileSystemType = 0;  // f_type of statfs

  // Clears the object, then stat()s and statfs()es `path`. Returns 0, kFILE_NOT_FOUND for a
  // missing file, or the errno code of another failure.
  int Init(const std::string& path);
  void Clear();

  bool IsSameFile(const file_id_t& other) const {
    return device == other.device && inode == other.inode;
  }
  bool operator<(const file_id_t& other) const {
    return device != other.device ? device < other.device : inode < other.inode;
  }
};

// A lock of one file among the threads of this process, shared (readers) or exclusive
// (changes). Lock() blocks without a time limit; the destructor unlocks. Not for use by two
// threads at once; it may be moved (the lock goes with it), not copied.
struct file_lock_t : public file_id_t {
  file_lock_t() = default;
  ~file_lock_t();
  file_lock_t(file_lock_t&& other) noexcept;
  file_lock_t& operator=(file_lock_t&& other) noexcept;
  file_lock_t(const file_lock_t&) = delete;
  file_lock_t& operator=(const file_lock_t&) = delete;

  // Records `shared` and the identity of `path`. Fails with ERR_ABSTRACTION_LOCK_ALREADY_INITIALIZED
  // on an initialised lock, ERR_ABSTRACTION_INVALID_PARAMETERS for a null path, or file_id_t::Init's code.
  int Init(const char* path, bool shared);
  // Unlocks first (a second Lock may lose its place to a waiter), then waits for the lock.
  // Fails with ERR_ABSTRACTION_LOCK_NOT_INITIALIZED before Init, or 0x80000004 when the
  // process is shutting down.
  int Lock();
  // Does nothing unless locked.
  int Unlock();

  bool IsLocked() const { return _locked; }
  bool IsShared() const { return _shared; }

 private:
  bool _locked = false;
  bool _shared = false;
};

// The group that recordings are given to, so that the other processes of the service may
// open them: "dorvi-streaming".
extern const char* groupName;

// Gives `file` to groupName (keeping its owner) when that group exists, then sets mode 0660.
// Returns false when chown or chmod fails.
bool SetFileGroupAccess(const char* file);

}  // namespace abstraction
}  // namespace vrex
