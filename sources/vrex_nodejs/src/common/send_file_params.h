// SendFileParams: the parameter object of sendFile, and the base of processMedia's.
//
//   { srcFileName | srcFileNames: [...],            the source (sendFile takes exactly one)
//     dstFileName | dstTcpFd | dstCallback | dstWrtcId + dstChannelId,   exactly one destination
//     offset = 0, length = -1 (to the end), paused = false, sendFileSize = false,
//     networkDestination, startCallback, progressCallback }
//
// A property of the wrong type counts as absent, and so do an empty dstFileName and a
// negative dstTcpFd. Read on the main thread, during the call that gives the object.
#pragma once

#include <napi.h>

#include <string>
#include <vector>

#include "common/base_js_params.h"

namespace vrex {
namespace nodejs {
namespace common {

class SendFileParams : public BaseJSParams {
 public:
  std::vector<std::string> srcFileNames;
  long dstWrtcId = -1;
  long dstChannelId = -1;
  std::string dstFileName;
  int dstTcpFd = -1;
  async_callback_info_t dstCallback;
  long offset = 0;
  long length = -1;
  bool paused = false;
  async_callback_info_t startCallback;
  bool hasNetworkDestination = false;
  bool sendFileSize = false;
  async_callback_info_t progressCallback;

  // "SendFileParams:  offset=... srcFileNames[0]=..." for the log.
  std::string str() const;

 protected:
  // False without a source, with one of dstWrtcId/dstChannelId alone, or with a count of
  // destinations other than one; each logs why.
  bool ReadParameters(Napi::Object& parameters) override;
};

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
