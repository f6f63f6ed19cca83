// TaskVRXFileAppend and TaskVRXFileCopyContent: their parameters, locks and work.
#include "vrxutils/task_vrx_file_append.h"

#include <cstring>

#include "abstraction/logging.h"
#include "common/clock.h"
#include "common/process_env.h"
#include "common/property_reader.h"
#include "mediaformats/vrx/vrex_file_utils.h"
#include "vrxutils/hex_text.h"
#include "vrxutils/vrx_file_locks.h"

namespace vrex {
namespace nodejs {
namespace vrxutils {

using mediaformats::VREXFileUtils;

bool TaskVRXFileAppendParams::ReadParameters(Napi::Object& parameters) {
  common::PropertyReader reader(parameters);
  reader.ReadBoolean("createNewPartition", &createNewPartition);
  reader.ReadString("dynamicMetadata", &dynamicMetadata);
  std::string fixedText;
  if (reader.ReadString("fixedMetadata", &fixedText) != nullptr) {
    std::vector<unsigned char> fixed;
    if (!Unhex(fixedText, fixed) || fixed.size() != sizeof fixedMetadata) return false;
    memcpy(fixedMetadata, fixed.data(), sizeof fixedMetadata);
  }
  return reader.ReadString("srcFileName", &srcFileName) != nullptr &&
         reader.ReadString("dstFileName", &dstFileName) != nullptr;
}

bool TaskVRXFileCopyContentParams::ReadParameters(Napi::Object& parameters) {
  common::PropertyReader reader(parameters);
  return reader.ReadStrings("srcFileNames", &srcFileNames) != nullptr &&
         reader.ReadString("dstFileName", &dstFileName) != nullptr && ReadRange(reader);
}

void TaskVRXFileAdding::GetCallbackParamInfo(Napi::Object& result) {
  result.Set("totalAppended", Napi::Number::New(result.Env(), static_cast<double>(_totalAppended)));
}

int TaskVRXFileAdding::Result(long bytes) {
  if (bytes < 0) return static_cast<int>(bytes);
  _totalAppended = bytes;
  return 0;
}

TaskVRXFileAppend::TaskVRXFileAppend(Napi::Env& env, long id, const TaskVRXFileAppendParams& params)
    : TaskWithParams(env, id, "vrxFileAppend", "Append", params) {}

int TaskVRXFileAppend::SignalWork() {
  const int64_t start = common::GetTimestampMillis();
  // The source is only read, but no other process may touch it while it is copied.
  VrxFileLocks locks("TaskVRXFileAppend");
  std::string failed;
  int err = locks.Lock({{_params.srcFileName, true, false}, {_params.dstFileName, false, false}}, false, failed);
  if (err < 0) {
    LOGE << "<-# TaskVRXFileAppend::SignalWork FAILED! after " << common::GetTimestampMillis() - start
         << " ms Could not lock src=" << _params.srcFileName << " dst=" << _params.dstFileName
         << " err=" << err;
    return err;
  }
  const int64_t locked = common::GetTimestampMillis();
  const long added = VREXFileUtils::VRXFileAppend(
      _params.srcFileName, _params.dstFileName, _params.fixedMetadata,
      _params.dynamicMetadata.empty() ? nullptr : _params.dynamicMetadata.data(),
      _params.dynamicMetadata.size(), _params.createNewPartition);
  if (common::process_env.traceVrxAppend) {
    LOGI << "<-# TaskVRXFileAppend::SignalWork src=" << _params.srcFileName << " dst="
         << _params.dstFileName << " new=" << _params.createNewPartition << " res=" << added
         << " lock " << locked - start << " ms append " << common::GetTimestampMillis() - locked << " ms";
  }
  return Result(added);
}

TaskVRXFileCopyContent::TaskVRXFileCopyContent(Napi::Env& env, long id,
                                               const TaskVRXFileCopyContentParams& params)
    : TaskWithParams(env, id, "vrxFileCopyContent", "Write", params) {}

int TaskVRXFileCopyContent::SignalWork() {
  std::vector<VrxFileLocks::file_t> files;
  for (const std::string& src : _params.srcFileNames) files.push_back({src, true, true});
  files.push_back({_params.dstFileName, false, false});
  VrxFileLocks locks("TaskVRXFileCopyContent");
  std::string failed;
  int err = locks.Lock(files, true, failed);
  if (err < 0) {
    LOGE << "<-# TaskVRXFileCopyContent::SignalWork FAILED! Could not lock " << failed << " err=" << err;
    return err;
  }
  return Result(VREXFileUtils::VRXFileCopy(_params.srcFileNames, _params.wallClockStart,
                                           _params.wallClockEnd, _params.dstFileName));
}

}  // namespace vrxutils
}  // namespace nodejs
}  // namespace vrex
