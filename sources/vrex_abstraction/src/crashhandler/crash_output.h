// Writing the crash log from inside a signal handler: no allocation, no locks, no stdio.
// Numbers are formatted by hand into a static scratch area, which a crash on a second thread
// at the same moment shares. Errors are ignored: a crash has no one to report them to.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

namespace vrex {
namespace abstraction {
namespace internal {

// Writes all of `length` bytes, going on after short writes. Returns `length`, or -1 with
// errno set by the write that failed.
ssize_t WriteFully(int fd, const void* data, size_t length);

// WriteFully, then fsync.
void WriteSynced(int fd, const void* data, size_t length);
void WriteSynced(int fd, const char* text);

// Writes and syncs "<tag>0x<value in `digits` upper-case hex digits>; \n", for example
// "sig: 0x0000000B; \n". `digits` is 8 or 16.
void WriteHexLine(int fd, const char* tag, uint64_t value, int digits);

}  // namespace internal
}  // namespace abstraction
}  // namespace vrex
