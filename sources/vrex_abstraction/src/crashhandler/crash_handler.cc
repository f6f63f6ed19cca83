// InstallCrashHandler, SaveCrashData and the signal handler that writes the crash log.
#include "abstraction/crash_handler.h"

#include <execinfo.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <mutex>

#include "abstraction/errors.h"
#include "abstraction/logging.h"
#include "crashhandler/crash_log_file.h"
#include "crashhandler/crash_output.h"
#include "crashhandler/frame_chain.h"

namespace vrex {
namespace abstraction {

namespace {

using internal::WriteHexLine;
using internal::WriteSynced;

constexpr size_t kSavedDataReserve = 0xA0000;
constexpr size_t kSavedDataLimit = 0x40000;
constexpr int kStackFrames = 64;
constexpr int kCaughtSignals[] = {SIGSEGV, SIGABRT, SIGFPE, SIGILL, SIGBUS};

// Never destroyed: a crash while the process exits still finds it.
struct crash_handler_state_t {
  std::mutex mutex;
  std::string path;        // guarded by mutex; the crash log's path as first given
  bool installed = false;  // guarded by mutex
  // Guarded by mutex. Its capacity is reserved at installation and never exceeded, so the
  // bytes do not move under the handler.
  std::string savedData;
};

crash_handler_state_t& State() {
  static crash_handler_state_t* state = new crash_handler_state_t;
  return *state;
}

// What the handler reads, without a lock, as it stands when the signal comes.
std::atomic<int> gCrashFd{-1};
std::atomic<const char*> gSavedData{nullptr};
std::atomic<size_t> gSavedSize{0};
std::atomic<crash_fault_filter_t> gFaultFilter{nullptr};
void* gStackFrames[kStackFrames];
internal::memory_probe_t gProbe;

// Publishes the saved lines to the handler. Under the mutex.
void PublishSavedData_UNSAFE(const std::string& saved) {
  gSavedData = saved.data();
  gSavedSize = saved.size();
}

__attribute__((noinline)) int custom_back_trace(int limit) {
  return internal::WriteFrameChain(gCrashFd.load(), gProbe,
                                   reinterpret_cast<uintptr_t>(__builtin_frame_address(0)), limit);
}

void DumpStack(int signal, siginfo_t* info, void* context) {
  const crash_fault_filter_t filter = gFaultFilter.load();
  if ((signal == SIGSEGV || signal == SIGBUS) && filter != nullptr && filter(signal, info, context)) {
    return;
  }
  const int fd = gCrashFd.load();
  WriteSynced(fd, gSavedData.load(), gSavedSize.load());
  timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  WriteHexLine(
      fd, "crt: ",
      static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000, 16);
  if (info != nullptr) WriteHexLine(fd, "snd: ", static_cast<uint32_t>(info->si_pid), 8);
  WriteHexLine(fd, "sig: ", static_cast<uint32_t>(signal), 8);
  const int frames = backtrace(gStackFrames, kStackFrames);
  for (int i = 0; i < frames; ++i) {
    WriteHexLine(fd, "frm: ", reinterpret_cast<uintptr_t>(gStackFrames[i]), 16);
  }
  WriteSynced(fd, "endstack\n");
  WriteSynced(fd, "custom backtrace\n");
  custom_back_trace(kStackFrames);
  WriteSynced(fd, "endstack\n");
  close(fd);
  raise(SIGKILL);
}

int InitCrashDumpFile_UNSAFE(const std::string& path, const std::string& version) {
  // The first backtrace() may load the unwinder and allocate, which the handler must not do.
  backtrace(gStackFrames, kStackFrames);
  VREX_CHECK(gProbe.Open());
  const int fd = internal::RollFile_UNSAFE(path + ".crash.log");
  if (fd < 0) return fd;
  gCrashFd = fd;
  return internal::WriteCrashLogHead_UNSAFE(fd, version);
}

}  // namespace

int InstallCrashHandler(const std::string& path, const std::string& version) {
  crash_handler_state_t& state = State();
  std::lock_guard<std::mutex> lock(state.mutex);
  if (state.savedData.capacity() < kSavedDataReserve) {
    state.savedData.reserve(kSavedDataReserve);
    PublishSavedData_UNSAFE(state.savedData);
  }
  if (!state.installed) {
    if (path.empty()) return VREX_ERROR(ERR_ABSTRACTION_INVALID_PARAMETERS);
    state.path = path;
    const int result = InitCrashDumpFile_UNSAFE(path, version);
    if (result < 0) {
      LOGE << "<-# InstallCrashHandler FAILED! path=" << path << " err=" << result;
      const int fd = gCrashFd.exchange(-1);
      if (fd >= 0) close(fd);
      gProbe.Close();
      state.path.clear();
      return result;
    }
    LOGI << "    InstallCrashHandler crash log " << path << ".crash.log";
  } else if (path != state.path) {
    LOGW << "    InstallCrashHandler already installed: the crash log stays " << state.path
         << ".crash.log, not " << path << ".crash.log";
  }
  struct sigaction action = {};
  action.sa_sigaction = DumpStack;
  action.sa_flags = SA_SIGINFO;
  sigemptyset(&action.sa_mask);
  for (const int signal : kCaughtSignals) sigaction(signal, &action, nullptr);
  state.installed = true;
  return 0;
}

void SetCrashFaultFilter(crash_fault_filter_t filter) { gFaultFilter = filter; }

void SaveCrashData(const std::string& text) {
  crash_handler_state_t& state = State();
  std::lock_guard<std::mutex> lock(state.mutex);
  std::string& saved = state.savedData;
  const size_t incoming = text.size() + 1;
  if (incoming >= kSavedDataLimit) {
    saved.assign(text, incoming - kSavedDataLimit, std::string::npos);
  } else {
    if (saved.size() + incoming > kSavedDataLimit) {
      saved.erase(0, saved.size() + incoming - kSavedDataLimit);
    }
    saved.append(text);
  }
  saved.push_back('\n');
  PublishSavedData_UNSAFE(saved);
}

}  // namespace abstraction
}  // namespace vrex
