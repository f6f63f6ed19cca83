// Where AddonLogger sends lines: an appender with its own level.
#pragma once

#include "abstraction/logging.h"

namespace vrex {
namespace nodejs {
namespace common {

using vrex::abstraction::log_level_t;

class AddonLogAppender {
 public:
  explicit AddonLogAppender(log_level_t level) : _level(level) {}
  virtual ~AddonLogAppender() = default;

  // True when a line of `level` passes this appender's level.
  virtual bool CanLog(log_level_t level) const { return level <= _level; }
  virtual void setLogLevel(log_level_t level) { _level = level; }
  // Takes one line; called under AddonLogger's mutex, on any thread.
  virtual void Log(log_level_t level, const char* text, unsigned long length) = 0;

 protected:
  log_level_t _level;
};

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
