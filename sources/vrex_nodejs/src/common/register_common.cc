// The process's start-up and the registration of the common functions.
#include <uv.h>

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

  // Only the host's own environment ends the tasks: a worker thread that loads the module
  // and ends must not cancel the work of the main thread, nor touch the pools from its thread.
  // Once only: the host aborts on a second hook of the same function when the module is
  // loaded again into its environment.
  static bool exitHookAdded = false;  // main thread only
  uv_loop_t* loop = nullptr;
  if (napi_get_uv_event_loop(exports.Env(), &loop) == napi_ok && loop == uv_default_loop() &&
      !exitHookAdded) {
    exitHookAdded = napi_add_env_cleanup_hook(exports.Env(), OnNodeExit, nullptr) == napi_ok;
  }
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
  RegisterFunction(exports, "installCrashHandler", callback_installCrashHandler);
  RegisterFunction(exports, "getTimeMillis", callback_getTimeMillis);
  RegisterFunction(exports, "setLogFile", callback_setLogFile);
  RegisterFunction(exports, "setLogLevel", callback_setLogLevel);
  RegisterFunction(exports, "sendFile", callback_sendFile);
  RegisterFunction(exports, "pauseOperation", callback_pauseOperation);
  RegisterFunction(exports, "resumeOperation", callback_resumeOperation);
  RegisterFunction(exports, "cancelOperation", callback_cancelOperation);
  RegisterFunction(exports, "consumeOperationBufferedData", callback_consumeOperationBufferedData);
  RegisterFunction(exports, "transferOperationBufferedData", callback_transferOperationBufferedData);
  RegisterFunction(exports, "operationSetMaxBufferSize", callback_operationSetMaxBufferSize);
}

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
