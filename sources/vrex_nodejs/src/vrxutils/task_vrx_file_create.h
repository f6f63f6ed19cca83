// TaskVRXFileCreate: makes (or refills) a managed .vrx file of a given size (vrxFileCreate),
// on the "Write" pool, without file locks: the file is new, or is being made new.
//
// Result: no properties. ERR_MEDIAFORMATS_INVALID_FILE_SIZE for a size below 1 MiB or not a
// multiple of 4,096; errno codes.
#pragma once

#include <napi.h>

#include <string>

#include "common/task.h"

namespace vrex {
namespace nodejs {
namespace vrxutils {

class TaskVRXFileCreate : public common::Task {
 public:
  TaskVRXFileCreate(Napi::Env& env, long id, const std::string& fileName, long size,
                    const common::async_callback_info_t& completion);
  int SignalWork() override;

 private:
  const std::string _fileName;
  const long _size;
};

}  // namespace vrxutils
}  // namespace nodejs
}  // namespace vrex
