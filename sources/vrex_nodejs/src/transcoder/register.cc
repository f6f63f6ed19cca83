// Registration of the transcoder functions.
#include "registrars.h"

namespace vrex {
namespace nodejs {
namespace transcoder {

void RegisterCallbacks(Napi::Object&) {}

}  // namespace transcoder
}  // namespace nodejs
}  // namespace vrex
