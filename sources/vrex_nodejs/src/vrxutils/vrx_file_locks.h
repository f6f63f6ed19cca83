// The locks of the .vrx files one task works on: the file_lock_t of each (threads of this
// process), all taken in device and inode order, then the ms::IPCFileLock of each (other
// processes), each with the 1,500 ms limit of every task. Taken on the worker thread and
// released in reverse order, by Unlock or with the object.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "abstraction/filelock.h"
#include "mscommon/ipc_file_lock.h"

namespace vrex {
namespace nodejs {
namespace vrxutils {

class VrxFileLocks {
 public:
  struct file_t {
    std::string path;
    bool shared;               // among the threads of this process
    bool sharedAmongProcesses;
  };

  // `owner` names the task in the log lines.
  explicit VrxFileLocks(const char* owner) : _owner(owner) {}
  ~VrxFileLocks() { Unlock(); }
  VrxFileLocks(const VrxFileLocks&) = delete;
  VrxFileLocks& operator=(const VrxFileLocks&) = delete;

  // Locks `files`, the process layer in the order given, or, with `processLayerSorted`, in the
  // order of the first layer. Returns 0; file_lock_t's code (file_id_t::kFILE_NOT_FOUND for a
  // missing file); ms::IPCFileLock::kTIMED_OUT after 1,500 ms, or at once for a file this user
  // may not write; or ERR_MEDIAFORMATS_INCORRECT_PARAMETERS for one file named twice where one
  // of the two is exclusive. `failed` then names the file at fault. What was taken before a
  // failure is released.
  int Lock(const std::vector<file_t>& files, bool processLayerSorted, std::string& failed);
  void Unlock();

  // Whether any of the files lies on a file system of this type (statfs f_type).
  bool AnyOnFileSystem(long type) const;

 private:
  const char* _owner;
  std::vector<abstraction::file_lock_t> _fileLocks;  // in device and inode order once locked
  bool _fileLocksHeld = false;
  std::vector<std::unique_ptr<ms::IPCFileLock>> _ipcLocks;  // in the order taken
};

}  // namespace vrxutils
}  // namespace nodejs
}  // namespace vrex
