// JavaScript objects of the media model, as the listing functions return them. Main thread.
#pragma once

#include <napi.h>

#include "media/clock_sync.h"
#include "media/frame.h"
#include "media/timestamp.h"
#include "mediaformats/vrx/partition.h"

namespace vrex {
namespace nodejs {
namespace vrxutils {

// { value, clockRate }
Napi::Object GetJSTimestamp(Napi::Env env, const media::timestamp_t& ts);
// { dts: timestamp, cts: timestamp, clockRate }
Napi::Object GetJSDtsCts(Napi::Env env, const media::dts_cts_t& ts);
// { streamClock: timestamp, wallClock: timestamp }
Napi::Object GetJSClockSync(Napi::Env env, const media::clock_sync_t& sync);
// { trackId, isKeyFrame, clockSync, timestamp, offset, length }; a frame without a clock sync
// shows a cleared one.
Napi::Object GetJSFrame(Napi::Env env, const media::frame_t& frame);
// { offset, length }
Napi::Object GetJSBounds(Napi::Env env, long offset, long length);
// { offset, wallClockMillis }
Napi::Object GetJSSeekPoint(Napi::Env env, const mediaformats::seek_point_t& point);
// { fullBounds, fixedMetadata (hex), dynamicMetadataBounds, contentsBounds,
//   lastVideoWallClockMillis, seekPoints }
Napi::Object GetJSPartition(Napi::Env env, const mediaformats::partition_t& partition);
// { wallClockStart, wallClockEnd }
Napi::Object GetJSFragment(Napi::Env env, const mediaformats::fragment_t& fragment);

}  // namespace vrxutils
}  // namespace nodejs
}  // namespace vrex
