// process_env: the nine trace switches, in their fixed order.
#include "common/process_env.h"

#include <cstdlib>

namespace vrex {
namespace nodejs {
namespace common {

process_env_t process_env = {};

void ReadProcessEnv() {
  struct switch_t {
    const char* name;
    int32_t* field;
  };
  const switch_t switches[] = {
      {"ADDON_TRACE_TASKS", &process_env.traceTasks},
      {"ADDON_TRACE_EXPORT_DIRECT", &process_env.traceExportDirect},
      {"ADDON_TRACE_TRANSCODER", &process_env.traceTranscoder},
      {"ADDON_TRACE_VRX_APPEND", &process_env.traceVrxAppend},
      {"ADDON_TRACE_JPEG_RESIZE_TASKS", &process_env.traceJpegResize},
      {"ADDON_TRACE_GIF_EXTRACT_TASKS", &process_env.traceGifExtract},
      {"ADDON_TRACE_JPEG_EXTRACT_TASKS", &process_env.traceJpegExtract},
      {"ADDON_TRACE_STATVFS", &process_env.traceStatvfs},
      {"ADDON_TRACE_PROCESS_MEDIA", &process_env.traceProcessMedia},
  };
  for (const switch_t& entry : switches) {
    const char* value = getenv(entry.name);
    if (value != nullptr) *entry.field = static_cast<int32_t>(strtol(value, nullptr, 10));
  }
}

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
