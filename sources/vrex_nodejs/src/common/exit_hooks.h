// What runs when the host exits: the environment's clean-up hook and atexit both end in
// OnExit, which may therefore run twice in one process.
#pragma once

namespace vrex {
namespace nodejs {
namespace common {

void OnExit();
void OnNodeExit(void* data);
void OnPOSIXExit();

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
