// TaskNop: does nothing on a worker; its round trip tells that a pool is alive.
#pragma once

#include <string>

#include "common/base_js_params.h"
#include "common/task.h"

namespace vrex {
namespace nodejs {
namespace vrxutils {

// nop's parameter object: {pool: string}, required.
class TaskNopParams : public common::BaseJSParams {
 public:
  std::string pool;

 protected:
  bool ReadParameters(Napi::Object& parameters) override;
};

class TaskNop : public common::Task {
 public:
  TaskNop(Napi::Env& env, long id, const TaskNopParams& params);
  int SignalWork() override { return 0; }
};

}  // namespace vrxutils
}  // namespace nodejs
}  // namespace vrex
