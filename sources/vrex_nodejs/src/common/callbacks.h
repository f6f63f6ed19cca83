// The common functions bound to JavaScript, one family per file.
#pragma once

#include <napi.h>

namespace vrex {
namespace nodejs {
namespace common {

// callbacks_info.cc
Napi::Value callback_version(const Napi::CallbackInfo& info);
Napi::Value callback_getErrorDescription(const Napi::CallbackInfo& info);
Napi::Value callback_getTimeMillis(const Napi::CallbackInfo& info);

// callbacks_pools.cc
Napi::Value callback_setWorkersPoolsLimits(const Napi::CallbackInfo& info);
Napi::Value callback_getWorkersPoolsStats(const Napi::CallbackInfo& info);

// callbacks_crash_handler.cc
Napi::Value callback_installCrashHandler(const Napi::CallbackInfo& info);

// callbacks_operations.cc
Napi::Value callback_pauseOperation(const Napi::CallbackInfo& info);
Napi::Value callback_resumeOperation(const Napi::CallbackInfo& info);
Napi::Value callback_cancelOperation(const Napi::CallbackInfo& info);
Napi::Value callback_consumeOperationBufferedData(const Napi::CallbackInfo& info);
Napi::Value callback_transferOperationBufferedData(const Napi::CallbackInfo& info);
Napi::Value callback_operationSetMaxBufferSize(const Napi::CallbackInfo& info);

// callbacks_send_file.cc
Napi::Value callback_sendFile(const Napi::CallbackInfo& info);

// callbacks_logging.cc
Napi::Value callback_setLogFile(const Napi::CallbackInfo& info);
Napi::Value callback_setLogLevel(const Napi::CallbackInfo& info);

// Registers the common functions and runs the process's start-up; see register_common.cc.
void RegisterCallbacks(Napi::Object& exports);

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
