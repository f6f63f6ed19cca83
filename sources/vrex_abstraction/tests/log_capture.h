// Collects the log lines written while it lives, so tests can check what was reported.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "abstraction/logging.h"

namespace vidora_testing {

class LogCapture {
 public:
  struct line_t {
    vrex::abstraction::log_level_t level;
    std::string text;
  };

  LogCapture() {
    Lines().clear();
    vrex::abstraction::registerLoggingCallback(&Append);
  }
  ~LogCapture() { vrex::abstraction::registerLoggingCallback(nullptr); }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  const std::vector<line_t>& lines() const { return Lines(); }
  // Whether some line holds `text`.
  bool Contains(const std::string& text) const {
    return std::any_of(Lines().begin(), Lines().end(),
                       [&](const line_t& line) { return line.text.find(text) != std::string::npos; });
  }
  size_t Count() const { return Lines().size(); }
  // The texts of the lines of `level`.
  std::vector<std::string> Texts(vrex::abstraction::log_level_t level) const {
    std::vector<std::string> texts;
    for (const line_t& line : Lines())
      if (line.level == level) texts.push_back(line.text);
    return texts;
  }
  void Clear() { Lines().clear(); }
  std::string All() const {
    std::string all;
    for (const line_t& line : Lines()) all += line.text + "\n";
    return all;
  }

 private:
  static std::vector<line_t>& Lines() {
    static std::vector<line_t> lines;
    return lines;
  }
  static void Append(vrex::abstraction::log_level_t level, unsigned long, const char* text,
                     unsigned long length) {
    Lines().push_back({level, std::string(text, length)});
  }
};

}  // namespace vidora_testing
