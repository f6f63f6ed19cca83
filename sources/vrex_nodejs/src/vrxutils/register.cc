// Registration of the VRX file utilities functions.
#include "common/register_function.h"
#include "registrars.h"
#include "vrxutils/callbacks.h"
#include "vrxutils/callbacks_listing.h"

namespace vrex {
namespace nodejs {
namespace vrxutils {

void RegisterCallbacks(Napi::Object& exports) {
  common::RegisterFunction(exports, "vrxFileListFrames", callback_vrxFileListFrames);
  common::RegisterFunction(exports, "vrxFileListPartitions", callback_vrxFileListPartitions);
  common::RegisterFunction(exports, "vrxFileListFragments", callback_vrxFileListFragments);
  common::RegisterFunction(exports, "vrxFileInfo", callback_vrxFileInfo);
  common::RegisterFunction(exports, "vrxFileEstimateSize", callback_vrxFileEstimateSize);
  common::RegisterFunction(exports, "vrxFileCreate", callback_vrxFileCreate);
  common::RegisterFunction(exports, "vrxFileClear", callback_vrxFileClear);
  common::RegisterFunction(exports, "vrxFileAppend", callback_vrxFileAppend);
  common::RegisterFunction(exports, "vrxFileCopyContent", callback_vrxFileCopyContent);
  common::RegisterFunction(exports, "vrxFileDeleteContent", callback_vrxFileDeleteContent);
  common::RegisterFunction(exports, "vrxFileClose", callback_vrxFileClose);
  common::RegisterFunction(exports, "vrxFileRecover", callback_vrxFileRecover);
  common::RegisterFunction(exports, "statvfs", callback_statvfs);
  common::RegisterFunction(exports, "nop", callback_nop);
}

}  // namespace vrxutils
}  // namespace nodejs
}  // namespace vrex
