// Clocks and the thread name used by the task machinery.
#pragma once

#include <cstdint>

namespace vrex {
namespace nodejs {
namespace common {

// Wall clock, microseconds since the epoch.
int64_t GetTimestampMicros();
// Wall clock, milliseconds since the epoch.
inline int64_t GetTimestampMillis() { return GetTimestampMicros() / 1000; }
// CPU time consumed by the calling thread, in microseconds.
int64_t GetThreadCpuMicros();
// Names the calling thread (truncated to the 15 characters Linux keeps).
void SetThreadSelfName(const char* name);

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
