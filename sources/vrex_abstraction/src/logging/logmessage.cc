// LogMessage: the line format and the hand-over to the process-wide callback.
#include <pthread.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cassert>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "abstraction/logging.h"
#include "errors/errors.h"

namespace vrex {
namespace abstraction {

namespace {

std::atomic<logging_callback_t> gCallback{nullptr};

// The name is read once per thread: reading it costs system calls, and our threads name
// themselves when they start, before they log.
const char* ThreadName() {
  thread_local char name[32] = {0};
  thread_local bool known = false;
  if (!known) {
    pthread_getname_np(pthread_self(), name, sizeof(name));
    known = true;
  }
  return name;
}

}  // namespace

void registerLoggingCallback(logging_callback_t callback) { gCallback.store(callback); }

bool isLoggingCallbackRegistered() { return gCallback.load(std::memory_order_relaxed) != nullptr; }

void stderrLogging(const char* text, unsigned long length) {
  fwrite(text, 1, length, stderr);
  fputc('\n', stderr);
}

LogMessage::LogMessage(log_level_t level, unsigned options, const char* condition,
                       int withErrorInfo, const char*, int, const char*)
    : _level(level), _options(options), _condition(condition) {
  timeval now;
  gettimeofday(&now, nullptr);
  tm utc;
  gmtime_r(&now.tv_sec, &utc);
  char stamp[64];
  snprintf(stamp, sizeof(stamp), "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ ", utc.tm_year + 1900,
           utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec,
           static_cast<int>(now.tv_usec / 1000));
  _stream << stamp;
  if (condition != nullptr) _stream << "- assert failed: `" << condition << "` ";
  if (level >= 0 && level <= 4) _stream << "FEWID"[level] << ' ';
  _stream << ThreadName() << ' ';
  if (withErrorInfo) {
    _stream << '\n' << errors::GetErrorInfo()->ToString() << '\n';
  } else {
    _stream << " - ";
  }
}

LogMessage::~LogMessage() {
  log(_level, _options, _condition != nullptr, _stream.str());
  if (_condition != nullptr) {
    assert(false && "assertion logged above");
    abort();
  }
}

void LogMessage::log(log_level_t level, unsigned options, bool isAssertion,
                     const std::string& text) {
  logging_callback_t callback = gCallback.load();
  if (callback != nullptr) {
    callback(level, options, text.c_str(), text.size());
  } else if (isAssertion) {
    stderrLogging(text.c_str(), text.size());
  }
}

std::string dump_s(const void* data, unsigned int length) {
  const auto* bytes = static_cast<const unsigned char*>(data);
  std::string out;
  char cell[8];
  for (unsigned int line = 0; line < length; line += 16) {
    std::string hex, printable;
    for (unsigned int i = line; i < line + 16 && i < length; ++i) {
      snprintf(cell, sizeof(cell), "%02X ", bytes[i]);
      hex += cell;
      printable += (bytes[i] >= 32 && bytes[i] < 127) ? static_cast<char>(bytes[i]) : '.';
    }
    hex.resize(48, ' ');
    char head[16];
    snprintf(head, sizeof(head), "%03X| ", line);
    out += head + hex + " " + printable + "\n";
  }
  return out;
}

void dump(const void* data, unsigned int length, bool enabled) {
  if (enabled) LOGE << "\n" << dump_s(data, length);
}

}  // namespace abstraction
}  // namespace vrex
