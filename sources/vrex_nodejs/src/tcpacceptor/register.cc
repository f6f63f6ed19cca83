// Registration of the TCP acceptor functions.
#include "registrars.h"

namespace vrex {
namespace nodejs {
namespace tcpacceptor {

void RegisterCallbacks(Napi::Object&) {}

}  // namespace tcpacceptor
}  // namespace nodejs
}  // namespace vrex
