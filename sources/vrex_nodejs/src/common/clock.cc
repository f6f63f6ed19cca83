// Clocks and the thread name, over clock_gettime and pthread_setname_np.
#include "common/clock.h"

#include <pthread.h>
#include <time.h>

#include <cstring>

namespace vrex {
namespace nodejs {
namespace common {

namespace {

int64_t ReadMicros(clockid_t clock) {
  timespec now;
  clock_gettime(clock, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
}

}  // namespace

int64_t GetTimestampMicros() { return ReadMicros(CLOCK_REALTIME); }

int64_t GetThreadCpuMicros() { return ReadMicros(CLOCK_THREAD_CPUTIME_ID); }

void SetThreadSelfName(const char* name) {
  char truncated[16];
  strncpy(truncated, name, sizeof(truncated) - 1);
  truncated[sizeof(truncated) - 1] = '\0';
  pthread_setname_np(pthread_self(), truncated);
}

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
