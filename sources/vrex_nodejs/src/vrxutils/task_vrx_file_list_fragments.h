// TaskVRXFileListFragments: the spans of continuous recording of a .vrx file within a wall-clock
// range (vrxFileListFragments), on the "Read" pool.
//
// Parameters: { fileName, wallClockStart, wallClockEnd } (ms; 0 or absent: open end).
// Result: { fragments: [{ wallClockStart, wallClockEnd }...] }.
#pragma once

#include <napi.h>

#include <string>
#include <vector>

#include "common/base_js_params.h"
#include "common/task.h"
#include "mediaformats/vrx/partition.h"

namespace vrex {
namespace nodejs {
namespace vrxutils {

class TaskVRXFileListFragmentsParams : public common::BaseJSParams {
 public:
  std::string fileName;
  long wallClockStart = 0;
  long wallClockEnd = 0;

 protected:
  // False without a fileName string.
  bool ReadParameters(Napi::Object& parameters) override;
};

class TaskVRXFileListFragments : public common::Task {
 public:
  TaskVRXFileListFragments(Napi::Env& env, long id, const TaskVRXFileListFragmentsParams& params);
  int SignalWork() override;
  void GetCallbackParamInfo(Napi::Object& result) override;

 private:
  const TaskVRXFileListFragmentsParams _params;
  std::vector<mediaformats::fragment_t> _fragments;
};

}  // namespace vrxutils
}  // namespace nodejs
}  // namespace vrex
