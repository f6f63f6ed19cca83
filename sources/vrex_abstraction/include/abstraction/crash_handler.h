// The crash log: when the process dies by SIGSEGV, SIGABRT, SIGFPE, SIGILL or SIGBUS it leaves
// a text file from which a developer can place the crash, then ends by SIGKILL (the signal is
// not raised again, so no core dump follows). SIGPIPE, SIGTERM and the others are not caught.
// Handlers installed before for the five signals are replaced, not called; a fault filter
// (SetCrashFaultFilter) sees SIGSEGV and SIGBUS first, so that a fault its owner recovers from
// is not taken for a crash.
//
// The file is <path>.crash.log, text, numbers in upper-case hexadecimal:
//   pid: <decimal>\nstart timestamp: <seconds, decimal>\nversion: <version>\n    at installation
//   <the bytes of /proc/self/maps>                                            at installation
//   <the lines given to SaveCrashData, oldest first>                         from here at the crash
//   crt: 0x<16 digits: wall clock in ms>; \n
//   snd: 0x<8 digits: si_pid of the siginfo>; \n   when the handler got a siginfo
//   sig: 0x<8 digits: the signal number>; \n
//   frm: 0x<16 digits: a return address>; \n     one per frame from backtrace(), at most 64
//   endstack\n
//   custom backtrace\n
//   frm: 0x<16 digits>; \n                        one per frame record of the frame-pointer chain
//   endstack\n
// Each start rolls the file first: <path>.crash.log.1 to .9 keep the nine runs before, crash
// or no crash. The file is given to the group "dorvi-streaming" when that group exists.
//
// The handler only formats numbers by hand and calls write, fsync and backtrace; everything
// else is prepared at installation. Each line is synced on its own, so that as much as possible
// survives a second fault.
#pragma once

#include <signal.h>

#include <string>

namespace vrex {
namespace abstraction {

// Opens the crash log and installs the handler for the five signals. Returns 0, or
// ERR_ABSTRACTION_INVALID_PARAMETERS for an empty path, or the errno code (module 0) of the
// file that could not be made or written; nothing is installed then, and a later call may try
// again. Once installed, a call leaves the file as it is, puts the handler back over any set
// since, and returns 0. Any thread.
int InstallCrashHandler(const std::string& path, const std::string& version);

// Decides, inside the signal handler, whether a SIGSEGV or SIGBUS is a fault that the process
// expects and recovers from, and if so prepares the recovery (typically by changing `context`)
// and returns true: the handler then returns without logging. It must be async-signal-safe.
using crash_fault_filter_t = bool (*)(int signal, siginfo_t* info, void* context);

// Sets the fault filter, or none with null. The JavaScript engine's WebAssembly bounds checks
// fault on purpose and turn the fault into an exception: its own test belongs here. Any thread.
void SetCrashFaultFilter(crash_fault_filter_t filter);

// Appends `text` and a new line to the lines that a crash writes. They keep the latest 262,144
// bytes: older text is cut from the front. Any thread.
void SaveCrashData(const std::string& text);

}  // namespace abstraction
}  // namespace vrex
