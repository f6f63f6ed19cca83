// The VRX utility functions bound to JavaScript.
#pragma once

#include <napi.h>

#include <memory>

#include "common/task.h"
#include "common/workers_pools_manager.h"

namespace vrex {
namespace nodejs {
namespace vrxutils {

using common::EnqueueTask;

// callbacks_maintenance.cc
Napi::Value callback_statvfs(const Napi::CallbackInfo& info);
Napi::Value callback_nop(const Napi::CallbackInfo& info);

// Throws the argument-check failure of `function`: "<-# FAILED! <function> Invalid parameters".
void ThrowInvalidParameters(Napi::Env env, const char* function);

}  // namespace vrxutils
}  // namespace nodejs
}  // namespace vrex
