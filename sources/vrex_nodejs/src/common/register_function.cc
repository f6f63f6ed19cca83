// RegisterFunction: napi_create_function with a heap record and its finalizer.
#include "common/register_function.h"

namespace vrex {
namespace nodejs {
namespace common {

namespace {

struct function_record_t {
  native_callback_t callback;
};

napi_value Trampoline(napi_env env, napi_callback_info cbinfo) {
  Napi::CallbackInfo info(env, cbinfo);
  auto* record = static_cast<function_record_t*>(info.Data());
  Napi::Value result = record->callback(info);
  return result.IsEmpty() ? nullptr : static_cast<napi_value>(result);
}

}  // namespace

void RegisterFunction(Napi::Object& exports, const char* name, native_callback_t callback) {
  napi_env env = exports.Env();
  auto* record = new function_record_t{callback};
  napi_value function;
  if (napi_create_function(env, name, NAPI_AUTO_LENGTH, Trampoline, record, &function) != napi_ok) {
    delete record;
    Napi::Error::New(env).ThrowAsJavaScriptException();
    return;
  }
  const napi_finalize finalize = [](napi_env, void* data, void*) {
    delete static_cast<function_record_t*>(data);
  };
  if (napi_add_finalizer(env, function, record, finalize, nullptr, nullptr) != napi_ok) {
    // The function may still be called, so the record stays alive (and leaks).
    Napi::Error::New(env).ThrowAsJavaScriptException();
    return;
  }
  if (napi_set_named_property(env, exports, name, function) != napi_ok) {
    Napi::Error::New(env).ThrowAsJavaScriptException();
  }
}

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
