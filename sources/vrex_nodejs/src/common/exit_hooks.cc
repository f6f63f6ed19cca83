// Exit hooks. Worker threads are not joined here: they end with the process.
#include "common/exit_hooks.h"

namespace vrex {
namespace nodejs {
namespace common {

void OnExit() {}

void OnNodeExit(void*) { OnExit(); }

void OnPOSIXExit() { OnExit(); }

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
