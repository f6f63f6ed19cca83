// The addon's entry: the host finds napi_register_module_v1 and gets the exports object
// filled by the five registrars.
#include "registrars.h"

namespace vrex {
namespace nodejs {
namespace vidora {

Napi::Object RegisterModule(Napi::Env, Napi::Object exports) {
  vrex::nodejs::common::RegisterCallbacks(exports);
  vrex::nodejs::vrxutils::RegisterCallbacks(exports);
  vrex::nodejs::transcoder::RegisterCallbacks(exports);
  vrex::nodejs::tcpacceptor::RegisterCallbacks(exports);
  vrex::nodejs::vidora::RegisterCallbacks(exports);
  return exports;
}

}  // namespace vidora
}  // namespace nodejs
}  // namespace vrex

static Napi::Object RegisterModule_vidora(Napi::Env env, Napi::Object exports) {
  return vrex::nodejs::vidora::RegisterModule(env, exports);
}

NODE_API_MODULE(vidora, RegisterModule_vidora)
