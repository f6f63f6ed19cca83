// TaskVRXFileInfo: one walk over every frame, counting per medium.
#include "vrxutils/task_vrx_file_info.h"

#include "abstraction/logging.h"
#include "common/clock.h"
#include "media/codec_tags.h"
#include "vrxutils/vrx_read_session.h"

namespace vrex {
namespace nodejs {
namespace vrxutils {

namespace {

Napi::Object GetJSInstant(Napi::Env env, const track_info_t::instant_t& instant) {
  Napi::Object object = Napi::Object::New(env);
  object.Set("streamClock", Napi::Number::New(env, static_cast<double>(instant.streamClock)));
  object.Set("wallClock", Napi::Number::New(env, static_cast<double>(instant.wallClock)));
  return object;
}

}  // namespace

void track_info_t::Add(const media::frame_t& frame) {
  const long streamMillis = static_cast<long>(frame.dtsCts.Dts().Millis());
  long wallMillis = -1;
  if (frame.clockSync != nullptr && frame.clockSync->IsValid()) {
    wallMillis = frame.clockSync->ComputeWallClock(streamMillis, 1000, 1000);
  }
  if (framesCount == 0) startMillis.streamClock = streamMillis;
  if (startMillis.wallClock < 0) startMillis.wallClock = wallMillis;
  endMillis.streamClock = streamMillis;
  if (wallMillis >= 0) endMillis.wallClock = wallMillis;
  ++framesCount;
  if (frame.keyFrame) ++keyFramesCount;
}

void track_info_t::InitJSObject(Napi::Object& object) const {
  Napi::Env env = object.Env();
  object.Set("framesCount", Napi::Number::New(env, static_cast<double>(framesCount)));
  object.Set("keyFramesCount", Napi::Number::New(env, static_cast<double>(keyFramesCount)));
  object.Set("startMillis", GetJSInstant(env, startMillis));
  object.Set("endMillis", GetJSInstant(env, endMillis));
}

TaskVRXFileInfo::TaskVRXFileInfo(Napi::Env& env, long id, const std::string& fileName,
                                 const common::async_callback_info_t& completion)
    : Task(env, id, "vrxFileInfo", "Read", false, -1, completion), _fileName(fileName) {}

int TaskVRXFileInfo::SignalWork() {
  const int64_t start = common::GetTimestampMillis();
  VrxReadSession session("TaskVRXFileInfo", true);
  int err = session.Open(_fileName, 0);
  if (err < 0) return err;
  while (const media::frame_t* frame = session.reader()->ReadFrame(err)) {
    (media::tagKind(frame->tag) == 'A' ? _audio : _video).Add(*frame);
  }
  if (err < 0) {
    LOGE << "<-# TaskVRXFileInfo::SignalWork FAILED! " << _fileName << " err=" << err;
    return err;
  }
  LOGI << "<-# TaskVRXFileInfo::SignalWork OK in " << common::GetTimestampMillis() - start << " ms "
       << _fileName << " audio frames: " << _audio.framesCount << " video frames: " << _video.framesCount;
  return 0;
}

void TaskVRXFileInfo::GetCallbackParamInfo(Napi::Object& result) {
  Napi::Object audio = Napi::Object::New(result.Env());
  _audio.InitJSObject(audio);
  result.Set("audio", audio);
  Napi::Object video = Napi::Object::New(result.Env());
  _video.InitJSObject(video);
  result.Set("video", video);
}

}  // namespace vrxutils
}  // namespace nodejs
}  // namespace vrex
