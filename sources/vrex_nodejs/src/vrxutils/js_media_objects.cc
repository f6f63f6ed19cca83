// JavaScript objects of timestamps, clock syncs, frames, partitions and fragments.
#include "vrxutils/js_media_objects.h"

#include <initializer_list>
#include <string>
#include <utility>

#include "abstraction/logging.h"
#include "vrxutils/hex_text.h"

namespace vrex {
namespace nodejs {
namespace vrxutils {

JSMediaObjects::JSMediaObjects(Napi::Env env)
    : _env(env),
      _value(Napi::String::New(env, "value")),
      _clockRate(Napi::String::New(env, "clockRate")),
      _dts(Napi::String::New(env, "dts")),
      _cts(Napi::String::New(env, "cts")),
      _streamClock(Napi::String::New(env, "streamClock")),
      _wallClock(Napi::String::New(env, "wallClock")),
      _trackId(Napi::String::New(env, "trackId")),
      _isKeyFrame(Napi::String::New(env, "isKeyFrame")),
      _clockSync(Napi::String::New(env, "clockSync")),
      _timestamp(Napi::String::New(env, "timestamp")),
      _offset(Napi::String::New(env, "offset")),
      _length(Napi::String::New(env, "length")),
      _wallClockMillis(Napi::String::New(env, "wallClockMillis")),
      _fullBounds(Napi::String::New(env, "fullBounds")),
      _fixedMetadata(Napi::String::New(env, "fixedMetadata")),
      _dynamicMetadataBounds(Napi::String::New(env, "dynamicMetadataBounds")),
      _contentsBounds(Napi::String::New(env, "contentsBounds")),
      _lastVideoWallClockMillis(Napi::String::New(env, "lastVideoWallClockMillis")),
      _seekPoints(Napi::String::New(env, "seekPoints")),
      _wallClockStart(Napi::String::New(env, "wallClockStart")),
      _wallClockEnd(Napi::String::New(env, "wallClockEnd")) {}

Napi::Number JSMediaObjects::Number(int64_t value) const {
  return Napi::Number::New(_env, static_cast<double>(value));
}

Napi::Object JSMediaObjects::Pairs(napi_value key1, napi_value value1, napi_value key2,
                                   napi_value value2) const {
  return Properties({{key1, value1}, {key2, value2}});
}

Napi::Object JSMediaObjects::Properties(std::initializer_list<std::pair<napi_value, napi_value>> pairs) const {
  // One call for all properties of a new object: a long listing makes millions of them.
  constexpr size_t kMaxProperties = 8;
  VREX_ASSERT(pairs.size() <= kMaxProperties);
  napi_property_descriptor descriptors[kMaxProperties];
  size_t count = 0;
  for (const auto& pair : pairs) {
    descriptors[count++] = {nullptr, pair.first, nullptr, nullptr, nullptr, pair.second,
                            napi_default_jsproperty, nullptr};
  }
  Napi::Object object = Napi::Object::New(_env);
  napi_define_properties(_env, object, count, descriptors);
  return object;
}

Napi::Object JSMediaObjects::Timestamp(const media::timestamp_t& ts) const {
  return Pairs(_value, Number(ts.value), _clockRate, Number(ts.clockRate));
}

Napi::Object JSMediaObjects::DtsCts(const media::dts_cts_t& ts) const {
  return Properties({{_dts, Timestamp(media::timestamp_t(ts.dts, ts.clockRate))},
                     {_cts, Timestamp(media::timestamp_t(ts.cts, ts.clockRate))},
                     {_clockRate, Number(ts.clockRate)}});
}

Napi::Object JSMediaObjects::ClockSync(const media::clock_sync_t& sync) const {
  return Pairs(_streamClock, Timestamp(sync.sc), _wallClock, Timestamp(sync.wc));
}

Napi::Object JSMediaObjects::Frame(const media::frame_t& frame) const {
  return Properties(
      {{_trackId, Number(frame.trackId)},
       {_isKeyFrame, Napi::Boolean::New(_env, frame.keyFrame)},
       {_clockSync, ClockSync(frame.clockSync != nullptr ? *frame.clockSync : media::clock_sync_t())},
       {_timestamp, DtsCts(frame.dtsCts)},
       {_offset, Number(frame.offset)},
       {_length, Number(frame.size)}});
}

Napi::Object JSMediaObjects::Bounds(long offset, long length) const {
  return Pairs(_offset, Number(offset), _length, Number(length));
}

Napi::Object JSMediaObjects::SeekPoint(const mediaformats::seek_point_t& point) const {
  return Pairs(_offset, Number(point._offset), _wallClockMillis, Number(point._wallClockMillis));
}

Napi::Object JSMediaObjects::Partition(const mediaformats::partition_t& partition) const {
  Napi::Array points = Napi::Array::New(_env, partition._seekPointsCount);
  for (unsigned long i = 0; i < partition._seekPointsCount; ++i) {
    points.Set(static_cast<uint32_t>(i), SeekPoint(partition._pSeekPoints[i]));
  }
  return Properties(
      {{_fullBounds, Bounds(partition._offset, partition._size)},
       {_fixedMetadata,
        Napi::String::New(_env, Hex(partition._fixedMetadata, mediaformats::kFixedMetadataSize))},
       {_dynamicMetadataBounds, Bounds(partition._dynamicMetadata._offset, partition._dynamicMetadata._size)},
       {_contentsBounds, Bounds(partition._contents._offset, partition._contents._size)},
       {_lastVideoWallClockMillis, Number(partition._lastWallClockMillis)},
       {_seekPoints, points}});
}

Napi::Object JSMediaObjects::Fragment(const mediaformats::fragment_t& fragment) const {
  return Pairs(_wallClockStart, Number(fragment.start), _wallClockEnd, Number(fragment.end));
}

}  // namespace vrxutils
}  // namespace nodejs
}  // namespace vrex
