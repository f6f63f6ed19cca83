// BaseJSParams::Read: the shared checks of every parameter object.
#include "common/base_js_params.h"

namespace vrex {
namespace nodejs {
namespace common {

bool BaseJSParams::Read(const Napi::CallbackInfo& info) {
  if (info.Length() == 0 || info[0].IsEmpty()) return false;
  const napi_valuetype type = info[0].Type();
  if (type != napi_object && type != napi_function) return false;
  if (info.Length() > 1 && (info[1].IsEmpty() || !info[1].IsFunction())) return false;
  receiverEnv = info.Env();
  receiver = info.This();
  Napi::Object parameters = info[0].ToObject();
  if (!ReadParameters(parameters)) return false;
  if (info.Length() > 1) {
    callbackEnv = info.Env();
    callback = info[1];
  }
  return true;
}

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
