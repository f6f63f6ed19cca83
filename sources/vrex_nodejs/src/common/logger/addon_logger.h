// AddonLogger: the addon's logging callback, offering each line to its appenders in order.
// One instance serves the process; it owns its appenders and lives until the process ends.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "common/logger/addon_log_appender.h"

namespace vrex {
namespace nodejs {
namespace common {

class AddonLogger {
 public:
  static AddonLogger& Instance();

  // The callback given to registerLoggingCallback: offers the line to every appender.
  static void Log(log_level_t level, unsigned long options, const char* text,
                  unsigned long length);

  // Adds a rolling file appender at `level` (ADDON_LOG_LEVEL, when set, wins). A path that
  // cannot take a log file is refused with AddonFileLogAppender::CheckPath's error, and no
  // appender is added. Returns 0 or that error.
  int AddFileAppender(log_level_t level, const std::string& path, unsigned long maxFileSize,
                       unsigned long maxFileCount);
  // Takes ownership of `appender`.
  void AddAppender(AddonLogAppender* appender);
  // Sets the level of every appender; ADDON_LOG_LEVEL, when set, wins over `level`.
  void setLogLevel(log_level_t level);
  // Replaces `level` with ADDON_LOG_LEVEL when the environment has it, and logs that.
  static void LogLevelEnv(log_level_t& level);

  // Removes and destroys every appender; for tests.
  void RemoveAllAppenders();

 private:
  AddonLogger() = default;
  void doLog(log_level_t level, const char* text, unsigned long length);

  std::mutex _mutex;
  std::vector<AddonLogAppender*> _appenders;  // guarded by _mutex; owned
};

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
