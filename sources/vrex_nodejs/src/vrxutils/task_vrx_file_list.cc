// TaskVRXFileList: the frame walk and the partition walk.
#include "vrxutils/task_vrx_file_list.h"

#include "abstraction/logging.h"
#include "common/clock.h"
#include "errors/errors.h"
#include "nodejs/errors.h"
#include "vrxutils/js_media_objects.h"
#include "vrxutils/vrx_read_session.h"

namespace vrex {
namespace nodejs {
namespace vrxutils {

TaskVRXFileList::TaskVRXFileList(Napi::Env& env, long id, const std::string& fileName, int kind,
                                 const common::async_callback_info_t& completion)
    : Task(env, id, kind == KIND_PARTITIONS ? "vrxFileListPartitions" : "vrxFileListFrames", "Read",
           false, -1, completion),
      _fileName(fileName),
      _kind(kind) {}

int TaskVRXFileList::SignalWork() {
  const int64_t start = common::GetTimestampMillis();
  VrxReadSession session("TaskVRXFileList", false);
  int err = session.Open(_fileName, -1);
  if (err >= 0) err = DoVrxFileList(session);
  if (err < 0) {
    _frames.clear();
    _partitions.clear();
    LOGE << "<-# TaskVRXFileList::SignalWork FAILED! " << _fileName << " kind=" << _kind << " err=" << err;
    return err;
  }
  if (log()) {
    LOGI << "<-# TaskVRXFileList::SignalWork OK in " << common::GetTimestampMillis() - start << " ms "
         << _fileName << " frames: " << _frames.size() << " partitions: " << _partitions.size();
  }
  return 0;
}

int TaskVRXFileList::DoVrxFileList(VrxReadSession& session) {
  switch (_kind) {
    case KIND_FRAMES:
      return DoListFrames(session);
    case KIND_PARTITIONS:
      return DoListPartitions(session);
    default:
      return VREX_ERROR(webrtcnodejs::ERR_NODEJS_INVALID_STATE);
  }
}

int TaskVRXFileList::DoListFrames(VrxReadSession& session) {
  int err = 0;
  while (const media::frame_t* frame = session.reader()->ReadFrame(err)) {
    _frames.push_back({*frame, frame->clockSync != nullptr ? *frame->clockSync : media::clock_sync_t()});
    media::frame_t& stored = _frames.back().frame;
    stored.pData = nullptr;
    stored.pDataSource = nullptr;
    stored.pCodecConfig = nullptr;
    stored.codecConfigSize = 0;
    stored.clockSync = nullptr;  // points at the copy once the vector stops moving
  }
  return err;
}

int TaskVRXFileList::DoListPartitions(VrxReadSession& session) {
  int err = 0;
  while (const mediaformats::partition_t* partition =
             session.reader()->ReadPartition(mediaformats::PARTITION_LAST_TIMESTAMP_VIDEO_AND_IMAGES, err)) {
    _partitions.push_back(*partition);
  }
  return err;
}

void TaskVRXFileList::GetCallbackParamInfo(Napi::Object& result) {
  Napi::Env env = result.Env();
  const JSMediaObjects objects(env);
  if (_kind == KIND_PARTITIONS) {
    Napi::Array partitions = Napi::Array::New(env, _partitions.size());
    for (size_t i = 0; i < _partitions.size(); ++i) {
      partitions.Set(static_cast<uint32_t>(i), objects.Partition(_partitions[i]));
    }
    result.Set("partitions", partitions);
    return;
  }
  Napi::Array frames = Napi::Array::New(env, _frames.size());
  for (size_t i = 0; i < _frames.size(); ++i) {
    // A scope per frame: the handles of a long listing do not pile up.
    Napi::HandleScope scope(env);
    listed_frame_t& listed = _frames[i];
    listed.frame.clockSync = &listed.clockSync;
    frames.Set(static_cast<uint32_t>(i), objects.Frame(listed.frame));
  }
  result.Set("frames", frames);
}

}  // namespace vrxutils
}  // namespace nodejs
}  // namespace vrex
