// DataSource: the byte source under all container code. A cursor, block reads and
// big-endian integer reads over a file, several files as one, a growable memory queue or a
// window on caller memory.
//
// Ownership: every instance comes from GetInstance and is released with FreeInstance.
// Threads: an instance has no lock; it belongs to one thread at a time.
// Errors: functions returning long give a count (>= 0) or a negative code of vrex::abstraction
// (or an errno code, module 0). ReadUIntN cannot report a failure: a read past the end is a
// fatal log record and an abort, so callers check Available() (or the size) first.
//
// Files and read-ahead: the file kinds read through a window of up to 256 KiB that they fill
// with one large read, so a walk forward in small steps is served from memory. The bytes in
// the window and the file sizes are those of the moment they were read: between two calls of
// DropReadAhead a change that another writer makes to a file may go unseen (bytes read as
// they were, growth not seen, a truncation not noticed). That is sound while the caller holds
// its file locks, as every change takes them exclusively; a caller that released its locks
// and took them again must call DropReadAhead before it reads on, and so must a caller that
// wrote to the file itself (through another descriptor) before it reads what it wrote.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vrex {
namespace abstraction {

class DataSource {
 public:
  virtual ~DataSource() = default;

  // Where the file under the cursor starts in a concatenation of files; 0 for other kinds.
  virtual long MultifileBaseOffset() const = 0;
  virtual long Cursor() const = 0;
  // Clamps `pos` to 0..Size(), stores it and returns it; never fails. A caller detects a
  // failed seek by comparing the result with what it asked for.
  virtual long Cursor(long pos) = 0;
  virtual long Size() const = 0;
  // Memory queue: forgets the content, keeps the buffer. Other kinds: nothing.
  virtual void Clear() = 0;
  // Memory queue: moves the unread bytes to the front when they do not overlap the read
  // ones. Returns the unread count (0 for other kinds).
  virtual long Optimize() = 0;
  // Reads exactly `count` bytes at the cursor and advances it. A short read is a failure that
  // leaves the cursor where it was. Returns `count` or a negative code.
  virtual long ReadBuffer(unsigned char* dst, unsigned long count) = 0;
  // Reads `count` bytes at `offset` without moving the cursor. The memory kinds return a
  // pointer into their memory (and copy to `dst` when it is not null), valid until the next
  // change of the source; the file kinds need `dst`. Null with `err` set on failure.
  virtual const unsigned char* PeekBuffer(unsigned char* dst, long offset, unsigned long count,
                                          int& err) = 0;
  // Memory queue only: appends at the back, leaving the cursor. Returns the count appended
  // (the low 31 bits of `count`), or ERR_ABSTRACTION_PUT_NOT_SUPPORTED on the read-only kinds.
  virtual long AppendBufferNonBlocking(const void* src, unsigned long count) = 0;
  // Memory queue only: moves min(count, src->Available()) bytes from `src`'s cursor.
  virtual long AppendDataSourceNonBlocking(DataSource* src, unsigned long count) = 0;
  virtual uint8_t ReadUInt8() = 0;
  virtual uint16_t ReadUInt16() = 0;
  virtual uint32_t ReadUInt32() = 0;
  virtual uint64_t ReadUInt64() = 0;
  // File kinds: forgets what was read ahead and takes the file sizes anew, so that the next
  // reads see the files as they now are; a cursor past a new, smaller end moves to it, and in
  // a concatenation the files' base offsets follow their new sizes. Memory kinds: nothing.
  // Returns 0, or the errno code of a size that could not be taken (that size then stays).
  virtual int DropReadAhead() = 0;

  // Size() - Cursor(); asserts that the cursor is not past the end.
  long Available() const;

  // A memory queue holding `size` zero bytes, all published (none for size < 1).
  static DataSource* GetInstance(long size);
  // A read-only window on the caller's memory, which must outlive it. `err` is untouched.
  static DataSource* GetInstance(const void* data, unsigned long size, int& err);
  // A read-only file; the size is taken at open and by DropReadAhead. `flag` has no effect.
  static DataSource* GetInstance(const char* path, bool flag, int& err);
  static DataSource* GetInstance(const char* path, int& err);
  // Files read as one long file; files empty at open are left out, even once they grow.
  static DataSource* GetInstance(const std::vector<std::string>& paths, bool flag, int& err);
  static DataSource* GetInstance(const std::vector<std::string>& paths, int& err);
  // Accepts null.
  static void FreeInstance(DataSource* source);
};

}  // namespace abstraction
}  // namespace vrex
