// The first and last timestamps a track was served with, for the operation's result.
#pragma once

#include <napi.h>

#include <cstdint>

#include "media/timestamp.h"

namespace vrex {
namespace nodejs {
namespace vidora {

struct track_timestamps_info_t {
  struct point_t {
    int64_t dts = -1;
    uint32_t clockRate = 0;
    uint32_t cts = 0;
    long wallClockMillis = -1;
  };

  point_t start;
  point_t end;
  bool seen = false;
  // The rewritten timestamp of the present frame (forceFps, speedupFactor) and how many frames
  // were rewritten.
  media::dts_cts_t scratch;
  int64_t frameCounter = 0;

  // Records a served frame: the first sets `start`, every one `end`.
  void Add(const media::dts_cts_t& ts, long wallClock);
  // {start: {dts, cts, clockRate, wallClockMillis}, end: {...}}
  Napi::Object ToJSObject(Napi::Env env) const;
};

}  // namespace vidora
}  // namespace nodejs
}  // namespace vrex
