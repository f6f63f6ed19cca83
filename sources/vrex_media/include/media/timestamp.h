// Time values: integers in a stated clock rate. A value below zero means "no time", a rate of
// 0 "no clock".
#pragma once

#include <cstdint>
#include <string>

namespace vrex {
namespace media {

// Converts `value` from `fromRate` to `toRate`, rounding half up:
// ((fromRate >> 1) + value * toRate) / fromRate, unsigned. The product is taken in 128 bits so
// that nanosecond clocks of today's wall clock do not wrap. A negative value, a zero
// `fromRate` or a result past int64 gives -1; equal rates give `value`.
int64_t rescale(int64_t value, uint32_t fromRate, uint32_t toRate);

// A wall clock in ms since the epoch as UTC text, "2026-11-22 10:15:30.123"; a negative value
// as its number. For logs and listings.
std::string FormatWallClockMillis(long millis);

struct timestamp_t {
  int64_t value = -1;      // ticks
  uint32_t clockRate = 0;  // ticks per second

  timestamp_t() = default;
  timestamp_t(int64_t v, uint32_t rate) : value(v), clockRate(rate) {}
  bool IsValid() const { return value >= 0 && clockRate != 0; }
  // rescale(value, clockRate, 1000): -1 when not valid.
  int64_t Millis() const { return rescale(value, clockRate, 1000); }
};

// A decoding time and its composition offset, both in `clockRate`; PTS is dts + cts.
struct dts_cts_t {
  int64_t dts = -1;
  uint32_t clockRate = 0;
  uint32_t cts = 0;

  dts_cts_t() = default;
  dts_cts_t(int64_t d, uint32_t rate, uint32_t c = 0) : dts(d), clockRate(rate), cts(c) {}
  timestamp_t Dts() const { return timestamp_t(dts, clockRate); }
  // "CR: %6u; DTS: %12ld/%-12ld; CTS: %4u/%-4u; PTS: %12ld/%-12ld": rate, DTS, DTS in ms, CTS,
  // CTS in ms, PTS, PTS in ms. A negative DTS prints rate 0, the DTS, -1, the CTS, 0, -1, -1.
  std::string ToString() const;
};

}  // namespace media
}  // namespace vrex
