// statvfs and nop: check the arguments, make the task, give it to its pool, return its id.
#include <memory>

#include "common/workers_pools_manager.h"
#include "vrxutils/callbacks.h"
#include "vrxutils/task_nop.h"
#include "vrxutils/task_statvfs.h"

namespace vrex {
namespace nodejs {
namespace vrxutils {

void ThrowInvalidParameters(Napi::Env env, const char* function) {
  // A parameter's getter that threw has its own exception pending; a second throw would abort.
  if (env.IsExceptionPending()) return;
  Napi::Error::New(env, std::string("<-# FAILED! ") + function + " Invalid parameters")
      .ThrowAsJavaScriptException();
}

Napi::Value callback_statvfs(const Napi::CallbackInfo& info) {
  Napi::Env env = info.Env();
  if (info.Length() < 2 || !info[0].IsString() || !info[1].IsFunction()) {
    ThrowInvalidParameters(env, "callback_statvfs");
    return env.Null();
  }
  const common::async_callback_info_t completion{env, info[1], env, info.This()};
  return EnqueueTask(env, std::make_shared<TaskStatvfs>(env, common::Task::GenerateId(),
                                                        info[0].As<Napi::String>().Utf8Value(),
                                                        completion));
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

}  // namespace vrxutils
}  // namespace nodejs
}  // namespace vrex
