// TaskVRXFileDeleteContent: cuts a wall-clock range out of managed .vrx files in place
// (vrxFileDeleteContent), on the "Write" pool: each file in turn, locked exclusively in both
// layers while it is cut. The first failure ends the task; the files before it stay cut.
//
// Result: no properties.
#pragma once

#include <napi.h>

#include <string>
#include <vector>

#include "common/base_js_params.h"
#include "vrxutils/range_params.h"
#include "vrxutils/task_with_params.h"

namespace vrex {
namespace nodejs {
namespace vrxutils {

// { fileNames, wallClockStart, wallClockEnd, fillWithZeros? }: the names (possibly none) and
// the range required, with 0 <= wallClockStart <= wallClockEnd.
class TaskVRXFileDeleteContentParams : public common::BaseJSParams, public wall_clock_range_t {
 public:
  std::vector<std::string> fileNames;
  bool fillWithZeros = false;

 protected:
  bool ReadParameters(Napi::Object& parameters) override;
};

class TaskVRXFileDeleteContent : public TaskWithParams<TaskVRXFileDeleteContentParams> {
 public:
  TaskVRXFileDeleteContent(Napi::Env& env, long id, const TaskVRXFileDeleteContentParams& params);
  int SignalWork() override;
};

}  // namespace vrxutils
}  // namespace nodejs
}  // namespace vrex
