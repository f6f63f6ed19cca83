// FastAllocateFile, TryFastZeroFile and FastCopyFile: fallocate where the file system takes
// it, plain 4 MiB writes where it does not.
#include "abstraction/fastfileoperations.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <memory>
#include <new>

#include "abstraction/datasource.h"
#include "abstraction/errors.h"
#include "abstraction/logging.h"
#include "abstraction/write_hook.h"
#include "errors/errors.h"

namespace vrex {
namespace abstraction {

namespace internal {
write_hook_t writeHook = nullptr;
}  // namespace internal

namespace {

constexpr long kBlockSize = 0x400000;  // the one unit of plain writes and copies
constexpr int kZeroRangeKeepSize = FALLOC_FL_ZERO_RANGE | FALLOC_FL_KEEP_SIZE;  // 0x11

// Only there to warn once per process about a file system that lacks the call.
std::atomic<bool> zeroRangeSupported{true};
std::atomic<bool> fallocateSupported{true};

int SystemFailure(int err) { return VREX_ERROR(::vrex::errors::SystemError(err)); }

int OpenForAllocation(const char* path, int mode) {
  const int fd = open(path, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, mode);
  if (fd < 0) {
    const int err = errno;
    LOGE << "<-# FastAllocateFile FAILED! Failed to open file: " << path
         << " error: " << strerror(err);
    return SystemFailure(err);
  }
  return fd;
}

ssize_t ReadRetrying(int fd, unsigned char* buffer, size_t count) {
  ssize_t done;
  do {
    done = read(fd, buffer, count);
  } while (done < 0 && errno == EINTR);
  return done;
}

ssize_t WriteRetrying(int fd, const unsigned char* buffer, size_t count) {
  ssize_t done;
  do {
    done = write(fd, buffer, count);
  } while (done < 0 && errno == EINTR);
  if (done > 0) internal::AfterWrite(fd, done);
  return done;
}

// Writes `size` zero bytes from the start of `path`: for file systems without fallocate.
long FastAllocateFileTraditional(const char* path, long size, int mode) {
  if (size < 1) return VREX_ERROR(ERR_ABSTRACTION_INVALID_FILE_SIZE);
  const int fd = OpenForAllocation(path, mode);
  if (fd < 0) return fd;
  std::unique_ptr<DataSource, void (*)(DataSource*)> zeros(DataSource::GetInstance(kBlockSize),
                                                          DataSource::FreeInstance);
  int err = 0;
  const unsigned char* block = zeros->PeekBuffer(nullptr, 0, kBlockSize, err);
  if (block == nullptr) {
    close(fd);
    return VREX_ERROR(ERR_ABSTRACTION_RANGE_NOT_AVAILABLE);
  }
  for (long left = size; left > 0;) {
    const ssize_t written = WriteRetrying(fd, block, static_cast<size_t>(std::min(left, kBlockSize)));
    if (written <= 0) {
      const int code = written < 0 ? SystemFailure(errno)
                                   : VREX_ERROR(ERR_ABSTRACTION_WRITE_INCOMPLETE);
      close(fd);
      return code;
    }
    left -= written;
  }
  if (lseek(fd, 0, SEEK_SET) != 0) {
    const int code = SystemFailure(errno);
    close(fd);
    return code;
  }
  return fd;
}

}  // namespace

long FastAllocateFile(const char* path, long size, int mode) {
  const int fd = OpenForAllocation(path, mode);
  if (fd < 0) return fd;
  if (fallocate(fd, 0, 0, size) == 0) return fd;
  const int err = errno;
  close(fd);
  if (err != EOPNOTSUPP) return SystemFailure(err);
  if (fallocateSupported.exchange(false)) {
    LOGW << "fallocate not supported on the target file system: " << path;
  }
  return FastAllocateFileTraditional(path, size, mode);
}

int TryFastZeroFile(int fd, long offset, long length) {
  if (length == 0) return 0;
  if (offset < 0) {
    offset = lseek(fd, 0, SEEK_CUR);
    if (offset < 0) return SystemFailure(errno);
  }
  struct stat info;
  if (fstat(fd, &info) != 0) return SystemFailure(errno);
  const long size = info.st_size;
  if (length < 0) length = size - offset;
  if (length < 0 || offset > size || length > size - offset) {
    return VREX_ERROR(ERR_ABSTRACTION_INVALID_PARAMETERS);
  }
  if (length == 0 || fallocate(fd, kZeroRangeKeepSize, offset, length) == 0) return 0;
  const int err = errno;
  if (err != EOPNOTSUPP) return SystemFailure(err);
  if (zeroRangeSupported.exchange(false)) {
    LOGW << "fallocate with FALLOC_FL_ZERO_RANGE not supported on the target file system";
  }
  return 0;
}

int FastCopyFile(int dst, long dstOffset, int src, long srcOffset, long length) {
  if (dst < 0 || src < 0 || srcOffset < 0) return VREX_ERROR(ERR_ABSTRACTION_INVALID_PARAMETERS);
  const long size = lseek(src, 0, SEEK_END);
  if (size < 0) return SystemFailure(errno);
  if (length < 0) length = size - srcOffset;
  if (length < 0 || srcOffset > size || length > size - srcOffset) {
    return VREX_ERROR(ERR_ABSTRACTION_INVALID_PARAMETERS);
  }
  if (dstOffset >= 0 && lseek(dst, dstOffset, SEEK_SET) != dstOffset) return SystemFailure(errno);
  if (lseek(src, srcOffset, SEEK_SET) != srcOffset) return SystemFailure(errno);
  if (length == 0) return 0;
  const size_t blockSize = static_cast<size_t>(std::min(length, kBlockSize));
  std::unique_ptr<unsigned char[]> block(new (std::nothrow) unsigned char[blockSize]);
  if (!block) return VREX_ERROR(ERR_ABSTRACTION_RANGE_NOT_AVAILABLE);
  for (long left = length; left > 0;) {
    const ssize_t got = ReadRetrying(src, block.get(), static_cast<size_t>(std::min<long>(left, blockSize)));
    if (got < 0) return SystemFailure(errno);
    // The range was checked against the size: no bytes means the source shrank meanwhile.
    if (got == 0) return VREX_ERROR(ERR_ABSTRACTION_READ_INCOMPLETE);
    const ssize_t written = WriteRetrying(dst, block.get(), static_cast<size_t>(got));
    if (written < 0) return SystemFailure(errno);
    if (written != got) return VREX_ERROR(ERR_ABSTRACTION_WRITE_INCOMPLETE);
    left -= got;
  }
  return 0;
}

}  // namespace abstraction
}  // namespace vrex
