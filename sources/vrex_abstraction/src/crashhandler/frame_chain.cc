// The frame-pointer walk of the crash handler and its fault-free reads.
#include "crashhandler/frame_chain.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "crashhandler/crash_output.h"
#include "errors/errors.h"

namespace vrex {
namespace abstraction {
namespace internal {

int memory_probe_t::Open() {
  if (IsOpen()) return 0;
  if (pipe2(_fds, O_CLOEXEC | O_NONBLOCK) != 0) {
    _fds[0] = _fds[1] = -1;
    return VREX_ERROR(::vrex::errors::SystemError(errno));
  }
  return 0;
}

void memory_probe_t::Close() {
  for (int& fd : _fds) {
    if (fd >= 0) close(fd);
    fd = -1;
  }
}

bool memory_probe_t::Read(uintptr_t address, void* out, size_t size) const {
  // The system call itself, not a library wrapper that may check the bytes first: the
  // address is allowed to be wild, and the kernel is what tells.
  const long sent = syscall(SYS_write, _fds[1], reinterpret_cast<const void*>(address), size);
  if (sent <= 0) return false;
  // Whatever went in comes out again, so that the pipe is empty for the next read.
  char* bytes = static_cast<char*>(out);
  long received = 0;
  while (received < sent) {
    const ssize_t count = read(_fds[0], bytes + received, static_cast<size_t>(sent - received));
    if (count <= 0) return false;
    received += count;
  }
  return static_cast<size_t>(sent) == size;
}

int WriteFrameChain(int fd, const memory_probe_t& memory, uintptr_t frame, int limit) {
  int lines = 0;
  while (lines < limit && frame != 0 && frame % alignof(uintptr_t) == 0) {
    uintptr_t record[2];  // saved frame pointer, return address
    if (!memory.Read(frame, record, sizeof record)) break;
    WriteHexLine(fd, "frm: ", record[1], 16);
    ++lines;
    // Stacks grow down: the caller's record lies above; anything else is the end or garbage.
    if (record[0] <= frame) break;
    frame = record[0];
  }
  return lines;
}

}  // namespace internal
}  // namespace abstraction
}  // namespace vrex
