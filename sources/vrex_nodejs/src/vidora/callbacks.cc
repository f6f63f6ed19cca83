// processMedia, pauseOnlyVideo and changeVideoSendingStyle.
#include "abstraction/logging.h"
#include "common/js_error.h"
#include "common/register_function.h"
#include "common/workers_pools_manager.h"
#include "nodejs/errors.h"
#include "registrars.h"
#include "vidora/operation_direct_export.h"

namespace vrex {
namespace nodejs {
namespace vidora {

using vrex::webrtcnodejs::ERR_NODEJS_INVALID_PARAMETERS;
using vrex::webrtcnodejs::ERR_NODEJS_OPERATION_NOT_FOUND;

namespace {

Napi::Value callback_processMedia(const Napi::CallbackInfo& info) {
  Napi::Env env = info.Env();
  ProcessMediaParams params;
  if (!params.Read(info)) {
    THROW_ERROR(env, VREX_ERROR(ERR_NODEJS_INVALID_PARAMETERS));
    return env.Null();
  }
  // A socket with a transport head gets the length first: the range is read twice.
  const bool direct = !params.transportFormat.empty() && params.hasNetworkDestination &&
                      (params.outputFormat == "mp4" || params.outputFormat == "vrx");
  const long id = common::Task::GenerateId();
  std::shared_ptr<OperationProcessMedia> operation =
      direct ? std::make_shared<OperationProcessMediaDirectExport>(env, id, params)
             : std::make_shared<OperationProcessMedia>(env, id, params);
  operation->SetDestinationFile(params.dstFileName);
  const int fdResult = operation->SetDestinationTcpFd(params.dstTcpFd);
  if (fdResult != 0) {
    THROW_ERROR(env, fdResult);
    return env.Null();
  }
  return common::EnqueueTask(env, operation);
}

// The operation of info[0], or null with the error thrown.
std::shared_ptr<common::BaseOperation> FindOperation(const Napi::CallbackInfo& info) {
  const std::shared_ptr<common::Task> task =
      common::WorkersPoolsManager::Find(static_cast<long>(info[0].As<Napi::Number>().Int64Value()));
  if (!task || !task->IsOperation()) {
    THROW_ERROR(info.Env(), VREX_ERROR(ERR_NODEJS_OPERATION_NOT_FOUND));
    return nullptr;
  }
  return std::static_pointer_cast<common::BaseOperation>(task);
}

Napi::Value callback_pauseOnlyVideo(const Napi::CallbackInfo& info) {
  Napi::Env env = info.Env();
  if (info.Length() < 2 || !info[0].IsNumber() || !info[1].IsBoolean()) {
    THROW_ERROR(env, VREX_ERROR(ERR_NODEJS_INVALID_PARAMETERS));
    return env.Null();
  }
  const std::shared_ptr<common::BaseOperation> operation = FindOperation(info);
  if (!operation) return env.Null();
  const int result = operation->PauseOnlyVideo(info[1].As<Napi::Boolean>().Value());
  if (result != 0) THROW_ERROR(env, result);
  return env.Undefined();
}

// Reads its id from info[0] as a number and its parameters from info[0] as an object: no call
// satisfies both, so it always throws. It keeps that shape for the callers that know it.
Napi::Value callback_changeVideoSendingStyle(const Napi::CallbackInfo& info) {
  Napi::Env env = info.Env();
  ProcessMediaParams params;
  if (info.Length() < 1 || !info[0].IsNumber() || !params.Read(info)) {
    THROW_ERROR(env, VREX_ERROR(ERR_NODEJS_INVALID_PARAMETERS));
    return env.Null();
  }
  const std::shared_ptr<common::BaseOperation> operation = FindOperation(info);
  if (!operation) return env.Null();
  operation->ChangeVideoSendingStyle(params.onlyKeyFrames, params.everyNthFrame);
  return env.Undefined();
}

}  // namespace

void RegisterCallbacks(Napi::Object& exports) {
  common::RegisterFunction(exports, "processMedia", callback_processMedia);
  common::RegisterFunction(exports, "pauseOnlyVideo", callback_pauseOnlyVideo);
  common::RegisterFunction(exports, "changeVideoSendingStyle", callback_changeVideoSendingStyle);
}

}  // namespace vidora
}  // namespace nodejs
}  // namespace vrex
