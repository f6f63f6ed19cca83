// What the test binary's stand-in for Node-API observed.
#pragma once

namespace vrex {
namespace nodejs {
namespace common {
namespace testing {

// Calls of any Node-API function other than the handle scopes.
int UnexpectedNodeApiCalls();
// Handle scopes opened and not yet closed.
int OpenHandleScopes();

}  // namespace testing
}  // namespace common
}  // namespace nodejs
}  // namespace vrex
