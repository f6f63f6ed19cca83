// Reserving, zeroing and copying large file ranges. Recording files run to many gigabytes, so
// they are reserved with fallocate where the file system takes it, and written with plain
// writes only where it does not.
//
// Threads: any thread; the functions keep no state but two warn-once flags.
// Errors: a negative code of vrex::abstraction, or an errno code (module 0). Descriptors opened
// here are closed on every failure; the caller's descriptors are left open.
#pragma once

namespace vrex {
namespace abstraction {

// Creates or truncates `path` with `mode` and reserves `size` bytes, which read as zeros.
// Returns an open read-write descriptor at offset 0, which the caller closes, or a negative
// code: the errno of open or fallocate (EINVAL for a size of 0), or, where the file system has
// no fallocate and the bytes are written instead, ERR_ABSTRACTION_INVALID_FILE_SIZE for a size
// below 1.
long FastAllocateFile(const char* path, long size, int mode);

// Asks the file system to zero `length` bytes at `offset` without changing the file's size.
// A negative `offset` means the current position, a negative `length` up to the end of the
// file. A range past the end gives ERR_ABSTRACTION_INVALID_PARAMETERS. Zeroing is a wish, not
// a promise: where the file system cannot zero a range, the bytes stay as they are and the
// result is still 0. The file position is left where it was.
int TryFastZeroFile(int fd, long offset, long length);

// Copies `length` bytes from `src` at `srcOffset` to `dst` at `dstOffset` (negative: the
// current position), through one buffer of at most 4 MiB. A negative `length` copies up to the
// end of `src`. Leaves `dst` positioned after the copied bytes. A range that `src` does not
// hold gives ERR_ABSTRACTION_INVALID_PARAMETERS; a write that does not take the whole block
// ERR_ABSTRACTION_WRITE_INCOMPLETE; a source that shrinks under the copy
// ERR_ABSTRACTION_READ_INCOMPLETE.
int FastCopyFile(int dst, long dstOffset, int src, long srcOffset, long length);

}  // namespace abstraction
}  // namespace vrex
