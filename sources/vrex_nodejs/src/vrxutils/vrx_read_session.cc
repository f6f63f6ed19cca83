// VrxReadSession: the shared locks and the reader of a listing task.
#include "vrxutils/vrx_read_session.h"

#include "abstraction/logging.h"
#include "common/clock.h"
#include "errors/errors.h"

namespace vrex {
namespace nodejs {
namespace vrxutils {

int VrxReadSession::Open(const std::string& path, long offset) {
  const int64_t start = common::GetTimestampMillis();
  std::string failed;
  int err = _locks.Lock({{path, true, true}}, false, failed);
  if (err == ms::IPCFileLock::kTIMED_OUT && _detailedLog) {
    LOGE << "<-# " << _owner << "::SignalWork FAILED! Timeoud out when waiting for IPCFileLock " << path;
  } else if (err < 0 && _detailedLog) {
    LOGE << "<-# " << _owner << "::SignalWork FAILED! Cant lock file " << path << " in "
         << common::GetTimestampMillis() - start << " ms err = " << err;
  }
  if (err < 0) return err;
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
  _locks.Unlock();
}

}  // namespace vrxutils
}  // namespace nodejs
}  // namespace vrex
