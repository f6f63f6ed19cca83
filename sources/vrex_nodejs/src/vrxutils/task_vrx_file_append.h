// The tasks that copy content into a managed .vrx file:
//   TaskVRXFileAppend       vrxFileAppend, on the "Append" pool (which only
//                           setWorkersPoolsLimits makes: until then the task is dropped)
//   TaskVRXFileCopyContent  vrxFileCopyContent, on the "Write" pool
//
// Result: { totalAppended }: the bytes added (append), or the space the selection took, 0
// when nothing matched (copy). ERR_MEDIAFORMATS_NOT_ENOUGH_SPACE is the normal sign of a full
// file and ERR_MEDIAFORMATS_DOUBLE_APPEND that of a source appended already; lock failures as
// for every task.
#pragma once

#include <napi.h>

#include <string>
#include <vector>

#include "common/base_js_params.h"
#include "common/task.h"
#include "mediaformats/vrx/vrx_format.h"
#include "vrxutils/range_params.h"
#include "vrxutils/task_with_params.h"

namespace vrex {
namespace nodejs {
namespace vrxutils {

// { srcFileName, dstFileName, createNewPartition?, fixedMetadata? (24 hex digits; absent or
// not a string: zeros), dynamicMetadata? (its UTF-8 bytes as they stand) }. False without the
// two names or with fixed metadata that is not 12 bytes of hex.
class TaskVRXFileAppendParams : public common::BaseJSParams {
 public:
  std::string srcFileName;
  std::string dstFileName;
  bool createNewPartition = false;
  unsigned char fixedMetadata[mediaformats::kFixedMetadataSize] = {0};
  std::string dynamicMetadata;

 protected:
  bool ReadParameters(Napi::Object& parameters) override;
};

// { srcFileNames, dstFileName, wallClockStart, wallClockEnd }: all required, with
// 0 <= wallClockStart <= wallClockEnd.
class TaskVRXFileCopyContentParams : public common::BaseJSParams, public wall_clock_range_t {
 public:
  std::vector<std::string> srcFileNames;
  std::string dstFileName;

 protected:
  bool ReadParameters(Napi::Object& parameters) override;
};

// What both report: { totalAppended }.
class TaskVRXFileAdding : public common::Task {
 public:
  using common::Task::Task;
  void GetCallbackParamInfo(Napi::Object& result) override;

 protected:
  // Keeps a byte count as the result, or passes a failure on.
  int Result(long bytes);

 private:
  long _totalAppended = 0;
};

class TaskVRXFileAppend : public TaskWithParams<TaskVRXFileAppendParams, TaskVRXFileAdding> {
 public:
  TaskVRXFileAppend(Napi::Env& env, long id, const TaskVRXFileAppendParams& params);
  int SignalWork() override;
};

class TaskVRXFileCopyContent : public TaskWithParams<TaskVRXFileCopyContentParams, TaskVRXFileAdding> {
 public:
  TaskVRXFileCopyContent(Napi::Env& env, long id, const TaskVRXFileCopyContentParams& params);
  int SignalWork() override;
};

}  // namespace vrxutils
}  // namespace nodejs
}  // namespace vrex
