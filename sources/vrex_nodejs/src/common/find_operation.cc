// FindOperation over WorkersPoolsManager::Find.
#include "common/find_operation.h"

#include "common/workers_pools_manager.h"
#include "nodejs/errors.h"

namespace vrex {
namespace nodejs {
namespace common {

std::shared_ptr<BaseOperation> FindOperation(const Napi::CallbackInfo& info, int& errorCode) {
  if (info.Length() < 1 || !info[0].IsNumber()) {
    errorCode = VREX_ERROR(vrex::webrtcnodejs::ERR_NODEJS_INVALID_PARAMETERS);
    return nullptr;
  }
  const long id = static_cast<long>(info[0].As<Napi::Number>().Int64Value());
  std::shared_ptr<Task> task = WorkersPoolsManager::Find(id);
  if (!task || !task->IsOperation()) {
    errorCode = VREX_ERROR(vrex::webrtcnodejs::ERR_NODEJS_OPERATION_NOT_FOUND);
    return nullptr;
  }
  errorCode = 0;
  return std::static_pointer_cast<BaseOperation>(task);
}

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
