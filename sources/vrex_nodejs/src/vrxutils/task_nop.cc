// TaskNop and its parameters.
#include "vrxutils/task_nop.h"

#include "common/property_reader.h"

namespace vrex {
namespace nodejs {
namespace vrxutils {

bool TaskNopParams::ReadParameters(Napi::Object& parameters) {
  return common::PropertyReader(parameters).ReadString("pool", &pool) != nullptr;
}

TaskNop::TaskNop(Napi::Env& env, long id, const TaskNopParams& params)
    : Task(env, id, "nop", params.pool, false, -1, params.CallbackInfo()) {}

}  // namespace vrxutils
}  // namespace nodejs
}  // namespace vrex
