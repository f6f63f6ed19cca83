// TaskStatvfs: statvfs(2) of a path, for JavaScript's disk-space polling.
//
// Result: f_bsize, f_frsize, f_blocks, f_bfree, f_bavail, f_files, f_ffree, f_favail,
// f_fsid, f_flag, f_namemax, and bytesFree = f_frsize * f_bfree. A failure is the errno.
#pragma once

#include <sys/statvfs.h>

#include <string>

#include "common/task.h"

namespace vrex {
namespace nodejs {
namespace vrxutils {

class TaskStatvfs : public common::Task {
 public:
  TaskStatvfs(Napi::Env& env, long id, const std::string& path,
              const common::async_callback_info_t& completion);
  int SignalWork() override;
  void GetCallbackParamInfo(Napi::Object& result) override;

 private:
  const std::string _path;
  struct statvfs _stat = {};
};

}  // namespace vrxutils
}  // namespace nodejs
}  // namespace vrex
