// vrxFileInfo, vrxFileListFrames, vrxFileListPartitions, vrxFileListFragments.
#include "vrxutils/callbacks_listing.h"

#include <memory>
#include <string>

#include "vrxutils/callbacks.h"
#include "vrxutils/task_vrx_file_info.h"
#include "vrxutils/task_vrx_file_list.h"
#include "vrxutils/task_vrx_file_list_fragments.h"

namespace vrex {
namespace nodejs {
namespace vrxutils {

namespace {

// (fileName, callback) or a thrown "<-# FAILED! <function> Invalid parameters".
bool ReadFileNameArguments(const Napi::CallbackInfo& info, const char* function) {
  if (info.Length() == 2 && info[0].IsString() && info[1].IsFunction()) return true;
  ThrowInvalidParameters(info.Env(), function);
  return false;
}

Napi::Value ListFile(const Napi::CallbackInfo& info, const char* function, int kind) {
  Napi::Env env = info.Env();
  if (!ReadFileNameArguments(info, function)) return env.Null();
  const common::async_callback_info_t completion{env, info[1], env, info.This()};
  return EnqueueTask(env, std::make_shared<TaskVRXFileList>(env, common::Task::GenerateId(),
                                                            info[0].As<Napi::String>().Utf8Value(),
                                                            kind, completion));
}

}  // namespace

Napi::Value callback_vrxFileInfo(const Napi::CallbackInfo& info) {
  Napi::Env env = info.Env();
  if (!ReadFileNameArguments(info, "callback_vrxFileInfo")) return env.Null();
  const common::async_callback_info_t completion{env, info[1], env, info.This()};
  return EnqueueTask(env, std::make_shared<TaskVRXFileInfo>(env, common::Task::GenerateId(),
                                                            info[0].As<Napi::String>().Utf8Value(),
                                                            completion));
}

Napi::Value callback_vrxFileListFrames(const Napi::CallbackInfo& info) {
  return ListFile(info, "callback_vrxFileListFrames", TaskVRXFileList::KIND_FRAMES);
}

Napi::Value callback_vrxFileListPartitions(const Napi::CallbackInfo& info) {
  return ListFile(info, "callback_vrxFileListPartitions", TaskVRXFileList::KIND_PARTITIONS);
}

Napi::Value callback_vrxFileListFragments(const Napi::CallbackInfo& info) {
  Napi::Env env = info.Env();
  TaskVRXFileListFragmentsParams params;
  if (info.Length() != 2 || !info[0].IsObject() || !info[1].IsFunction() || !params.Read(info)) {
    ThrowInvalidParameters(env, "callback_vrxFileListFragments");
    return env.Null();
  }
  return EnqueueTask(
      env, std::make_shared<TaskVRXFileListFragments>(env, common::Task::GenerateId(), params));
}

}  // namespace vrxutils
}  // namespace nodejs
}  // namespace vrex
