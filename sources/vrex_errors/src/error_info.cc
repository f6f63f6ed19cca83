// The per-thread error record and the functions that fill it.
#include <pthread.h>

#include <iomanip>
#include <sstream>

#include "errors/errors.h"

namespace vrex {
namespace errors {

namespace internal {

// The key of each thread's error_info_t; its destructor frees the record when the thread ends.
struct tls_key_t {
  pthread_key_t key;
  tls_key_t() { pthread_key_create(&key, [](void* p) { delete static_cast<error_info_t*>(p); }); }
};
tls_key_t gTLS;

}  // namespace internal

error_info_t* GetErrorInfo() {
  auto* info = static_cast<error_info_t*>(pthread_getspecific(internal::gTLS.key));
  if (info == nullptr) {
    info = new error_info_t();
    pthread_setspecific(internal::gTLS.key, info);
  }
  return info;
}

int returnErrorWithTracking(int code, const char* file, int line) {
  error_info_t* info = GetErrorInfo();
  info->chain.clear();
  info->frames.clear();
  info->extraInfo.clear();
  info->chain.push_back({code, file, line});
  return code;
}

int wrapError(int outer, int inner, const char* file, int line) {
  if (outer == inner || inner == 0) return inner;
  error_info_t* info = GetErrorInfo();
  info->chain.insert(info->chain.begin(), {outer, file, line});
  return outer;
}

void addExtraInfo(const std::string& key, const std::string& value) {
  GetErrorInfo()->extraInfo[key] = value;
}

namespace {

void AppendFrames(std::ostringstream& out, const std::vector<stack_frame_t>& frames) {
  for (size_t i = 0; i < frames.size(); ++i) {
    if (i != 0) out << '\n';
    out << "   at " << frames[i].display;
  }
}

}  // namespace

std::string error_info_t::ToString() const {
  std::ostringstream out;
  if (!chain.empty()) {
    out << "Errors:\n";
    for (const error_code_t& step : chain) {
      out << "   0x" << std::hex << std::setw(8) << std::setfill('0')
          << static_cast<uint32_t>(step.code) << std::dec << " at " << step.file << ":"
          << step.line << ": " << GetDescription(step.code) << '\n';
    }
  }
  if (!extraInfo.empty()) {
    out << "Extra info:\n";
    for (const auto& entry : extraInfo) out << "   " << entry.first << ": " << entry.second << '\n';
  }
  out << "Stack:\n";
  AppendFrames(out, frames);
  return out.str();
}

std::string GetStackTrace() {
  std::vector<stack_frame_t> frames;
  GetStackTrace(frames);
  std::ostringstream out;
  AppendFrames(out, frames);
  return out.str();
}

}  // namespace errors
}  // namespace vrex
