// A JavaScript function with its receiver, held to be called later from the event loop.
// Create, call and destroy it on the main thread only.
#pragma once

#include <napi.h>

#include <initializer_list>

#include "common/base_js_params.h"

namespace vrex {
namespace nodejs {
namespace common {

class async_callback_t {
 public:
  async_callback_t() = default;
  // Holds nothing when the function is empty or not a function; the receiver only when it
  // is an object or a function.
  explicit async_callback_t(const async_callback_info_t& info);
  ~async_callback_t();
  async_callback_t(const async_callback_t&) = delete;
  async_callback_t& operator=(const async_callback_t&) = delete;

  bool IsEmpty() const { return _function.IsEmpty(); }

  // Calls the function and returns its result, or an empty value when none is held or a
  // JavaScript exception is pending afterwards (it stays pending). Outside JavaScript
  // (`inJs` false) with a receiver, the call goes through napi_make_callback so that the
  // host drains its microtasks after it.
  Napi::Value Call(bool inJs, std::initializer_list<napi_value> args);

 private:
  Napi::FunctionReference _function;
  Napi::ObjectReference _receiver;
};

// An exception thrown by a callback called from the event loop has no JavaScript caller to
// reach: this makes it the process's uncaught exception, as for any other I/O callback.
void RaiseUncaught(Napi::Env& env);

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
