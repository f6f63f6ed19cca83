// TaskVRXFileInfo: per-medium totals of a .vrx file (vrxFileInfo), on the "Read" pool.
//
// Result: { audio: track, video: track }, each track { framesCount, keyFramesCount,
// startMillis: { streamClock, wallClock }, endMillis: { streamClock, wallClock } }; clocks in
// ms, -1 until known.
#pragma once

#include <napi.h>

#include <string>

#include "common/task.h"
#include "media/frame.h"

namespace vrex {
namespace nodejs {
namespace vrxutils {

struct track_info_t {
  struct instant_t {
    long streamClock = -1;
    long wallClock = -1;
  };
  long framesCount = 0;
  long keyFramesCount = 0;
  instant_t startMillis;
  instant_t endMillis;

  // Counts `frame`. The first frame gives the start's stream clock, the first one with a
  // valid clock sync the start's wall clock; every frame moves the end.
  void Add(const media::frame_t& frame);
  void InitJSObject(Napi::Object& object) const;
};

class TaskVRXFileInfo : public common::Task {
 public:
  TaskVRXFileInfo(Napi::Env& env, long id, const std::string& fileName,
                  const common::async_callback_info_t& completion);
  int SignalWork() override;
  void GetCallbackParamInfo(Napi::Object& result) override;

 private:
  const std::string _fileName;
  track_info_t _audio;
  track_info_t _video;
};

}  // namespace vrxutils
}  // namespace nodejs
}  // namespace vrex
