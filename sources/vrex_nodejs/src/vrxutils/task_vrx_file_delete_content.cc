// TaskVRXFileDeleteContent.
#include "vrxutils/task_vrx_file_delete_content.h"

#include "abstraction/logging.h"
#include "common/clock.h"
#include "mediaformats/vrx/vrex_file_utils.h"
#include "vrxutils/vrx_file_locks.h"

namespace vrex {
namespace nodejs {
namespace vrxutils {

bool TaskVRXFileDeleteContentParams::ReadParameters(Napi::Object& parameters) {
  common::PropertyReader reader(parameters);
  reader.ReadBoolean("fillWithZeros", &fillWithZeros);
  return reader.ReadStrings("fileNames", &fileNames) != nullptr && ReadRange(reader);
}

TaskVRXFileDeleteContent::TaskVRXFileDeleteContent(Napi::Env& env, long id,
                                                   const TaskVRXFileDeleteContentParams& params)
    : TaskWithParams(env, id, "vrxFileDeleteContent", "Write", params) {}

int TaskVRXFileDeleteContent::SignalWork() {
  for (const std::string& file : _params.fileNames) {
    const int64_t start = common::GetTimestampMillis();
    VrxFileLocks locks("TaskVRXFileDeleteContent");
    std::string failed;
    int err = locks.Lock({{file, false, false}}, false, failed);
    if (err < 0) {
      LOGE << "<-# TaskVRXFileDeleteContent::SignalWork FAILED! Could not lock " << file << " err=" << err;
      return err;
    }
    err = mediaformats::VREXFileUtils::VRXFileDeleteContent(file, _params.wallClockStart,
                                                           _params.wallClockEnd, _params.fillWithZeros);
    LOGI << "<-# TaskVRXFileDeleteContent::SignalWork " << file << " [" << _params.wallClockStart
         << ", " << _params.wallClockEnd << "] zero=" << _params.fillWithZeros << " res=" << err
         << " in " << common::GetTimestampMillis() - start << " ms";
    if (err < 0) return err;
  }
  return 0;
}

}  // namespace vrxutils
}  // namespace nodejs
}  // namespace vrex
