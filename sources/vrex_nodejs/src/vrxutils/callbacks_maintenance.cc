// The maintenance functions: check the arguments, make the task, give it to its pool, return
// its id. A wrong argument throws "<-# FAILED! callback_<name> Invalid parameters".
#include <memory>
#include <string>

#include "common/property_reader.h"
#include "common/workers_pools_manager.h"
#include "vrxutils/callbacks.h"
#include "vrxutils/task_nop.h"
#include "vrxutils/task_statvfs.h"
#include "vrxutils/task_vrx_file_append.h"
#include "vrxutils/task_vrx_file_create.h"
#include "vrxutils/task_vrx_file_delete_content.h"
#include "vrxutils/task_vrx_file_estimate_size.h"
#include "vrxutils/task_vrx_file_exclusive.h"

namespace vrex {
namespace nodejs {
namespace vrxutils {

namespace {

common::async_callback_info_t Completion(const Napi::CallbackInfo& info, size_t index) {
  Napi::Env env = info.Env();
  return {env, info[index], env, info.This()};
}

// (fileName, callback): exactly, or with more arguments after them unless `exact`.
template <typename TaskT>
Napi::Value EnqueueWithFileName(const Napi::CallbackInfo& info, const char* function, bool exact) {
  Napi::Env env = info.Env();
  const bool counted = exact ? info.Length() == 2 : info.Length() >= 2;
  if (!counted || !info[0].IsString() || !info[1].IsFunction()) {
    ThrowInvalidParameters(env, function);
    return env.Null();
  }
  return EnqueueTask(env, std::make_shared<TaskT>(env, common::Task::GenerateId(),
                                                  info[0].As<Napi::String>().Utf8Value(), Completion(info, 1)));
}

// (parameter object, callback) exactly, and the object as `params` reads it.
bool ReadParamsCall(const Napi::CallbackInfo& info, common::BaseJSParams& params) {
  return info.Length() == 2 && info[0].IsObject() && info[1].IsFunction() && params.Read(info);
}

// Makes the task from `params` when the call is well formed, else throws.
template <typename TaskT, typename ParamsT>
Napi::Value EnqueueWithParams(const Napi::CallbackInfo& info, const char* function) {
  Napi::Env env = info.Env();
  ParamsT params;
  if (!ReadParamsCall(info, params)) {
    ThrowInvalidParameters(env, function);
    return env.Null();
  }
  return EnqueueTask(env, std::make_shared<TaskT>(env, common::Task::GenerateId(), params));
}

}  // namespace

void ThrowFailure(Napi::Env env, const char* function, const char* what) {
  // A parameter's getter that threw has its own exception pending; a second throw would abort.
  if (env.IsExceptionPending()) return;
  Napi::Error::New(env, std::string("<-# FAILED! ") + function + what).ThrowAsJavaScriptException();
}

void ThrowInvalidParameters(Napi::Env env, const char* function) {
  ThrowFailure(env, function, " Invalid parameters");
}

Napi::Value callback_statvfs(const Napi::CallbackInfo& info) {
  return EnqueueWithFileName<TaskStatvfs>(info, "callback_statvfs", false);
}

Napi::Value callback_nop(const Napi::CallbackInfo& info) {
  Napi::Env env = info.Env();
  TaskNopParams params;
  if (info.Length() < 2 || !params.Read(info)) {
    ThrowInvalidParameters(env, "callback_nop");
    return env.Null();
  }
  return EnqueueTask(env, std::make_shared<TaskNop>(env, common::Task::GenerateId(), params));
}

Napi::Value callback_vrxFileCreate(const Napi::CallbackInfo& info) {
  Napi::Env env = info.Env();
  if (info.Length() != 3 || !info[0].IsString() || !info[1].IsNumber() || !info[2].IsFunction()) {
    ThrowInvalidParameters(env, "callback_vrxFileCreate");
    return env.Null();
  }
  return EnqueueTask(env, std::make_shared<TaskVRXFileCreate>(
                              env, common::Task::GenerateId(), info[0].As<Napi::String>().Utf8Value(),
                              static_cast<long>(info[1].As<Napi::Number>().Int64Value()), Completion(info, 2)));
}

Napi::Value callback_vrxFileClear(const Napi::CallbackInfo& info) {
  Napi::Env env = info.Env();
  const char* function = "callback_vrxFileClear";
  if (info.Length() == 0) {
    ThrowFailure(env, function, " No parameters");
    return env.Null();
  }
  if (!info[0].IsString() && !info[0].IsObject()) {
    ThrowFailure(env, function, " First parameter type is not string or object");
    return env.Null();
  }
  std::string fileName;
  bool zeroFill = false;
  if (info[0].IsString()) {
    fileName = info[0].As<Napi::String>().Utf8Value();
  } else {
    common::PropertyReader options(info[0].As<Napi::Object>());
    if (options.ReadString("fileName", &fileName) == nullptr) {
      ThrowFailure(env, function, " Options do not contain fileName parameter");
      return env.Null();
    }
    options.ReadBoolean("zeroFill", &zeroFill);
  }
  if (info.Length() < 2 || !info[1].IsFunction()) {
    ThrowFailure(env, function, " Second parameter type is not function");
    return env.Null();
  }
  return EnqueueTask(env, std::make_shared<TaskVRXFileClear>(env, common::Task::GenerateId(), fileName,
                                                             zeroFill, Completion(info, 1)));
}

Napi::Value callback_vrxFileClose(const Napi::CallbackInfo& info) {
  return EnqueueWithFileName<TaskVRXFileClose>(info, "callback_vrxFileClose", true);
}

Napi::Value callback_vrxFileRecover(const Napi::CallbackInfo& info) {
  Napi::Env env = info.Env();
  std::string fileName;
  TaskVRXFileRecover::options_t options;
  bool valid = info.Length() == 2 && info[1].IsFunction();
  if (valid && info[0].IsString()) {
    fileName = info[0].As<Napi::String>().Utf8Value();
  } else if (valid && info[0].IsObject()) {
    // The options form: beyond the repair itself, salvage and a check that changes nothing.
    common::PropertyReader reader(info[0].As<Napi::Object>());
    valid = reader.ReadString("fileName", &fileName) != nullptr;
    reader.ReadBoolean("salvage", &options.salvage);
    reader.ReadBoolean("check", &options.checkOnly);
  } else {
    valid = false;
  }
  if (!valid) {
    ThrowInvalidParameters(env, "callback_vrxFileRecover");
    return env.Null();
  }
  return EnqueueTask(env, std::make_shared<TaskVRXFileRecover>(env, common::Task::GenerateId(), fileName,
                                                               options, Completion(info, 1)));
}

Napi::Value callback_vrxFileAppend(const Napi::CallbackInfo& info) {
  return EnqueueWithParams<TaskVRXFileAppend, TaskVRXFileAppendParams>(info, "callback_vrxFileAppend");
}

Napi::Value callback_vrxFileCopyContent(const Napi::CallbackInfo& info) {
  return EnqueueWithParams<TaskVRXFileCopyContent, TaskVRXFileCopyContentParams>(
      info, "callback_vrxFileCopyContent");
}

Napi::Value callback_vrxFileDeleteContent(const Napi::CallbackInfo& info) {
  return EnqueueWithParams<TaskVRXFileDeleteContent, TaskVRXFileDeleteContentParams>(
      info, "callback_vrxFileDeleteContent");
}

Napi::Value callback_vrxFileEstimateSize(const Napi::CallbackInfo& info) {
  return EnqueueWithParams<TaskVRXFileEstimateSize, TaskVRXFileEstimateSizeParams>(
      info, "callback_vrxFileEstimateSize");
}

}  // namespace vrxutils
}  // namespace nodejs
}  // namespace vrex
