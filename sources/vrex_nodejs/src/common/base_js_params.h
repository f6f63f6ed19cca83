// The base of every parameter class: reads info[0] as the parameter object and keeps
// info[1] as the completion callback.
#pragma once

#include <napi.h>

namespace vrex {
namespace nodejs {
namespace common {

// How a JavaScript function travels from a parameter object to a task. An empty function
// value means that no callback is wanted.
struct async_callback_info_t {
  napi_env functionEnv = nullptr;
  napi_value function = nullptr;
  napi_env receiverEnv = nullptr;
  napi_value receiver = nullptr;
};

class BaseJSParams {
 public:
  BaseJSParams() = default;
  BaseJSParams(const BaseJSParams&) = default;
  virtual ~BaseJSParams() = default;

  // False when info[0] is missing or not an object or function, when a second argument is
  // present but not a function, or when ReadParameters says so. Valid only during the
  // native call that gave `info`.
  bool Read(const Napi::CallbackInfo& info);

  // The completion callback and receiver, for async_callback_t.
  async_callback_info_t CallbackInfo() const {
    return {callbackEnv, callback, receiverEnv, receiver};
  }

  napi_env callbackEnv = nullptr;
  napi_value callback = nullptr;  // info[1]; empty until Read succeeds
  napi_env receiverEnv = nullptr;
  napi_value receiver = nullptr;  // info.This()

 protected:
  virtual bool ReadParameters(Napi::Object& parameters) = 0;
};

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
