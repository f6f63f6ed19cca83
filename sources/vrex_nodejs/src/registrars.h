// The five registrars that fill the exports object, called in this order by RegisterModule.
#pragma once

#include <napi.h>

namespace vrex {
namespace nodejs {
namespace common {
void RegisterCallbacks(Napi::Object& exports);
}
namespace vrxutils {
void RegisterCallbacks(Napi::Object& exports);
}
namespace transcoder {
void RegisterCallbacks(Napi::Object& exports);
}
namespace tcpacceptor {
void RegisterCallbacks(Napi::Object& exports);
}
namespace vidora {
// processMedia, pauseOnlyVideo, changeVideoSendingStyle.
void RegisterCallbacks(Napi::Object& exports);
// Calls the five registrars in order and returns `exports`.
Napi::Object RegisterModule(Napi::Env env, Napi::Object exports);
}  // namespace vidora
}  // namespace nodejs
}  // namespace vrex
