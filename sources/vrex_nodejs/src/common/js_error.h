// The one shape in which a native failure reaches JavaScript.
//
// An Error whose message is GetDescription(code), with
//   errors:     [{full, module, code, description, fileName, lineNumber}, ...] newest first
//               (one element built from `code` alone, fileName "unknown", when the chain is empty)
//   extraInfo:  {key: value}   only when addExtraInfo was used
//   stackTrace: [text, ...]    only when frames were captured
// With a null `info` the Error is bare.
#pragma once

#include <napi.h>

#include "errors/errors.h"

namespace vrex {
namespace nodejs {
namespace common {

Napi::Error GetJsError(Napi::Env& env, int code, const vrex::errors::error_info_t* info);

}  // namespace common
}  // namespace nodejs
}  // namespace vrex

// Throws the error object of `code` with this thread's error record into JavaScript. An
// exception already pending (a parameter's getter threw) is left to reach the caller: a
// second throw would abort the host.
#define THROW_ERROR(env, code)                                                           \
  do {                                                                                   \
    Napi::Env throwEnv_ = (env);                                                         \
    const int throwCode_ = (code);                                                       \
    if (!throwEnv_.IsExceptionPending()) {                                               \
      ::vrex::nodejs::common::GetJsError(throwEnv_, throwCode_, ::vrex::errors::GetErrorInfo()) \
          .ThrowAsJavaScriptException();                                                 \
    }                                                                                    \
  } while (0)
