// setWorkersPoolsLimits and getWorkersPoolsStats.
#include "common/callbacks.h"
#include "common/js_error.h"
#include "common/workers_pools_manager.h"
#include "nodejs/errors.h"

namespace vrex {
namespace nodejs {
namespace common {

Napi::Value callback_getWorkersPoolsStats(const Napi::CallbackInfo& info) {
  Napi::Array stats = Napi::Array::New(info.Env());
  WorkersPoolsManager::GetJSInfo(stats);
  return stats;
}

Napi::Value callback_setWorkersPoolsLimits(const Napi::CallbackInfo& info) {
  Napi::Env env = info.Env();
  if (info.Length() < 1 || !(info[0].IsObject() || info[0].IsFunction())) {
    THROW_ERROR(env, VREX_ERROR(vrex::webrtcnodejs::ERR_NODEJS_INVALID_PARAMETERS));
    return env.Null();
  }
  Napi::Object limits = info[0].ToObject();
  Napi::Array names = limits.GetPropertyNames();
  if (names.IsEmpty()) return env.Null();
  for (uint32_t i = 0; i < names.Length(); ++i) {
    Napi::Value key = names.Get(i);
    if (!key.IsString()) continue;
    Napi::Value value = limits.Get(key);
    if (value.IsEmpty() || !value.IsNumber()) continue;
    const int32_t limit = value.As<Napi::Number>().Int32Value();
    if (limit <= 0) continue;
    WorkersPoolsManager::SetupWorkersPool(key.As<Napi::String>().Utf8Value(),
                                          static_cast<unsigned long>(limit));
  }
  return callback_getWorkersPoolsStats(info);
}

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
