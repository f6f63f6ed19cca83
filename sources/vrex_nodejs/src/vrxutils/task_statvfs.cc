// TaskStatvfs.
#include "vrxutils/task_statvfs.h"

#include <cerrno>

#include "abstraction/logging.h"
#include "common/clock.h"
#include "common/process_env.h"

namespace vrex {
namespace nodejs {
namespace vrxutils {

TaskStatvfs::TaskStatvfs(Napi::Env& env, long id, const std::string& path,
                         const common::async_callback_info_t& completion)
    : Task(env, id, "statvfs", "Misc", false, -1, completion), _path(path) {}

int TaskStatvfs::SignalWork() {
  const int64_t start = common::GetTimestampMillis();
  const int res = statvfs(_path.c_str(), &_stat);
  const int error = res == 0 ? 0 : errno;
  if (common::process_env.traceStatvfs) {
    LOGI << "#-> TaskStatvfs::SignalWork path=" << _path << " errno=" << error << " res=" << res
         << " time=" << common::GetTimestampMillis() - start << " ms "
         << static_cast<uint64_t>(_stat.f_frsize) * _stat.f_bfree << " bytes free";
  }
  if (res != 0) return VREX_ERROR(vrex::errors::SystemError(error));
  return 0;
}

void TaskStatvfs::GetCallbackParamInfo(Napi::Object& result) {
  Napi::Env env = result.Env();
  const auto number = [&env](uint64_t value) { return Napi::Number::New(env, static_cast<double>(value)); };
  result.Set("f_bsize", number(_stat.f_bsize));
  result.Set("f_frsize", number(_stat.f_frsize));
  result.Set("f_blocks", number(_stat.f_blocks));
  result.Set("f_bfree", number(_stat.f_bfree));
  result.Set("f_bavail", number(_stat.f_bavail));
  result.Set("f_files", number(_stat.f_files));
  result.Set("f_ffree", number(_stat.f_ffree));
  result.Set("f_favail", number(_stat.f_favail));
  result.Set("f_fsid", number(_stat.f_fsid));
  result.Set("f_flag", number(_stat.f_flag));
  result.Set("f_namemax", number(_stat.f_namemax));
  result.Set("bytesFree", number(static_cast<uint64_t>(_stat.f_frsize) * _stat.f_bfree));
}

}  // namespace vrxutils
}  // namespace nodejs
}  // namespace vrex
