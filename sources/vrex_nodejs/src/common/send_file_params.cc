// SendFileParams::ReadParameters.
#include "common/send_file_params.h"

#include <sstream>

#include "abstraction/logging.h"
#include "common/property_reader.h"

namespace vrex {
namespace nodejs {
namespace common {

bool SendFileParams::ReadParameters(Napi::Object& parameters) {
  PropertyReader reader(parameters);
  reader.ReadInteger("offset", &offset);
  reader.ReadInteger("length", &length);
  reader.ReadBoolean("paused", &paused);
  reader.ReadBoolean("sendFileSize", &sendFileSize);
  reader.ReadFunction("startCallback", receiver, &startCallback);
  const bool hasDstCallback = reader.ReadFunction("dstCallback", receiver, &dstCallback) != nullptr;
  reader.ReadFunction("progressCallback", receiver, &progressCallback);
  std::string single;
  if (reader.ReadString("srcFileName", &single) != nullptr) srcFileNames.push_back(single);
  reader.ReadStrings("srcFileNames", &srcFileNames);
  if (srcFileNames.empty()) {
    LOGE << "SendFileParams::ReadParameters No source file name provided";
    return false;
  }
  const bool hasWrtcId = reader.ReadInteger("dstWrtcId", &dstWrtcId) != nullptr;
  const bool hasChannelId = reader.ReadInteger("dstChannelId", &dstChannelId) != nullptr;
  if (hasWrtcId != hasChannelId) {
    LOGE << "SendFileParams::ReadParameters pDstWrtcId and pDstChannelId should be both present or both absent";
    return false;
  }
  reader.ReadString("dstFileName", &dstFileName);
  if (reader.ReadInteger("dstTcpFd", &dstTcpFd) == nullptr || dstTcpFd < 0) dstTcpFd = -1;
  const bool hasNetwork = reader.ReadBoolean("networkDestination", &hasNetworkDestination) != nullptr;
  const int destinations = (hasWrtcId ? 1 : 0) + (hasDstCallback ? 1 : 0) +
                           (dstFileName.empty() ? 0 : 1) + (dstTcpFd >= 0 ? 1 : 0);
  if (destinations != 1) {
    LOGE << "SendFileParams::ReadParameters Only one of dstWrtcId, dstFileName, dstTcpFd or dstCallback should be present";
    return false;
  }
  if (hasWrtcId || dstTcpFd >= 0) {
    hasNetworkDestination = true;
  } else if (!hasNetwork) {
    hasNetworkDestination = false;
  }
  return true;
}

std::string SendFileParams::str() const {
  std::ostringstream out;
  out << "SendFileParams: "
      << " offset=" << offset << " length=" << length << " paused=" << paused
      << " sendFileSize=" << sendFileSize << " dstFileName=" << dstFileName
      << " dstTcpFd=" << dstTcpFd << " hasNetworkDestination=" << hasNetworkDestination
      << " srcFileNames=" << srcFileNames.size();
  for (size_t i = 0; i < srcFileNames.size(); ++i) {
    out << " srcFileNames[" << i << "]=" << srcFileNames[i];
  }
  return out.str();
}

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
