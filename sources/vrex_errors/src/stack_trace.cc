// Stack capture through backtrace(3), and the frame text helpers.
#include <execinfo.h>

#include <cstdlib>
#include <regex>

#include "errors/errors.h"

namespace vrex {
namespace errors {

namespace {

std::string DisplayText(const std::string& raw, const std::string& module,
                        const std::string& function, uint64_t offset) {
  char hex[32];
  snprintf(hex, sizeof(hex), " + 0x%llx", static_cast<unsigned long long>(offset));
  if (!function.empty()) return function + hex;
  if (!module.empty()) return module + hex;
  return raw;
}

}  // namespace

stack_frame_t::stack_frame_t(std::string raw_, std::string module_, std::string function_,
                             uint64_t offset_)
    : raw(std::move(raw_)),
      module(std::move(module_)),
      function(std::move(function_)),
      offset(offset_),
      display(DisplayText(raw, module, function, offset)) {}

// Kept out of line so that frames 0 and 1 are this function and its caller's wrapper.
__attribute__((noinline)) void GetStackTrace(std::vector<stack_frame_t>& frames) {
  frames.clear();
  void* addresses[100];
  int count = backtrace(addresses, 100);
  if (count <= 0) return;
  char** lines = backtrace_symbols(addresses, count);
  if (lines == nullptr) return;
  for (int i = 2; i < count; ++i) {
    frames.emplace_back(lines[i] != nullptr ? lines[i] : "<unknown>", "", "", 0);
  }
  free(lines);
}

bool ExtractFrameInfo(const std::string& frame, const std::string& regex, size_t moduleGroup,
                      size_t offsetGroup, std::string& module, size_t& offset) {
  std::smatch match;
  const std::regex expression(regex);
  if (!std::regex_search(frame, match, expression)) return false;
  if (moduleGroup >= match.size() || offsetGroup >= match.size()) return false;
  module = match[moduleGroup].str();
  offset = static_cast<size_t>(std::stoll(match[offsetGroup].str(), nullptr, 0));
  return true;
}

}  // namespace errors
}  // namespace vrex
