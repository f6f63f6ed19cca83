// The program's logging: one line per LogMessage, handed on destruction to one process-wide
// callback (in the addon, AddonLogger). Any thread may log.
//
// Line: "2026-11-22T10:15:30.123Z E <thread> - <body>"; see LogMessage for the parts.
// Use the stream macros, which build nothing when no callback is registered:
//     LOGE << "<-# Reader::Open FAILED! err=" << err;
#pragma once

#include <cstdint>
#include <sstream>
#include <string>

namespace vrex {
namespace abstraction {

// 0 fatal, 1 error, 2 warning, 3 information, 4 debug; letters "FEWID" by that index.
typedef int log_level_t;
enum : log_level_t {
  LOG_LEVEL_FATAL = 0,
  LOG_LEVEL_ERROR = 1,
  LOG_LEVEL_WARNING = 2,
  LOG_LEVEL_INFO = 3,
  LOG_LEVEL_DEBUG = 4,
};

// Receives each finished line; called on the logging thread, `text` valid only for the call.
typedef void (*logging_callback_t)(log_level_t level, unsigned long options, const char* text,
                                   unsigned long length);

// Sets (or, with null, clears) the callback. Call it before other threads log.
void registerLoggingCallback(logging_callback_t callback);
bool isLoggingCallbackRegistered();

// One log line. The text is formatted in the constructor's header and the streamed body, and
// handed to the callback in the destructor. With a `condition` the line is an assertion
// failure, and the destructor aborts after logging it.
class LogMessage {
 public:
  LogMessage(log_level_t level, unsigned options, const char* condition, int withErrorInfo,
             const char* file, int line, const char* function);
  ~LogMessage();
  LogMessage(const LogMessage&) = delete;
  LogMessage& operator=(const LogMessage&) = delete;

  std::ostream& stream() { return _stream; }

  // Hands `text` to the callback; without one, an assertion goes to standard error and
  // anything else is dropped.
  static void log(log_level_t level, unsigned options, bool isAssertion, const std::string& text);

 private:
  log_level_t _level;
  unsigned _options;
  const char* _condition;
  std::stringstream _stream;
};

// A hexadecimal dump: 16 bytes a line, "%03X| " offset, "%02X " per byte, then the printable
// characters ('.' for others).
std::string dump_s(const void* data, unsigned int length);
// Logs dump_s at level 1 when `enabled`.
void dump(const void* data, unsigned int length, bool enabled);

// Writes to standard error; the fallback for assertion lines without a callback.
void stderrLogging(const char* text, unsigned long length);

}  // namespace abstraction
}  // namespace vrex

namespace vrex {
namespace abstraction {
// Lets the logging macros be one expression: `&` binds looser than `<<`.
struct LogMessageVoidify {
  void operator&(std::ostream&) {}
};
}  // namespace abstraction
}  // namespace vrex

#define VREX_LOG_AT(level, withErrorInfo)                                                   \
  !::vrex::abstraction::isLoggingCallbackRegistered()                                       \
      ? (void)0                                                                             \
      : ::vrex::abstraction::LogMessageVoidify() &                                          \
            ::vrex::abstraction::LogMessage((level), 0, nullptr, (withErrorInfo), __FILE__, \
                                            __LINE__, __func__)                             \
                .stream()

#define LOGF VREX_LOG_AT(::vrex::abstraction::LOG_LEVEL_FATAL, 0)
#define LOGE VREX_LOG_AT(::vrex::abstraction::LOG_LEVEL_ERROR, 0)
#define LOGW VREX_LOG_AT(::vrex::abstraction::LOG_LEVEL_WARNING, 0)
#define LOGI VREX_LOG_AT(::vrex::abstraction::LOG_LEVEL_INFO, 0)
#define LOGD VREX_LOG_AT(::vrex::abstraction::LOG_LEVEL_DEBUG, 0)
// An error line followed by the text of this thread's error_info_t.
#define LOGE_WITH_ERROR_INFO VREX_LOG_AT(::vrex::abstraction::LOG_LEVEL_ERROR, 1)

// Logs "assert failed: `cond`" and aborts when `cond` is false; always evaluated.
#define VREX_ASSERT(cond)                                                                  \
  (cond) ? (void)0                                                                         \
         : ::vrex::abstraction::LogMessageVoidify() &                                      \
               ::vrex::abstraction::LogMessage(::vrex::abstraction::LOG_LEVEL_FATAL, 0,    \
                                               #cond, 0, __FILE__, __LINE__, __func__)     \
                   .stream()
