// A process-wide function called right after each write that the file operations of the
// recording container make (fast copies, appends, skip chains, recover). Crash tests set it in
// a test tool to stop the process at a chosen write; nothing else sets it. Unset, a write pays
// one test of a null pointer.
#pragma once

namespace vrex {
namespace abstraction {
namespace internal {

// `fd` took `length` bytes that end at its current position.
typedef void (*write_hook_t)(int fd, long length);

extern write_hook_t writeHook;

// Set before the file operations run, from the thread that runs them.
inline void SetWriteHook(write_hook_t hook) { writeHook = hook; }

inline void AfterWrite(int fd, long length) {
  if (writeHook != nullptr) writeHook(fd, length);
}

}  // namespace internal
}  // namespace abstraction
}  // namespace vrex
