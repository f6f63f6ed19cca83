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
#include "common/task.h"

namespace vrex {
namespace nodejs {
namespace vrxutils {

// { fileNames, wallClockStart, wallClockEnd, fillWithZeros? }: the names (possibly none) and
// the range required, with 0 <= wallClockStart <= wallClockEnd.
class TaskVRXFileDeleteContentParams : public common::BaseJSParams {
 public:
  std::vector<std::string> fileNames;
  long wallClockStart = 0;
  long wallClockEnd = 0;
  bool fillWithZeros = false;

 protected:
  bool ReadParameters(Napi::Object& parameters) override;
};

class TaskVRXFileDeleteContent : public common::Task {
 public:
  TaskVRXFileDeleteContent(Napi::Env& env, long id, const TaskVRXFileDeleteContentParams& params);
  int SignalWork() override;

 private:
  const TaskVRXFileDeleteContentParams _params;
};

}  // namespace vrxutils
}  // namespace nodejs
}  // namespace vrex
