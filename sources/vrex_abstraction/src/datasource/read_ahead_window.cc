// ReadAheadWindow: walks of following reads, fills that grow along a walk, the direct path.
#include "datasource/read_ahead_window.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "abstraction/errors.h"
#include "abstraction/logging.h"

namespace vrex {
namespace abstraction {
namespace internal {

namespace {
// One positioned read of exactly `count` bytes: `count`, the errno code of a failed read, or
// ERR_ABSTRACTION_READ_INCOMPLETE for a short one (which sets no errno).
long ReadExactly(int fd, unsigned char* dst, unsigned long count, long offset) {
  const ssize_t got = pread(fd, dst, count, offset);
  if (got < 0) return VREX_ERROR(errors::SystemError(errno));
  if (static_cast<unsigned long>(got) != count) {
    return VREX_ERROR(ERR_ABSTRACTION_READ_INCOMPLETE);
  }
  return got;
}

unsigned long RoundUp(unsigned long value, unsigned long step) {
  return (value + step - 1) / step * step;
}
}  // namespace

long ReadAheadWindow::Read(int fd, long offset, unsigned char* dst, unsigned long count) {
  if (count == 0) return 0;
  const bool follows = fd == _lastFd && offset > _lastOffset &&
                       offset <= _lastEnd + static_cast<long>(_fillSize);
  if (!follows) {
    _walkStart = offset;
    _fillSize = kMinFill;
  }
  _lastFd = fd;
  _lastOffset = offset;
  _lastEnd = offset + static_cast<long>(count);

  unsigned long done = 0;
  if (fd == _fd && offset >= _start && offset < _start + _length) {
    done = std::min(count, static_cast<unsigned long>(_start + _length - offset));
    memcpy(dst, _buffer.get() + (offset - _start), done);
  }
  if (done == count) return static_cast<long>(count);
  const long at = offset + static_cast<long>(done);
  const unsigned long rest = count - done;
  if (rest >= kDirectRead || _lastEnd - _walkStart < static_cast<long>(kMinFill)) {
    const long got = ReadExactly(fd, dst + done, rest, at);
    return got < 0 ? got : static_cast<long>(count);
  }
  const long held = Fill(fd, at, rest);
  if (held < 0) return held;
  if (static_cast<unsigned long>(held) < rest) return VREX_ERROR(ERR_ABSTRACTION_READ_INCOMPLETE);
  memcpy(dst + done, _buffer.get() + (at - _start), rest);
  return static_cast<long>(count);
}

long ReadAheadWindow::Fill(int fd, long offset, unsigned long wanted) {
  if (!_buffer) {
    void* memory = nullptr;
    const int failed = posix_memalign(&memory, kAlignment, kMaxFill);
    VREX_ASSERT(failed == 0) << "read-ahead buffer of " << kMaxFill << " bytes: " << failed;
    _buffer.reset(static_cast<unsigned char*>(memory));
  }
  const long start = offset - offset % static_cast<long>(kAlignment);
  const unsigned long lead = static_cast<unsigned long>(offset - start);
  const unsigned long size = std::max(_fillSize, RoundUp(lead + wanted, kAlignment));
  _fillSize = std::min(_fillSize * 2, kMaxFill);
  _fd = -1;
  _length = 0;
  const ssize_t got = pread(fd, _buffer.get(), size, start);
  if (got < 0) return VREX_ERROR(errors::SystemError(errno));
  _fd = fd;
  _start = start;
  _length = got;
  return std::max(0L, _length - static_cast<long>(lead));
}

void ReadAheadWindow::Drop() {
  _fd = -1;
  _length = 0;
  _lastFd = -1;
  _fillSize = kMinFill;
}

}  // namespace internal
}  // namespace abstraction
}  // namespace vrex
