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
// (fileName, size, callback)
Napi::Value callback_vrxFileCreate(const Napi::CallbackInfo& info);
// (fileName | { fileName, zeroFill? }, callback), with checks of its own
Napi::Value callback_vrxFileClear(const Napi::CallbackInfo& info);
// (fileName, callback)
Napi::Value callback_vrxFileClose(const Napi::CallbackInfo& info);
// (fileName | { fileName, salvage?, check? }, callback)
Napi::Value callback_vrxFileRecover(const Napi::CallbackInfo& info);
// (parameter object, callback)
Napi::Value callback_vrxFileAppend(const Napi::CallbackInfo& info);
Napi::Value callback_vrxFileCopyContent(const Napi::CallbackInfo& info);
Napi::Value callback_vrxFileDeleteContent(const Napi::CallbackInfo& info);
Napi::Value callback_vrxFileEstimateSize(const Napi::CallbackInfo& info);

// Throws "<-# FAILED! <function><what>".
void ThrowFailure(Napi::Env env, const char* function, const char* what);
// Throws the argument-check failure of `function`: "<-# FAILED! <function> Invalid parameters".
void ThrowInvalidParameters(Napi::Env env, const char* function);

}  // namespace vrxutils
}  // namespace nodejs
}  // namespace vrex
