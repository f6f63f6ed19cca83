// The VRX utility functions bound to JavaScript.
#pragma once

#include <napi.h>

#include <memory>

#include "common/task.h"

namespace vrex {
namespace nodejs {
namespace vrxutils {

// callbacks_maintenance.cc
Napi::Value callback_statvfs(const Napi::CallbackInfo& info);
Napi::Value callback_nop(const Napi::CallbackInfo& info);

// Gives `task` to the pool it names (WorkersPoolsManager::Enqueue) and returns its id, the
// value every task function returns to JavaScript.
Napi::Value EnqueueTask(Napi::Env env, std::shared_ptr<common::Task> task);

// Throws the argument-check failure of `function`: "<-# FAILED! <function> Invalid parameters".
void ThrowInvalidParameters(Napi::Env env, const char* function);

}  // namespace vrxutils
}  // namespace nodejs
}  // namespace vrex
