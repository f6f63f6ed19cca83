// ExecutedAppends.
#include "vrxfile/executed_appends.h"

#include <errno.h>
#include <sys/stat.h>

#include "abstraction/logging.h"
#include "mediaformats/errors.h"
#include "mediaformats/vrx/vrex_file_utils.h"

namespace vrex {
namespace mediaformats {
namespace internal {

ExecutedAppends& ExecutedAppends::Instance() {
  static ExecutedAppends* const instance = new ExecutedAppends(VREXFileUtils::kExecutedAppendSeconds);
  return *instance;
}

int ExecutedAppends::Begin(const std::string& src) {
  std::lock_guard<std::mutex> lock(_mutex);
  const bool known = _appended.count(src) != 0;
  if (!known) _appended[src] = time(nullptr);
  Sweep_UNSAFE();
  if (!known) return 0;
  LOGW << "<-# VREXFileUtils::VRXFileAppend FAILED! " << src << " was appended already";
  return VREX_ERROR(ERR_MEDIAFORMATS_DOUBLE_APPEND);
}

void ExecutedAppends::Forget(const std::string& src) {
  std::lock_guard<std::mutex> lock(_mutex);
  _appended.erase(src);
  Sweep_UNSAFE();
}

void ExecutedAppends::Sweep_UNSAFE() {
  const time_t now = time(nullptr);
  for (auto entry = _appended.begin(); entry != _appended.end();) {
    struct stat info;
    const bool gone = stat(entry->first.c_str(), &info) != 0 && errno == ENOENT;
    entry = gone || now - entry->second > _maxAgeSeconds ? _appended.erase(entry) : std::next(entry);
  }
}

}  // namespace internal
}  // namespace mediaformats
}  // namespace vrex
