// track_timestamps_info_t.
#include "vidora/track_timestamps.h"

namespace vrex {
namespace nodejs {
namespace vidora {

namespace {

Napi::Object PointObject(Napi::Env env, const track_timestamps_info_t::point_t& point) {
  Napi::Object object = Napi::Object::New(env);
  object.Set("dts", Napi::Number::New(env, static_cast<double>(point.dts)));
  object.Set("cts", Napi::Number::New(env, point.cts));
  object.Set("clockRate", Napi::Number::New(env, point.clockRate));
  object.Set("wallClockMillis", Napi::Number::New(env, static_cast<double>(point.wallClockMillis)));
  return object;
}

}  // namespace

void track_timestamps_info_t::Add(const media::dts_cts_t& ts, long wallClock) {
  const point_t point{ts.dts, ts.clockRate, ts.cts, wallClock};
  if (!seen) start = point;
  end = point;
  seen = true;
}

Napi::Object track_timestamps_info_t::ToJSObject(Napi::Env env) const {
  Napi::Object object = Napi::Object::New(env);
  object.Set("start", PointObject(env, start));
  object.Set("end", PointObject(env, end));
  return object;
}

}  // namespace vidora
}  // namespace nodejs
}  // namespace vrex
