// Exit hooks. Worker threads are not joined here: they end with the process.
#include "common/exit_hooks.h"

#include "common/workers_pools_manager.h"

namespace vrex {
namespace nodejs {
namespace common {

void OnExit() { WorkersPoolsManager::CancelAllTasks(); }

void OnNodeExit(void*) { OnExit(); }

void OnPOSIXExit() { OnExit(); }

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
