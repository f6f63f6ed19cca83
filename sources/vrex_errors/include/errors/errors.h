// Error codes and the per-thread record of where a failure came from.
//
// An error code is a negative int32: bit 31 set, bit 30 clear, a 14-bit module id
// (bits 29..16) and a 16-bit number (bits 15..0). 0 is success; any value >= 0 is success.
// A failure is made once, where it is detected:
//     return returnErrorWithTracking(CODE, __FILE__, __LINE__);
// and higher layers pass the same code on unchanged (or wrap it with wrapError).
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace vrex {
namespace errors {

// Builds the code of `number` in `module`.
constexpr int MakeError(uint16_t module, uint16_t number) {
  return static_cast<int>(0x80000000u | (static_cast<uint32_t>(module & 0x3fff) << 16) | number);
}
constexpr bool IsError(int code) { return (static_cast<uint32_t>(code) & 0xc0000000u) == 0x80000000u; }
constexpr uint16_t ModuleOf(int code) { return (static_cast<uint32_t>(code) >> 16) & 0x3fff; }
constexpr uint16_t NumberOf(int code) { return static_cast<uint32_t>(code) & 0xffff; }

// Module 0 carries errno values: (abs(errno) & 0xffff) | 0x80000000.
int SystemError(int errnoValue);

// One step of a failure's way up.
struct error_code_t {
  int code;
  const char* file;  // a source path literal with static lifetime; never copied
  int line;
};

// One frame of a captured stack.
struct stack_frame_t {
  std::string raw;
  std::string module;
  std::string function;
  uint64_t offset;
  std::string display;  // function + 0x<offset>, module + 0x<offset>, or the raw text

  stack_frame_t(std::string raw, std::string module, std::string function, uint64_t offset);
};

// What one thread knows of its last failure. Only returnErrorWithTracking clears it.
struct error_info_t {
  std::vector<error_code_t> chain;  // newest step first
  std::vector<stack_frame_t> frames;
  std::map<std::string, std::string> extraInfo;

  // "Errors:" with one "   0x%08x at file:line: description" line per step, "Extra info:"
  // with "   key: value" lines, then "Stack:" and the frames; sections only when non-empty,
  // but "Stack:" always.
  std::string ToString() const;
};

// The text of a code: "OK" for 0, "### UNKNOWN ERROR CODE ###" for anything that is not an
// error code of a registered module, else the module's table entry ("unknown" past its end).
const char* GetDescription(int code);

// strerror of an errno number; the description function of module 0.
const char* GetSystemErrorDescription(uint16_t number);

// The calling thread's record, created on first use and freed when the thread ends. Never null.
error_info_t* GetErrorInfo();

// Starts a new chain on this thread with {code, file, line} and returns `code`.
int returnErrorWithTracking(int code, const char* file, int line);

// Puts {outer, file, line} in front of the chain and returns `outer`; when inner is 0 or
// equals outer, records nothing and returns `inner`.
int wrapError(int outer, int inner, const char* file, int line);

// Sets key to value in this thread's record. Call it after the returnErrorWithTracking of
// the failure it describes, which clears the map.
void addExtraInfo(const std::string& key, const std::string& value);

// Replaces `frames` with the calling thread's stack, without the capture's own frames.
void GetStackTrace(std::vector<stack_frame_t>& frames);
// The same as text: "   at <display>" per frame, newline-separated.
std::string GetStackTrace();

// Matches `frame` against `regex` and, when both groups lie in the match, copies the module
// group and parses the offset group (base 0). Returns whether it did.
bool ExtractFrameInfo(const std::string& frame, const std::string& regex, size_t moduleGroup,
                      size_t offsetGroup, std::string& module, size_t& offset);

// Registers a module's description function for the life of this object. A module is
// registered once: a second registration, or a null function, aborts.
class InitErrors {
 public:
  InitErrors(uint16_t module, const char* (*describe)(uint16_t));
  ~InitErrors();
  InitErrors(const InitErrors&) = delete;
  InitErrors& operator=(const InitErrors&) = delete;

 private:
  uint16_t _module;
};

// Pulls module 0's registration into the link. Returns 0.
int InitializeErrorCodes();

}  // namespace errors
}  // namespace vrex

// Returns from the enclosing function with the code of `expr` when it failed.
#define VREX_CHECK(expr)              \
  do {                                \
    const int vrexCheckResult_ = (expr); \
    if (vrexCheckResult_ < 0) return vrexCheckResult_; \
  } while (0)

// Reports a failure detected here: records it on this thread and yields the code.
#define VREX_ERROR(code) ::vrex::errors::returnErrorWithTracking((code), __FILE__, __LINE__)
