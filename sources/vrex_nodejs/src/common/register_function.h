// Sets one native function on the exports object. The function object keeps a small heap
// record of the callback, freed by a finalizer when the function is collected. A failure
// throws the pending error into the host and registration goes on with the next name.
#pragma once

#include <napi.h>

namespace vrex {
namespace nodejs {
namespace common {

typedef Napi::Value (*native_callback_t)(const Napi::CallbackInfo& info);

void RegisterFunction(Napi::Object& exports, const char* name, native_callback_t callback);

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
