// DataSourceFile: positioned reads on a read-only descriptor; a short read is a failure.
#include "datasource/datasourcefile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "datasource/memory_bytes.h"

namespace vrex {
namespace abstraction {
namespace internal {

namespace {
// One positioned read of exactly `count` bytes: `count`, or the errno code of a failed read,
// or ERR_ABSTRACTION_READ_INCOMPLETE for a short one (which sets no errno).
long ReadExactly(int fd, unsigned char* dst, unsigned long count, long offset) {
  const ssize_t got = pread(fd, dst, count, offset);
  if (got < 0) return VREX_ERROR(errors::SystemError(errno));
  if (static_cast<unsigned long>(got) != count) {
    return VREX_ERROR(ERR_ABSTRACTION_READ_INCOMPLETE);
  }
  return got;
}
}  // namespace

DataSourceFile::~DataSourceFile() {
  if (_fd >= 0) close(_fd);
}

int DataSourceFile::Initialize(const char* path) {
  if (path == nullptr || path[0] == '\0') return VREX_ERROR(ERR_ABSTRACTION_INVALID_PARAMETERS);
  _fd = open(path, O_RDONLY | O_CLOEXEC);
  if (_fd < 0) return VREX_ERROR(errors::SystemError(errno));
  const off_t end = lseek(_fd, 0, SEEK_END);
  if (end < 0 || lseek(_fd, 0, SEEK_SET) < 0) {
    const int err = VREX_ERROR(errors::SystemError(errno));
    close(_fd);
    _fd = -1;
    return err;
  }
  _size = end;
  return 0;
}

long DataSourceFile::Cursor(long pos) {
  _cursor = ClampToSize(pos, Size());
  return _cursor;
}

long DataSourceFile::ReadBuffer(unsigned char* dst, unsigned long count) {
  if (count == 0) return 0;
  const long got = ReadExactly(_fd, dst, count, _cursor);
  if (got < 0) return got;
  _cursor += got;
  return got;
}

const unsigned char* DataSourceFile::PeekBuffer(unsigned char* dst, long offset,
                                                unsigned long count, int& err) {
  err = 0;
  if (dst == nullptr || offset < 0 || offset > Size() ||
      count > static_cast<unsigned long>(Size() - offset)) {
    err = VREX_ERROR(ERR_ABSTRACTION_INVALID_PARAMETERS);
    return nullptr;
  }
  if (count == 0) return dst;
  const long got = ReadExactly(_fd, dst, count, offset);
  if (got < 0) {
    err = got == ERR_ABSTRACTION_READ_INCOMPLETE ? VREX_ERROR(ERR_ABSTRACTION_RANGE_NOT_AVAILABLE)
                                                 : static_cast<int>(got);
    return nullptr;
  }
  return dst;
}

void DataSourceFile::ReadIntegerBytes(unsigned char* dst, unsigned width) {
  const long got = ReadExactly(_fd, dst, width, _cursor);
  VREX_ASSERT(got == static_cast<long>(width))
      << "seek/read failed: _cursor: " << _cursor << "; sizeof (result): " << width;
  _cursor += width;
}

}  // namespace internal
}  // namespace abstraction
}  // namespace vrex
