// installCrashHandler.
#include "abstraction/crash_handler.h"
#include "common/callbacks.h"
#include "common/js_error.h"
#include "common/version.h"
#include "nodejs/errors.h"

// The engine's own test of a WebAssembly bounds-check fault, which it turns into a RuntimeError
// when it returns true; exported by the host executable when it uses such traps, null otherwise.
namespace v8 {
bool TryHandleWebAssemblyTrapPosix(int signal, siginfo_t* info, void* context)
    __attribute__((weak));
}  // namespace v8

namespace vrex {
namespace nodejs {
namespace common {

using vrex::webrtcnodejs::ERR_NODEJS_INVALID_PARAMETERS;

Napi::Value callback_installCrashHandler(const Napi::CallbackInfo& info) {
  Napi::Env env = info.Env();
  // Missing, not a string and empty are one failure.
  const std::string path =
      info.Length() >= 1 && info[0].IsString() ? info[0].As<Napi::String>().Utf8Value() : "";
  if (path.empty()) {
    THROW_ERROR(env, VREX_ERROR(ERR_NODEJS_INVALID_PARAMETERS));
    return env.Undefined();
  }
  // A WebAssembly memory access out of bounds is a JavaScript exception, not a crash.
  vrex::abstraction::SetCrashFaultFilter(v8::TryHandleWebAssemblyTrapPosix);
  const int result =
      vrex::abstraction::InstallCrashHandler(path, vrex::common::Version::GetBanner());
  if (result < 0) THROW_ERROR(env, result);
  return env.Undefined();
}

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
