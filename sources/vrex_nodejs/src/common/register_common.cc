// The process's start-up and the registration of the common functions.
#include <cstdlib>
#include <mutex>

#include "abstraction/errors.h"
#include "avcodec/errors.h"
#include "common/callbacks.h"
#include "common/exit_hooks.h"
#include "common/process_env.h"
#include "common/register_function.h"
#include "common/work_pool.h"
#include "common/workers_pools_manager.h"
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
  // Process-wide, once: a second load of the module must not reset the pools' limits.
  static std::once_flag processStarted;
  std::call_once(processStarted, [] {
    atexit(OnPOSIXExit);
    ReadProcessEnv();
    SetWorkPoolMaxSize(128);
    WorkersPoolsManager::SetupWorkersPool("Serve", 90);
    WorkersPoolsManager::SetupWorkersPool("Write", 5);
    WorkersPoolsManager::SetupWorkersPool("Read", 4);
    WorkersPoolsManager::SetupWorkersPool("Misc", 1);
  });

  RegisterFunction(exports, "version", callback_version);
  RegisterFunction(exports, "getErrorDescription", callback_getErrorDescription);
  RegisterFunction(exports, "setWorkersPoolsLimits", callback_setWorkersPoolsLimits);
  RegisterFunction(exports, "getWorkersPoolsStats", callback_getWorkersPoolsStats);
  RegisterFunction(exports, "getTimeMillis", callback_getTimeMillis);
  RegisterFunction(exports, "setLogFile", callback_setLogFile);
  RegisterFunction(exports, "setLogLevel", callback_setLogLevel);
  RegisterFunction(exports, "cancelOperation", callback_cancelOperation);
}

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
