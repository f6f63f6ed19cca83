// Build-time facts of this build of vidora.
#pragma once

#include <string>

namespace vrex {
namespace common {

class Version {
 public:
  static std::string GetBuildNumber();    // "0.1.0" style package version
  static std::string GetBuildDate();      // ISO date of the build
  static std::string GetCodeName();
  static std::string GetBuilder();        // compiler and version
  static std::string GetOpenSslVersion(); // "none" when built without OpenSSL
  // "vidora <number> (<code name>) built <date> with <builder>": the first line of logs.
  static std::string GetBanner();
};

}  // namespace common
}  // namespace vrex
