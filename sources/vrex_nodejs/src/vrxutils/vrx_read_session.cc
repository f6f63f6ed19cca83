// VrxReadSession: the shared locks and the reader of a listing task.
#include "vrxutils/vrx_read_session.h"

#include "abstraction/logging.h"
#include "common/clock.h"
#include "errors/errors.h"

namespace vrex {
namespace nodejs {
namespace vrxutils {

namespace {
// Both layers together above this are worth a line in the log.
constexpr int64_t kLongLockMillis = 5000;
}  // namespace

int VrxReadSession::Open(const std::string& path, long offset) {
  const int64_t start = common::GetTimestampMillis();
  int err = _fileLock.Init(path.c_str(), true);
  if (err >= 0) err = _fileLock.Lock();
  if (err < 0) {
    if (_detailedLog) {
      LOGE << "<-# " << _owner << "::SignalWork FAILED! Cant lock file " << path << " in "
           << common::GetTimestampMillis() - start << " ms err = " << err;
    }
    return err;
  }
  _ipcLock = std::make_unique<ms::IPCFileLock>(path, true);
  if (!_ipcLock->TryLockFor(ms::IPCFileLock::kDEFAULT_TIMEOUT_MS)) {
    if (_detailedLog) {
      LOGE << "<-# " << _owner << "::SignalWork FAILED! Timeoud out when waiting for IPCFileLock " << path;
    } else {
      LOGE << "<-# " << _owner << "::SignalWork FAILED! IPCFileLock timed out: " << path;
    }
    return VREX_ERROR(ms::IPCFileLock::kTIMED_OUT);
  }
  const int64_t lockMillis = common::GetTimestampMillis() - start;
  if (_detailedLog && lockMillis > kLongLockMillis) {
    LOGW << "    " << _owner << "::SignalWork long lock acquisition in " << lockMillis << " ms src=" << path;
  }
  _reader = mediaformats::ReaderVREX::Create(&_observer, path.c_str(), false, offset, -1, err);
  if (_reader == nullptr) {
    LOGE << "<-# " << _owner << "::SignalWork FAILED! Could not create the reader for " << path
         << " err=" << err;
    return err;
  }
  return 0;
}

void VrxReadSession::Close() {
  _reader.reset();
  _ipcLock.reset();
  _fileLock.Unlock();
}

}  // namespace vrxutils
}  // namespace nodejs
}  // namespace vrex
