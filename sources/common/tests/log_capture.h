// Collects the log lines written while it lives, so tests can check what was reported.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "abstraction/logging.h"

namespace vrex {
namespace common {
namespace testing {

class LogCapture {
 public:
  LogCapture() {
    Lines().clear();
    abstraction::registerLoggingCallback(&Append);
  }
  ~LogCapture() { abstraction::registerLoggingCallback(nullptr); }

  // Whether some line holds `text`.
  bool Contains(const std::string& text) const {
    const std::vector<std::string>& lines = Lines();
    return std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
      return line.find(text) != std::string::npos;
    });
  }
  size_t Count() const { return Lines().size(); }
  void Clear() { Lines().clear(); }
  std::string All() const {
    std::string all;
    for (const std::string& line : Lines()) all += line + "\n";
    return all;
  }

 private:
  static std::vector<std::string>& Lines() {
    static std::vector<std::string> lines;
    return lines;
  }
  static void Append(abstraction::log_level_t, unsigned long, const char* text,
                     unsigned long length) {
    Lines().emplace_back(text, length);
  }
};

}  // namespace testing
}  // namespace common
}  // namespace vrex
