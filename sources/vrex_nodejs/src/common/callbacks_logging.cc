// setLogFile and setLogLevel.
#include "common/callbacks.h"
#include "common/js_error.h"
#include "common/logger/addon_logger.h"
#include "common/property_reader.h"
#include "nodejs/errors.h"

namespace vrex {
namespace nodejs {
namespace common {

using vrex::webrtcnodejs::ERR_NODEJS_INVALID_PARAMETERS;

namespace {

constexpr long kDefaultMaxFileSize = 5000000;
constexpr long kDefaultMaxFileCount = 5;
constexpr long kDefaultLogLevel = 1;

bool IsObjectOrFunction(const Napi::CallbackInfo& info) {
  return info.Length() >= 1 && (info[0].IsObject() || info[0].IsFunction());
}

}  // namespace

Napi::Value callback_setLogFile(const Napi::CallbackInfo& info) {
  Napi::Env env = info.Env();
  if (!IsObjectOrFunction(info)) {
    THROW_ERROR(env, VREX_ERROR(ERR_NODEJS_INVALID_PARAMETERS));
    return env.Undefined();
  }
  PropertyReader reader(info[0].ToObject());
  std::string path;
  if (reader.ReadString("path", &path) == nullptr || path.empty()) {
    THROW_ERROR(env, VREX_ERROR(ERR_NODEJS_INVALID_PARAMETERS));
    return env.Undefined();
  }
  long maxFileSize = kDefaultMaxFileSize;
  long maxFileCount = kDefaultMaxFileCount;
  long logLevel = kDefaultLogLevel;
  reader.ReadInteger("maxFileSize", &maxFileSize);
  reader.ReadInteger("maxFileCount", &maxFileCount);
  reader.ReadInteger("logLevel", &logLevel);
  const int added = AddonLogger::Instance().AddFileAppender(
      static_cast<log_level_t>(logLevel), path, static_cast<unsigned long>(maxFileSize),
      static_cast<unsigned long>(maxFileCount));
  if (added != 0) {
    THROW_ERROR(env, added);
    return env.Undefined();
  }
  vrex::abstraction::registerLoggingCallback(&AddonLogger::Log);
  return env.Undefined();
}

Napi::Value callback_setLogLevel(const Napi::CallbackInfo& info) {
  Napi::Env env = info.Env();
  if (!IsObjectOrFunction(info)) {
    THROW_ERROR(env, VREX_ERROR(ERR_NODEJS_INVALID_PARAMETERS));
    return env.Undefined();
  }
  PropertyReader reader(info[0].ToObject());
  long logLevel = kDefaultLogLevel;
  reader.ReadInteger("logLevel", &logLevel);
  AddonLogger::Instance().setLogLevel(static_cast<log_level_t>(logLevel));
  return env.Undefined();
}

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
