// The trace switches read from the environment at start-up. Written once on the main
// thread before any worker exists, read-only afterwards; non-zero turns on extra log lines.
#pragma once

#include <cstdint>

namespace vrex {
namespace nodejs {
namespace common {

struct process_env_t {
  int32_t traceTasks;          // ADDON_TRACE_TASKS
  int32_t traceExportDirect;   // ADDON_TRACE_EXPORT_DIRECT
  int32_t traceTranscoder;     // ADDON_TRACE_TRANSCODER
  int32_t traceVrxAppend;      // ADDON_TRACE_VRX_APPEND
  int32_t traceJpegResize;     // ADDON_TRACE_JPEG_RESIZE_TASKS
  int32_t traceGifExtract;     // ADDON_TRACE_GIF_EXTRACT_TASKS
  int32_t traceJpegExtract;    // ADDON_TRACE_JPEG_EXTRACT_TASKS
  int32_t traceStatvfs;        // ADDON_TRACE_STATVFS
  int32_t traceProcessMedia;   // ADDON_TRACE_PROCESS_MEDIA
};

extern process_env_t process_env;

// Reads the nine variables with getenv and strtol (base 10); unset leaves 0.
void ReadProcessEnv();

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
