// FindOperation: the shared lookup of the functions that act on a running operation by id.
#pragma once

#include <napi.h>

#include <memory>

#include "common/base_operation.h"

namespace vrex {
namespace nodejs {
namespace common {

// The task whose id is info[0], when it exists and IsOperation() is true. Otherwise an empty
// pointer, with `errorCode` set (and this thread's error record made): "NodeJS function
// parameters are incorrect" when info[0] is not a number, "NodeJS sending operation not
// found" for an unknown id or a task that is not an operation. Main thread.
std::shared_ptr<BaseOperation> FindOperation(const Napi::CallbackInfo& info, int& errorCode);

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
