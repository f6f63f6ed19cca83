// AddonLogger: the process's logging callback and its list of appenders.
#include "common/logger/addon_logger.h"

#include <cstdlib>

#include "common/logger/addon_file_log_appender.h"

namespace vrex {
namespace nodejs {
namespace common {

AddonLogger& AddonLogger::Instance() {
  // Never destroyed: worker threads may still log while the process exits.
  static AddonLogger* instance = new AddonLogger();
  return *instance;
}

void AddonLogger::Log(log_level_t level, unsigned long, const char* text,
                      unsigned long length) {
  Instance().doLog(level, text, length);
}

void AddonLogger::doLog(log_level_t level, const char* text, unsigned long length) {
  std::lock_guard<std::mutex> lock(_mutex);
  for (AddonLogAppender* appender : _appenders) appender->Log(level, text, length);
}

void AddonLogger::LogLevelEnv(log_level_t& level) {
  const char* value = getenv("ADDON_LOG_LEVEL");
  if (value == nullptr) return;
  level = static_cast<log_level_t>(strtol(value, nullptr, 10));
  LOGI << "ADDON_LOG_LEVEL=" << level;
}

int AddonLogger::AddFileAppender(log_level_t level, const std::string& path,
                                 unsigned long maxFileSize, unsigned long maxFileCount) {
  const int checked = AddonFileLogAppender::CheckPath(path);
  if (checked != 0) return checked;
  LogLevelEnv(level);
  AddAppender(new AddonFileLogAppender(level, path, maxFileSize, maxFileCount));
  return 0;
}

void AddonLogger::AddAppender(AddonLogAppender* appender) {
  std::lock_guard<std::mutex> lock(_mutex);
  _appenders.push_back(appender);
}

void AddonLogger::setLogLevel(log_level_t level) {
  LogLevelEnv(level);
  std::lock_guard<std::mutex> lock(_mutex);
  for (AddonLogAppender* appender : _appenders) appender->setLogLevel(level);
}

void AddonLogger::RemoveAllAppenders() {
  std::vector<AddonLogAppender*> appenders;
  {
    std::lock_guard<std::mutex> lock(_mutex);
    appenders.swap(_appenders);
  }
  for (AddonLogAppender* appender : appenders) delete appender;
}

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
