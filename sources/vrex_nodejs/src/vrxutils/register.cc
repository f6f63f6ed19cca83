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
  common::RegisterFunction(exports, "statvfs", callback_statvfs);
  common::RegisterFunction(exports, "nop", callback_nop);
}

}  // namespace vrxutils
}  // namespace nodejs
}  // namespace vrex
