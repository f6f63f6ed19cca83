// sendFile: read the parameters, make the operation, give it to "Serve", return its id.
#include <sys/stat.h>

#include "abstraction/logging.h"
#include "common/callbacks.h"
#include "common/js_error.h"
#include "common/operation_send_file.h"
#include "common/workers_pools_manager.h"
#include "nodejs/errors.h"

namespace vrex {
namespace nodejs {
namespace common {

namespace {

// The destination file is truncated when the operation starts: it must not be the source.
bool IsSameFile(const std::string& a, const std::string& b) {
  struct stat first;
  struct stat second;
  return stat(a.c_str(), &first) == 0 && stat(b.c_str(), &second) == 0 &&
         first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

}  // namespace

Napi::Value callback_sendFile(const Napi::CallbackInfo& info) {
  Napi::Env env = info.Env();
  SendFileParams params;
  if (!params.Read(info) || params.srcFileNames.size() != 1) {
    THROW_ERROR(env, VREX_ERROR(vrex::webrtcnodejs::ERR_NODEJS_INVALID_PARAMETERS));
    return env.Null();
  }
  if (!params.dstFileName.empty() && IsSameFile(params.srcFileNames[0], params.dstFileName)) {
    LOGE << "<-# callback_sendFile FAILED! the destination is the source: " << params.dstFileName;
    THROW_ERROR(env, VREX_ERROR(vrex::webrtcnodejs::ERR_NODEJS_INVALID_PARAMETERS));
    return env.Null();
  }
  auto operation = std::make_shared<OperationSendFile>(env, Task::GenerateId(), params);
  operation->SetDestinationFile(params.dstFileName);
  const int fdResult = operation->SetDestinationTcpFd(params.dstTcpFd);
  if (fdResult != 0) {
    THROW_ERROR(env, fdResult);
    return env.Null();
  }
  return EnqueueTask(env, operation);
}

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
