// TaskVRXFileListFragments and its parameters.
#include "vrxutils/task_vrx_file_list_fragments.h"

#include "abstraction/logging.h"
#include "common/clock.h"
#include "common/property_reader.h"
#include "vrxutils/js_media_objects.h"
#include "vrxutils/vrx_read_session.h"

namespace vrex {
namespace nodejs {
namespace vrxutils {

bool TaskVRXFileListFragmentsParams::ReadParameters(Napi::Object& parameters) {
  common::PropertyReader reader(parameters);
  reader.ReadInteger("wallClockStart", &wallClockStart);
  reader.ReadInteger("wallClockEnd", &wallClockEnd);
  return reader.ReadString("fileName", &fileName) != nullptr;
}

TaskVRXFileListFragments::TaskVRXFileListFragments(Napi::Env& env, long id,
                                                   const TaskVRXFileListFragmentsParams& params)
    : Task(env, id, "vrxFileListFragments", "Read", false, -1, params.CallbackInfo()),
      _params(params) {}

int TaskVRXFileListFragments::SignalWork() {
  VrxReadSession session("TaskVRXFileListFragments", false);
  int err = session.Open(_params.fileName, -1);
  if (err < 0) return err;
  const int64_t start = common::GetTimestampMillis();
  err = session.reader()->ListFragments(_params.wallClockStart, _params.wallClockEnd, _fragments);
  LOGI << "    TaskVRXFileListFragments::SignalWork ListFragments " << _params.wallClockStart << " - "
       << _params.wallClockEnd << " in " << common::GetTimestampMillis() - start << " ms "
       << _params.fileName << " fragments: " << _fragments.size() << " err=" << err;
  if (err < 0) {
    _fragments.clear();
    return err;
  }
  return 0;
}

void TaskVRXFileListFragments::GetCallbackParamInfo(Napi::Object& result) {
  Napi::Env env = result.Env();
  const JSMediaObjects objects(env);
  Napi::Array fragments = Napi::Array::New(env, _fragments.size());
  for (size_t i = 0; i < _fragments.size(); ++i) {
    fragments.Set(static_cast<uint32_t>(i), objects.Fragment(_fragments[i]));
  }
  result.Set("fragments", fragments);
}

}  // namespace vrxutils
}  // namespace nodejs
}  // namespace vrex
