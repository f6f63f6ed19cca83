// clock_sync_t: one instant on the stream clock and the wall clock at that instant, which
// places every later frame of the stream on the wall clock.
#pragma once

#include <string>

#include "media/timestamp.h"

namespace vrex {
namespace media {

struct clock_sync_t {
  timestamp_t sc;     // stream clock
  timestamp_t wc;     // wall clock at the same instant
  long offset = -1;   // where the sync node stands in its source; -1 when not from a file

  bool IsValid() const {
    return wc.clockRate != 0 && sc.clockRate != 0 && wc.value >= 0 && sc.value >= 0;
  }
  void Clear() { *this = clock_sync_t(); }

  // rescale(ts) + rescale(wc) - rescale(sc), all to `outRate`; -1 when this object is not
  // valid, `ts` has no time, `outRate` is 0 or the result does not fit int64.
  long ComputeWallClock(const timestamp_t& ts, unsigned outRate) const;
  long ComputeWallClock(long value, unsigned rate, unsigned outRate) const;

  // "SC: %ld@%u(%ldms) -> WC: %ld@%u(%ldms)".
  std::string ToString() const;
};

}  // namespace media
}  // namespace vrex
