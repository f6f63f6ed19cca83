// The crash handler's own stack walk: backtrace() cannot pass a corrupted or hand-written
// frame, so the chain of frame records (saved frame pointer, then return address) is
// followed by hand, through reads that cannot fault.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vrex {
namespace abstraction {
namespace internal {

// Reads memory that may be unmapped or protected without faulting: the bytes travel through
// a pipe made in advance, and the kernel answers EFAULT where a plain load would fault again
// inside the crash handler. Reads from two threads at once may mix their bytes.
class memory_probe_t {
 public:
  // Makes the pipe. Returns 0 or the errno code.
  int Open();
  void Close();
  bool IsOpen() const { return _fds[0] >= 0; }

  // Copies `size` bytes (at most PIPE_BUF) from `address` into `out`. False when any of them
  // cannot be read. Async-signal-safe.
  bool Read(uintptr_t address, void* out, size_t size) const;

 private:
  int _fds[2] = {-1, -1};
};

// Follows the frame records from `frame` and writes a "frm: " line with the return address
// of each one to `fd`. Stops at a null frame pointer, at one that does not grow or is not
// aligned, at a record that cannot be read, or after `limit` lines. Returns the lines
// written. Async-signal-safe.
int WriteFrameChain(int fd, const memory_probe_t& memory, uintptr_t frame, int limit);

}  // namespace internal
}  // namespace abstraction
}  // namespace vrex
