// async_callback_t: strong references to a function and its receiver.
#include "common/async_callback.h"

#include <vector>

namespace vrex {
namespace nodejs {
namespace common {

async_callback_t::async_callback_t(const async_callback_info_t& info) {
  if (info.function == nullptr) return;
  Napi::Value function(info.functionEnv, info.function);
  if (function.Type() != napi_function) return;
  _function = Napi::Persistent(function.As<Napi::Function>());
  if (info.receiver == nullptr) return;
  Napi::Value receiver(info.receiverEnv, info.receiver);
  const napi_valuetype type = receiver.Type();
  if (type != napi_object && type != napi_function) return;
  _receiver = Napi::Persistent(receiver.ToObject());
}

async_callback_t::~async_callback_t() {
  _function.Reset();
  _receiver.Reset();
}

Napi::Value async_callback_t::Call(bool inJs, std::initializer_list<napi_value> args) {
  if (_function.IsEmpty()) return Napi::Value();
  Napi::Env env = _function.Env();
  Napi::EscapableHandleScope scope(env);
  const std::vector<napi_value> argv(args);
  napi_value result = nullptr;
  napi_status status;
  if (!inJs && !_receiver.IsEmpty() && !_receiver.Value().IsNull() &&
      !_receiver.Value().IsUndefined()) {
    status = napi_make_callback(env, nullptr, _receiver.Value(), _function.Value(), argv.size(),
                                argv.data(), &result);
  } else {
    status = napi_call_function(env, env.Undefined(), _function.Value(), argv.size(),
                                argv.data(), &result);
  }
  if (status != napi_ok || env.IsExceptionPending() || result == nullptr) return Napi::Value();
  return scope.Escape(result);
}

void RaiseUncaught(Napi::Env& env) {
  if (!env.IsExceptionPending()) return;
  Napi::Error error = env.GetAndClearPendingException();
  napi_fatal_exception(env, error.Value());
}

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
