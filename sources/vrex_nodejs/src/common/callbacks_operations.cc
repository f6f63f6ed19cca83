// The functions that act on an operation by id.
#include "common/callbacks.h"
#include "common/find_operation.h"
#include "common/js_error.h"

namespace vrex {
namespace nodejs {
namespace common {

Napi::Value callback_cancelOperation(const Napi::CallbackInfo& info) {
  int errorCode = 0;
  const std::shared_ptr<Task> operation = FindOperation(info, errorCode);
  if (!operation) {
    THROW_ERROR(info.Env(), errorCode);
    return info.Env().Undefined();
  }
  operation->Cancel();
  return info.Env().Undefined();
}

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
