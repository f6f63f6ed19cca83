// Registration of the media serving functions.
#include "registrars.h"

namespace vrex {
namespace nodejs {
namespace vidora {

void RegisterCallbacks(Napi::Object&) {}

}  // namespace vidora
}  // namespace nodejs
}  // namespace vrex
