// The tasks that hold one .vrx file exclusively in both lock layers while they work on it, on
// the "Write" pool:
//   TaskVRXFileClear    vrxFileClear: all of it back to free space, optionally zeroed
//   TaskVRXFileClose    vrxFileClose: this process's cached appender of it dropped
//   TaskVRXFileRecover  vrxFileRecover: repaired after a crash, or only checked
//
// A lock that cannot be had is the result: file_id_t::kFILE_NOT_FOUND for a missing file,
// ms::IPCFileLock::kTIMED_OUT when another process holds it for more than 1,500 ms (or at once
// for a file this user may not write).
#pragma once

#include <napi.h>

#include <string>

#include "common/task.h"
#include "mediaformats/vrx/vrex_file_utils.h"

namespace vrex {
namespace nodejs {
namespace vrxutils {

class TaskVRXFileExclusive : public common::Task {
 public:
  // `name` is the function's, `owner` the class's, for the log.
  TaskVRXFileExclusive(Napi::Env& env, long id, const char* name, const char* owner,
                       const std::string& fileName, const common::async_callback_info_t& completion);
  // Locks, Work(), unlocks.
  int SignalWork() final;

 protected:
  virtual int Work() = 0;
  const char* _owner;
  const std::string _fileName;
};

// Result: no properties.
class TaskVRXFileClear : public TaskVRXFileExclusive {
 public:
  TaskVRXFileClear(Napi::Env& env, long id, const std::string& fileName, bool zeroFill,
                   const common::async_callback_info_t& completion);

 private:
  int Work() override;
  const bool _zeroFill;
};

// Result: no properties.
class TaskVRXFileClose : public TaskVRXFileExclusive {
 public:
  TaskVRXFileClose(Napi::Env& env, long id, const std::string& fileName,
                   const common::async_callback_info_t& completion);

 private:
  int Work() override;
};

// Result: { lastPartitionInfo: { bounds: { offset, length }, fixedMetadata (hex),
// startMillis, endMillis } }; with `checkOnly`, no properties, and the error that recover's
// walk stops with when the file needs recover.
class TaskVRXFileRecover : public TaskVRXFileExclusive {
 public:
  struct options_t {
    bool salvage = false;    // also keep the frames of a torn tail partition
    bool checkOnly = false;  // walk the partitions, change nothing
  };
  TaskVRXFileRecover(Napi::Env& env, long id, const std::string& fileName, const options_t& options,
                     const common::async_callback_info_t& completion);
  void GetCallbackParamInfo(Napi::Object& result) override;

 private:
  int Work() override;
  const options_t _options;
  mediaformats::last_partition_info_t _info;
};

}  // namespace vrxutils
}  // namespace nodejs
}  // namespace vrex
