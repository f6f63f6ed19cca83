// The one rate conversion of the media layers, and the timing text of logs.
#include "media/timestamp.h"

#include <cstdint>
#include <cstdio>
#include <ctime>

namespace vrex {
namespace media {

int64_t rescale(int64_t value, uint32_t fromRate, uint32_t toRate) {
  if (value < 0 || fromRate == 0) return -1;
  if (fromRate == toRate) return value;
  const unsigned __int128 scaled =
      ((fromRate >> 1) + static_cast<unsigned __int128>(value) * toRate) / fromRate;
  return scaled > static_cast<unsigned __int128>(INT64_MAX) ? -1 : static_cast<int64_t>(scaled);
}

std::string FormatWallClockMillis(long millis) {
  const time_t seconds = static_cast<time_t>(millis / 1000);
  tm utc;
  if (millis < 0 || gmtime_r(&seconds, &utc) == nullptr) return std::to_string(millis);
  char text[48];
  snprintf(text, sizeof(text), "%04d-%02d-%02d %02d:%02d:%02d.%03ld", utc.tm_year + 1900,
           utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec, millis % 1000);
  return text;
}

std::string dts_cts_t::ToString() const {
  char text[160];
  if (dts < 0) {
    snprintf(text, sizeof(text), "CR: %6u; DTS: %12ld/%-12ld; CTS: %4u/%-4u; PTS: %12ld/%-12ld",
             0u, static_cast<long>(dts), -1L, cts, 0u, -1L, -1L);
  } else {
    // PTS past int64 is no time.
    const long pts =
        dts > INT64_MAX - static_cast<int64_t>(cts) ? -1 : static_cast<long>(dts) + cts;
    snprintf(text, sizeof(text), "CR: %6u; DTS: %12ld/%-12ld; CTS: %4u/%-4u; PTS: %12ld/%-12ld",
             clockRate, static_cast<long>(dts), static_cast<long>(rescale(dts, clockRate, 1000)),
             cts, static_cast<unsigned>(rescale(cts, clockRate, 1000)), pts,
             static_cast<long>(rescale(pts, clockRate, 1000)));
  }
  return text;
}

}  // namespace media
}  // namespace vrex
