// OperationProcessMedia's controls from the main thread: the auto pause, pausing the video
// alone, and the video sending style.
#include "abstraction/logging.h"
#include "vidora/operation_process_media.h"

namespace vrex {
namespace nodejs {
namespace vidora {

void OperationProcessMedia::ResumeAutoPause(long ms) {
  // Armed: the first frame served after the resume fixes the point ms of media later.
  _autoPauseWallClock = -ms;
  Resume();
}

int OperationProcessMedia::PauseOnlyVideo(bool pause) {
  if (!_videoResumePending && pause) {
    _pauseOnlyVideo = true;
    LOGI << "    OperationProcessMedia::PauseOnlyVideo actionId=" << ActionId() << " video pausing";
  } else if (_videoResumePending && !pause) {
    _pauseOnlyVideo = false;
    LOGI << "    OperationProcessMedia::PauseOnlyVideo actionId=" << ActionId() << " video resuming";
  }
  return 0;
}

int OperationProcessMedia::ChangeVideoSendingStyle(bool onlyKeyFrames, long everyNthFrame) {
  _onlyKeyFrames = onlyKeyFrames;
  _everyNthFrame = everyNthFrame;
  return 0;
}

}  // namespace vidora
}  // namespace nodejs
}  // namespace vrex
