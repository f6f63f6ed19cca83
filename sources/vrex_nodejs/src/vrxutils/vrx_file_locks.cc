// VrxFileLocks.
#include "vrxutils/vrx_file_locks.h"

#include <algorithm>

#include "abstraction/filelock_closure.h"
#include "abstraction/logging.h"
#include "common/clock.h"
#include "errors/errors.h"
#include "mediaformats/errors.h"

namespace vrex {
namespace nodejs {
namespace vrxutils {

namespace {
// Both layers together above this are worth a line in the log.
constexpr int64_t kLongLockMillis = 5000;
}  // namespace

int VrxFileLocks::Lock(const std::vector<file_t>& files, bool processLayerSorted, std::string& failed) {
  Unlock();
  const int64_t start = common::GetTimestampMillis();
  _fileLocks.clear();
  _fileLocks.resize(files.size());
  for (size_t i = 0; i < files.size(); ++i) {
    const int err = _fileLocks[i].Init(files[i].path.c_str(), files[i].shared);
    if (err < 0) {
      failed = files[i].path;
      return err;
    }
    for (size_t j = 0; j < i; ++j) {
      // One file twice, once exclusive: the first layer would wait for itself for ever.
      if (_fileLocks[j].IsSameFile(_fileLocks[i]) && !(files[i].shared && files[j].shared)) {
        failed = files[i].path;
        LOGE << "<-# " << _owner << "::SignalWork FAILED! " << files[j].path << " and " << files[i].path
             << " are one file";
        return VREX_ERROR(mediaformats::ERR_MEDIAFORMATS_INCORRECT_PARAMETERS);
      }
    }
  }
  // The process layer follows the first layer's order, or the order given.
  std::vector<file_t> processOrder = files;
  if (processLayerSorted) {
    std::vector<size_t> order(files.size());
    for (size_t i = 0; i < order.size(); ++i) order[i] = i;
    std::stable_sort(order.begin(), order.end(),
                     [this](size_t a, size_t b) { return _fileLocks[a] < _fileLocks[b]; });
    for (size_t i = 0; i < order.size(); ++i) processOrder[i] = files[order[i]];
  }
  const abstraction::file_locks_closure_t closure(_fileLocks);
  _fileLocksHeld = true;
  if (!closure.IsLocked()) {
    failed = files.empty() ? std::string() : files.front().path;
    Unlock();
    return closure.Error();
  }
  for (const file_t& file : processOrder) {
    _ipcLocks.push_back(std::make_unique<ms::IPCFileLock>(file.path, file.sharedAmongProcesses));
    if (!_ipcLocks.back()->TryLockFor(ms::IPCFileLock::kDEFAULT_TIMEOUT_MS)) {
      LOGE << "<-# " << _owner << "::SignalWork FAILED! IPCFileLock timed out: " << file.path;
      failed = file.path;
      Unlock();
      return VREX_ERROR(ms::IPCFileLock::kTIMED_OUT);
    }
  }
  const int64_t millis = common::GetTimestampMillis() - start;
  if (millis > kLongLockMillis) {
    LOGW << "    " << _owner << "::SignalWork long lock acquisition in " << millis << " ms src="
         << (files.empty() ? std::string() : files.front().path);
  }
  return 0;
}

void VrxFileLocks::Unlock() {
  while (!_ipcLocks.empty()) _ipcLocks.pop_back();
  if (_fileLocksHeld) {
    for (auto lock = _fileLocks.rbegin(); lock != _fileLocks.rend(); ++lock) lock->Unlock();
  }
  _fileLocksHeld = false;
}

bool VrxFileLocks::AnyOnFileSystem(long type) const {
  for (const abstraction::file_lock_t& lock : _fileLocks) {
    if (lock.fileSystemType == type) return true;
  }
  return false;
}

}  // namespace vrxutils
}  // namespace nodejs
}  // namespace vrex
