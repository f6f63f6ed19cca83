// Registration of the VRX file utilities functions.
#include "registrars.h"

namespace vrex {
namespace nodejs {
namespace vrxutils {

void RegisterCallbacks(Napi::Object&) {}

}  // namespace vrxutils
}  // namespace nodejs
}  // namespace vrex
