// TaskVRXFileClear, TaskVRXFileClose and TaskVRXFileRecover under their exclusive locks.
#include "vrxutils/task_vrx_file_exclusive.h"

#include "abstraction/logging.h"
#include "vrxutils/hex_text.h"
#include "vrxutils/vrx_file_locks.h"

namespace vrex {
namespace nodejs {
namespace vrxutils {

using mediaformats::VREXFileUtils;

TaskVRXFileExclusive::TaskVRXFileExclusive(Napi::Env& env, long id, const char* name, const char* owner,
                                           const std::string& fileName,
                                           const common::async_callback_info_t& completion)
    : Task(env, id, name, "Write", false, -1, completion), _owner(owner), _fileName(fileName) {}

int TaskVRXFileExclusive::SignalWork() {
  VrxFileLocks locks(_owner);
  std::string failed;
  const int err = locks.Lock({{_fileName, false, false}}, false, failed);
  if (err < 0) {
    LOGE << "<-# " << _owner << "::SignalWork FAILED! Could not lock " << _fileName << " err=" << err;
    return err;
  }
  return Work();
}

TaskVRXFileClear::TaskVRXFileClear(Napi::Env& env, long id, const std::string& fileName,
                                   bool zeroFill, const common::async_callback_info_t& completion)
    : TaskVRXFileExclusive(env, id, "vrxFileClear", "TaskVRXFileClear", fileName, completion), _zeroFill(zeroFill) {}

int TaskVRXFileClear::Work() {
  const int res = VREXFileUtils::VRXFileClear(_fileName, _zeroFill);
  LOGI << "#-> TaskVRXFileClear::SignalWork " << _fileName << " zeroFill=" << _zeroFill << " res=" << res;
  return res;
}

TaskVRXFileClose::TaskVRXFileClose(Napi::Env& env, long id, const std::string& fileName,
                                   const common::async_callback_info_t& completion)
    : TaskVRXFileExclusive(env, id, "vrxFileClose", "TaskVRXFileClose", fileName, completion) {}

int TaskVRXFileClose::Work() { return VREXFileUtils::VRXFileClose(_fileName); }

TaskVRXFileRecover::TaskVRXFileRecover(Napi::Env& env, long id, const std::string& fileName,
                                       const options_t& options,
                                       const common::async_callback_info_t& completion)
    : TaskVRXFileExclusive(env, id, "vrxFileRecover", "TaskVRXFileRecover", fileName, completion), _options(options) {}

int TaskVRXFileRecover::Work() {
  if (_options.checkOnly) return VREXFileUtils::VRXFileCheckPartitions(_fileName);
  return VREXFileUtils::VRXFileRecover(_fileName, &_info, _options.salvage);
}

void TaskVRXFileRecover::GetCallbackParamInfo(Napi::Object& result) {
  if (_options.checkOnly) return;
  Napi::Env env = result.Env();
  const auto number = [&env](long value) { return Napi::Number::New(env, static_cast<double>(value)); };
  Napi::Object bounds = Napi::Object::New(env);
  bounds.Set("offset", number(_info.bounds._offset));
  bounds.Set("length", number(_info.bounds._size));
  Napi::Object info = Napi::Object::New(env);
  info.Set("bounds", bounds);
  info.Set("fixedMetadata", Napi::String::New(env, Hex(_info.fixedMetadata, sizeof _info.fixedMetadata)));
  info.Set("startMillis", number(_info.startMillis));
  info.Set("endMillis", number(_info.endMillis));
  result.Set("lastPartitionInfo", info);
}

}  // namespace vrxutils
}  // namespace nodejs
}  // namespace vrex
