// DataSourceFile: positioned reads through the window; a short read is a failure.
#include "datasource/datasourcefile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "datasource/memory_bytes.h"

namespace vrex {
namespace abstraction {
namespace internal {

namespace {
// The size of the file open on `fd`, or the errno code.
long EndOf(int fd) {
  const off_t end = lseek(fd, 0, SEEK_END);
  return end < 0 ? VREX_ERROR(errors::SystemError(errno)) : static_cast<long>(end);
}
}  // namespace

DataSourceFile::DataSourceFile(ReadAheadWindow* window)
    : _ownWindow(window == nullptr ? new ReadAheadWindow() : nullptr),
      _window(window == nullptr ? _ownWindow.get() : window) {}

DataSourceFile::~DataSourceFile() {
  if (_fd >= 0) close(_fd);
}

int DataSourceFile::Initialize(const char* path) {
  if (path == nullptr || path[0] == '\0') return VREX_ERROR(ERR_ABSTRACTION_INVALID_PARAMETERS);
  _fd = open(path, O_RDONLY | O_CLOEXEC);
  if (_fd < 0) return VREX_ERROR(errors::SystemError(errno));
  const long end = EndOf(_fd);
  if (end < 0 || lseek(_fd, 0, SEEK_SET) < 0) {
    const int err = end < 0 ? static_cast<int>(end) : VREX_ERROR(errors::SystemError(errno));
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
  const long got = _window->Read(_fd, _cursor, dst, count);
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
  const long got = _window->Read(_fd, offset, dst, count);
  if (got < 0) {
    err = got == ERR_ABSTRACTION_READ_INCOMPLETE ? VREX_ERROR(ERR_ABSTRACTION_RANGE_NOT_AVAILABLE)
                                                 : static_cast<int>(got);
    return nullptr;
  }
  return dst;
}

int DataSourceFile::DropReadAhead() {
  _window->Drop();
  if (_fd < 0) return 0;
  const long end = EndOf(_fd);
  if (end < 0) return static_cast<int>(end);
  _size = end;
  _cursor = ClampToSize(_cursor, _size);
  return 0;
}

void DataSourceFile::ReadIntegerBytes(unsigned char* dst, unsigned width) {
  const long got = _window->Read(_fd, _cursor, dst, width);
  VREX_ASSERT(got == static_cast<long>(width))
      << "seek/read failed: _cursor: " << _cursor << "; sizeof (result): " << width;
  _cursor += width;
}

}  // namespace internal
}  // namespace abstraction
}  // namespace vrex
