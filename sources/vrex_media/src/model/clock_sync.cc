// clock_sync_t: stream clock to wall clock.
#include "media/clock_sync.h"

#include <cstdint>
#include <cstdio>

namespace vrex {
namespace media {

long clock_sync_t::ComputeWallClock(const timestamp_t& ts, unsigned outRate) const {
  if (!IsValid() || ts.clockRate == 0 || ts.value < 0 || outRate == 0) return -1;
  // Times read from files can be anything: a sum out of range is no time.
  const __int128 sum = static_cast<__int128>(rescale(ts.value, ts.clockRate, outRate)) +
                       rescale(wc.value, wc.clockRate, outRate) -
                       rescale(sc.value, sc.clockRate, outRate);
  if (sum < INT64_MIN || sum > INT64_MAX) return -1;
  return static_cast<long>(sum);
}

long clock_sync_t::ComputeWallClock(long value, unsigned rate, unsigned outRate) const {
  return ComputeWallClock(timestamp_t(value, rate), outRate);
}

std::string clock_sync_t::ToString() const {
  char text[160];
  snprintf(text, sizeof(text), "SC: %ld@%u(%ldms) -> WC: %ld@%u(%ldms)",
           static_cast<long>(sc.value), sc.clockRate, static_cast<long>(sc.Millis()),
           static_cast<long>(wc.value), wc.clockRate, static_cast<long>(wc.Millis()));
  return text;
}

}  // namespace media
}  // namespace vrex
