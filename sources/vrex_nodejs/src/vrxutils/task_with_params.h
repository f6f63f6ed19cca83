// A task that keeps the parameter object it was made from.
#pragma once

#include <napi.h>

#include "common/task.h"

namespace vrex {
namespace nodejs {
namespace vrxutils {

template <typename ParamsT, typename TaskT = common::Task>
class TaskWithParams : public TaskT {
 protected:
  TaskWithParams(Napi::Env& env, long id, const char* name, const char* pool, const ParamsT& params)
      : TaskT(env, id, name, pool, false, -1, params.CallbackInfo()), _params(params) {}

  const ParamsT _params;
};

}  // namespace vrxutils
}  // namespace nodejs
}  // namespace vrex
