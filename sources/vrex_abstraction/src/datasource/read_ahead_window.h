// ReadAheadWindow: the one buffer through which the file kinds read. Once reads show a forward
// walk, it holds a stretch of one file, read with one large positioned read from a page
// boundary, so that a walk in small steps (a packet header, its payload, the next header)
// costs about one system call per stretch instead of one or two per step.
//
// A read "follows" the one before when it starts after that one's start and at most one
// stretch beyond its end; reads that follow one another make a walk. The window is filled
// only once a walk has covered 16 KiB; until then, and after any jump, a read fetches exactly
// its own bytes. So a partition walk, which hops from header to footer to seek table and
// reads a few packet headers on from a seek point, reads what it looks at and no frame data.
// The stretch starts at 16 KiB and doubles with each fill of one walk, up to 256 KiB. Large
// reads that the window does not already hold go straight into the caller's memory. What the
// window holds is the file as it was when it was read: Drop() is the only way to see later
// changes.
#pragma once

#include <cstdlib>
#include <memory>

namespace vrex {
namespace abstraction {
namespace internal {

class ReadAheadWindow {
 public:
  static constexpr unsigned long kAlignment = 4096;
  static constexpr unsigned long kMinFill = 16 * 1024;
  static constexpr unsigned long kMaxFill = 256 * 1024;
  // A read of at least this many bytes beyond what the window holds skips the window: one
  // system call either way, and no second copy.
  static constexpr unsigned long kDirectRead = 64 * 1024;

  ReadAheadWindow() = default;
  ReadAheadWindow(const ReadAheadWindow&) = delete;
  ReadAheadWindow& operator=(const ReadAheadWindow&) = delete;

  // Copies the `count` bytes at `offset` of the file open on `fd` to `dst`. Returns `count`,
  // the errno code of a failed read, or ERR_ABSTRACTION_READ_INCOMPLETE when the file ends
  // first; nothing less than `count` is a success.
  long Read(int fd, long offset, unsigned char* dst, unsigned long count);

  // Forgets what is held and the walk so far. The buffer is kept for the next fill.
  void Drop();

 private:
  struct FreeDeleter {
    void operator()(unsigned char* buffer) const { free(buffer); }
  };

  // Reads a stretch of `fd` from the page that holds `offset`, at least `wanted` bytes from
  // `offset` on unless the file ends first. Returns the byte count held from `offset` on, or
  // the errno code.
  long Fill(int fd, long offset, unsigned long wanted);

  std::unique_ptr<unsigned char, FreeDeleter> _buffer;  // kMaxFill bytes, page-aligned, lazily
  int _fd = -1;      // whose bytes are held; -1 when nothing is
  long _start = 0;   // file offset of _buffer[0]
  long _length = 0;  // bytes held
  // The walk: where it began, and its last read, [_lastOffset, _lastEnd) of _lastFd.
  long _walkStart = 0;
  int _lastFd = -1;
  long _lastOffset = 0;
  long _lastEnd = 0;
  unsigned long _fillSize = kMinFill;  // of the next fill
};

static_assert(ReadAheadWindow::kDirectRead + ReadAheadWindow::kAlignment <= ReadAheadWindow::kMaxFill,
              "a read that is not sent straight to the caller fits in one full fill");

}  // namespace internal
}  // namespace abstraction
}  // namespace vrex
