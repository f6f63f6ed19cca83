// JavaScript objects of timestamps, clock syncs, frames, partitions and fragments.
#include "vrxutils/js_media_objects.h"

#include <string>

namespace vrex {
namespace nodejs {
namespace vrxutils {

namespace {

Napi::Number Number(Napi::Env env, int64_t value) {
  return Napi::Number::New(env, static_cast<double>(value));
}

std::string hex(const unsigned char* bytes, size_t count) {
  static const char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(count * 2);
  for (size_t i = 0; i < count; ++i) {
    text += kDigits[bytes[i] >> 4];
    text += kDigits[bytes[i] & 0x0f];
  }
  return text;
}

}  // namespace

Napi::Object GetJSTimestamp(Napi::Env env, const media::timestamp_t& ts) {
  Napi::Object object = Napi::Object::New(env);
  object.Set("value", Number(env, ts.value));
  object.Set("clockRate", Number(env, ts.clockRate));
  return object;
}

Napi::Object GetJSDtsCts(Napi::Env env, const media::dts_cts_t& ts) {
  Napi::Object object = Napi::Object::New(env);
  object.Set("dts", GetJSTimestamp(env, media::timestamp_t(ts.dts, ts.clockRate)));
  object.Set("cts", GetJSTimestamp(env, media::timestamp_t(ts.cts, ts.clockRate)));
  object.Set("clockRate", Number(env, ts.clockRate));
  return object;
}

Napi::Object GetJSClockSync(Napi::Env env, const media::clock_sync_t& sync) {
  Napi::Object object = Napi::Object::New(env);
  object.Set("streamClock", GetJSTimestamp(env, sync.sc));
  object.Set("wallClock", GetJSTimestamp(env, sync.wc));
  return object;
}

Napi::Object GetJSFrame(Napi::Env env, const media::frame_t& frame) {
  Napi::Object object = Napi::Object::New(env);
  object.Set("trackId", Number(env, frame.trackId));
  object.Set("isKeyFrame", Napi::Boolean::New(env, frame.keyFrame));
  object.Set("clockSync", GetJSClockSync(env, frame.clockSync != nullptr ? *frame.clockSync
                                                                          : media::clock_sync_t()));
  object.Set("timestamp", GetJSDtsCts(env, frame.dtsCts));
  object.Set("offset", Number(env, frame.offset));
  object.Set("length", Number(env, frame.size));
  return object;
}

Napi::Object GetJSBounds(Napi::Env env, long offset, long length) {
  Napi::Object object = Napi::Object::New(env);
  object.Set("offset", Number(env, offset));
  object.Set("length", Number(env, length));
  return object;
}

Napi::Object GetJSSeekPoint(Napi::Env env, const mediaformats::seek_point_t& point) {
  Napi::Object object = Napi::Object::New(env);
  object.Set("offset", Number(env, point._offset));
  object.Set("wallClockMillis", Number(env, point._wallClockMillis));
  return object;
}

Napi::Object GetJSPartition(Napi::Env env, const mediaformats::partition_t& partition) {
  Napi::Object object = Napi::Object::New(env);
  object.Set("fullBounds", GetJSBounds(env, partition._offset, partition._size));
  object.Set("fixedMetadata", Napi::String::New(env, hex(partition._fixedMetadata,
                                                         mediaformats::kFixedMetadataSize)));
  object.Set("dynamicMetadataBounds",
             GetJSBounds(env, partition._dynamicMetadata._offset, partition._dynamicMetadata._size));
  object.Set("contentsBounds", GetJSBounds(env, partition._contents._offset, partition._contents._size));
  object.Set("lastVideoWallClockMillis", Number(env, partition._lastWallClockMillis));
  Napi::Array points = Napi::Array::New(env, partition._seekPointsCount);
  for (unsigned long i = 0; i < partition._seekPointsCount; ++i) {
    points.Set(static_cast<uint32_t>(i), GetJSSeekPoint(env, partition._pSeekPoints[i]));
  }
  object.Set("seekPoints", points);
  return object;
}

Napi::Object GetJSFragment(Napi::Env env, const mediaformats::fragment_t& fragment) {
  Napi::Object object = Napi::Object::New(env);
  object.Set("wallClockStart", Number(env, fragment.start));
  object.Set("wallClockEnd", Number(env, fragment.end));
  return object;
}

}  // namespace vrxutils
}  // namespace nodejs
}  // namespace vrex
