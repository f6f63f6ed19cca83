// OperationObserver: a destination of an operation's bytes that is neither a file, a socket nor
// a JavaScript drain (a transport of the application's own).
//
// Installed with BaseOperation::SetObserver. Every call comes on the main thread, under the
// operation's mutex except SignalFinished; the IOBuffer is the operation's and valid only
// during the call.
#pragma once

#include "common/iobuffer.h"

namespace vrex {
namespace nodejs {
namespace common {

class OperationObserver {
 public:
  virtual ~OperationObserver() = default;
  // Takes what it can of `buffer` (consuming it there); `last` on the final call. A non-zero
  // code fails the operation and drops the observer.
  virtual int SignalData(vrex::common::IOBuffer& buffer, bool last) = 0;
  virtual void SignalPause() = 0;
  virtual void SignalResume() = 0;
  virtual void SignalCancel() = 0;
  // The operation has ended; the observer is not called again.
  virtual void SignalFinished() = 0;
};

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
