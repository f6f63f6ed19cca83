// Version: values fixed by the build (see sources/common/CMakeLists.txt).
#include "common/version.h"

#ifdef VIDORA_HAVE_OPENSSL
#include <openssl/crypto.h>
#endif

#ifndef VIDORA_VERSION
#define VIDORA_VERSION "0.0.0"
#endif

namespace vrex {
namespace common {

std::string Version::GetBuildNumber() { return VIDORA_VERSION; }

std::string Version::GetBuildDate() { return __DATE__ " " __TIME__; }

std::string Version::GetCodeName() { return "Kestrel"; }

std::string Version::GetBuilder() {
#if defined(__clang__)
  return "clang " __clang_version__;
#elif defined(__GNUC__)
  return "g++ " __VERSION__;
#else
  return "unknown compiler";
#endif
}

std::string Version::GetOpenSslVersion() {
#ifdef VIDORA_HAVE_OPENSSL
  return OpenSSL_version(OPENSSL_VERSION);
#else
  return "none";
#endif
}

std::string Version::GetBanner() {
  return "vidora " + GetBuildNumber() + " (" + GetCodeName() + ") built " + GetBuildDate() +
         " with " + GetBuilder();
}

}  // namespace common
}  // namespace vrex
