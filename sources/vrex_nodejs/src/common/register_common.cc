// The process's start-up and the registration of the common functions.
#include <cstdlib>

#include "abstraction/errors.h"
#include "avcodec/errors.h"
#include "common/callbacks.h"
#include "common/exit_hooks.h"
#include "common/process_env.h"
#include "common/register_function.h"
#include "media/errors.h"
#include "mediaformats/errors.h"
#include "nodejs/errors.h"

namespace vrex {
namespace nodejs {
namespace common {

void RegisterCallbacks(Napi::Object& exports) {
  // Empty hooks that pull each module's table of error texts into the link.
  vrex::webrtcnodejs::InitializeErrorCodes();
  vrex::abstraction::InitializeErrorCodes();
  vrex::media::InitializeErrorCodes();
  vrex::mediaformats::InitializeErrorCodes();
  vrex::avcodec::InitializeErrorCodes();

  napi_add_env_cleanup_hook(exports.Env(), OnNodeExit, nullptr);
  atexit(OnPOSIXExit);
  ReadProcessEnv();

  RegisterFunction(exports, "version", callback_version);
  RegisterFunction(exports, "getErrorDescription", callback_getErrorDescription);
  RegisterFunction(exports, "getTimeMillis", callback_getTimeMillis);
  RegisterFunction(exports, "setLogFile", callback_setLogFile);
  RegisterFunction(exports, "setLogLevel", callback_setLogLevel);
}

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
