// JavaScript objects of the media model, as the listing functions return them. Main thread.
//
// A JSMediaObjects makes the property names once, so that a listing of many frames does not
// make them again for every object; it is valid within the handle scope it was made in.
#pragma once

#include <napi.h>

#include <initializer_list>
#include <utility>

#include "media/clock_sync.h"
#include "media/frame.h"
#include "media/timestamp.h"
#include "mediaformats/vrx/partition.h"

namespace vrex {
namespace nodejs {
namespace vrxutils {

class JSMediaObjects {
 public:
  explicit JSMediaObjects(Napi::Env env);

  // { value, clockRate }
  Napi::Object Timestamp(const media::timestamp_t& ts) const;
  // { dts: timestamp, cts: timestamp, clockRate }
  Napi::Object DtsCts(const media::dts_cts_t& ts) const;
  // { streamClock: timestamp, wallClock: timestamp }
  Napi::Object ClockSync(const media::clock_sync_t& sync) const;
  // { trackId, isKeyFrame, clockSync, timestamp, offset, length }; a frame without a clock
  // sync shows a cleared one.
  Napi::Object Frame(const media::frame_t& frame) const;
  // { offset, length }
  Napi::Object Bounds(long offset, long length) const;
  // { offset, wallClockMillis }
  Napi::Object SeekPoint(const mediaformats::seek_point_t& point) const;
  // { fullBounds, fixedMetadata (hex), dynamicMetadataBounds, contentsBounds,
  //   lastVideoWallClockMillis, seekPoints }
  Napi::Object Partition(const mediaformats::partition_t& partition) const;
  // { wallClockStart, wallClockEnd }
  Napi::Object Fragment(const mediaformats::fragment_t& fragment) const;

 private:
  Napi::Number Number(int64_t value) const;
  Napi::Object Pairs(napi_value key1, napi_value value1, napi_value key2, napi_value value2) const;
  // A new object with these properties (at most 8), in this order.
  Napi::Object Properties(std::initializer_list<std::pair<napi_value, napi_value>> pairs) const;

  Napi::Env _env;
  // Property names.
  Napi::String _value, _clockRate, _dts, _cts, _streamClock, _wallClock, _trackId, _isKeyFrame,
      _clockSync, _timestamp, _offset, _length, _wallClockMillis, _fullBounds, _fixedMetadata,
      _dynamicMetadataBounds, _contentsBounds, _lastVideoWallClockMillis, _seekPoints,
      _wallClockStart, _wallClockEnd;
};

}  // namespace vrxutils
}  // namespace nodejs
}  // namespace vrex
