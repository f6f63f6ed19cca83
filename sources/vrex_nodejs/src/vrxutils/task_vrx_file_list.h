// TaskVRXFileList: every frame (vrxFileListFrames, kind 0) or every partition
// (vrxFileListPartitions, kind 1) of a .vrx file, on the "Read" pool.
//
// Result: { frames: [frame...] } or { partitions: [partition...] } (see js_media_objects.h).
// A read error ends the task with that error alone: partial lists are not delivered.
#pragma once

#include <napi.h>

#include <string>
#include <vector>

#include "common/task.h"
#include "media/clock_sync.h"
#include "media/frame.h"
#include "mediaformats/vrx/partition.h"

namespace vrex {
namespace nodejs {
namespace vrxutils {

class VrxReadSession;

class TaskVRXFileList : public common::Task {
 public:
  enum : int { KIND_FRAMES = 0, KIND_PARTITIONS = 1 };

  TaskVRXFileList(Napi::Env& env, long id, const std::string& fileName, int kind,
                  const common::async_callback_info_t& completion);
  int SignalWork() override;
  void GetCallbackParamInfo(Napi::Object& result) override;

 private:
  // A frame without its data pointers, and the clock sync it pointed at.
  struct listed_frame_t {
    media::frame_t frame;
    media::clock_sync_t clockSync;
  };

  int DoVrxFileList(VrxReadSession& session);
  int DoListFrames(VrxReadSession& session);
  int DoListPartitions(VrxReadSession& session);

  const std::string _fileName;
  const int _kind;
  std::vector<listed_frame_t> _frames;
  std::vector<mediaformats::partition_t> _partitions;
};

}  // namespace vrxutils
}  // namespace nodejs
}  // namespace vrex
