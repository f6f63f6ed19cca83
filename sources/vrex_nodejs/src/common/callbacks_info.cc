// version, getErrorDescription, getTimeMillis.
#include <sys/time.h>

#include "common/callbacks.h"
#include "common/js_error.h"
#include "common/version.h"
#include "nodejs/errors.h"

namespace vrex {
namespace nodejs {
namespace common {

using vrex::webrtcnodejs::ERR_NODEJS_INVALID_PARAMETERS;

Napi::Value callback_version(const Napi::CallbackInfo& info) {
  Napi::Object result = Napi::Object::New(info.Env());
  result.Set("buildNumber", vrex::common::Version::GetBuildNumber());
  result.Set("openSslVersion", vrex::common::Version::GetOpenSslVersion());
  return result;
}

Napi::Value callback_getErrorDescription(const Napi::CallbackInfo& info) {
  if (info.Length() < 1 || !info[0].IsNumber()) {
    THROW_ERROR(info.Env(), VREX_ERROR(ERR_NODEJS_INVALID_PARAMETERS));
    return info.Env().Null();
  }
  const int32_t code = info[0].As<Napi::Number>().Int32Value();
  return Napi::String::New(info.Env(), vrex::errors::GetDescription(code));
}

Napi::Value callback_getTimeMillis(const Napi::CallbackInfo& info) {
  timeval now;
  gettimeofday(&now, nullptr);
  const int64_t micros = static_cast<int64_t>(now.tv_sec) * 1000000 + now.tv_usec;
  return Napi::Number::New(info.Env(), static_cast<double>(micros / 1000));
}

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
