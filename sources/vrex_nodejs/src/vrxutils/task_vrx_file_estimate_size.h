// TaskVRXFileEstimateSize: how many bytes a wall-clock range of one or several .vrx files read
// as one stream takes (vrxFileEstimateSize), or the average size of its key frames, on the
// "Serve" pool, under shared locks of every source held together.
//
// The range runs from the key frame at or before wallClockStart to the key frame at or after
// wallClockEnd; a wallClockEnd below 1 means to the end of the data. The average samples the
// key frames at or before ten points spread over the range.
//
// Result: { estimatedSize }. "NodeJS function parameters are incorrect" (with the reader's
// error behind it, if any) whenever it cannot estimate: no sources, a start beyond the data, a
// range without a byte, a sampled range that is not above 0 ms.
#pragma once

#include <napi.h>

#include <string>
#include <vector>

#include "common/base_js_params.h"
#include "mediaformats/vrx/reader_vrex.h"
#include "vrxutils/task_with_params.h"

namespace vrex {
namespace nodejs {
namespace vrxutils {

// { srcFileNames, wallClockStart, wallClockEnd?, getAvgKFrameSize? }: the names and the start
// required.
class TaskVRXFileEstimateSizeParams : public common::BaseJSParams {
 public:
  std::vector<std::string> srcFileNames;
  long wallClockStart = 0;
  long wallClockEnd = 0;
  bool getAvgKFrameSize = false;

 protected:
  bool ReadParameters(Napi::Object& parameters) override;
};

class TaskVRXFileEstimateSize : public TaskWithParams<TaskVRXFileEstimateSizeParams> {
 public:
  TaskVRXFileEstimateSize(Napi::Env& env, long id, const TaskVRXFileEstimateSizeParams& params);
  int SignalWork() override;
  void GetCallbackParamInfo(Napi::Object& result) override;

 private:
  int EstimateRange(mediaformats::ReaderVREX& reader);
  int EstimateKeyFrameSize(mediaformats::ReaderVREX& reader);

  long _estimatedSize = 0;
};

}  // namespace vrxutils
}  // namespace nodejs
}  // namespace vrex
