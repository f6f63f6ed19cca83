// Fast file operations on real file systems: ext4 under /tmp (fallocate and zero range),
// tmpfs (fallocate without zero range, and full), ramfs (no fallocate at all).
#include "abstraction/fastfileoperations.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "abstraction/errors.h"
#include "abstraction/logging.h"
#include "abstraction/write_hook.h"
#include "errors/errors.h"
#include "log_capture.h"
#include "scratch_mount.h"
#include "temp_dir.h"

namespace vrex {
namespace abstraction {
namespace {

using Bytes = std::vector<unsigned char>;
using vidora_testing::LogCapture;
using vidora_testing::ScratchMount;

const int kEINVAL = ::vrex::errors::SystemError(EINVAL);
const int kENOSPC = ::vrex::errors::SystemError(ENOSPC);
const int kEBADF = ::vrex::errors::SystemError(EBADF);

Bytes Pattern(long size, unsigned seed) {
  Bytes bytes(size);
  for (long i = 0; i < size; ++i) bytes[i] = static_cast<unsigned char>((i * 131 + seed) >> 3);
  return bytes;
}

Bytes ReadAllFrom(int fd) {
  struct stat info;
  fstat(fd, &info);
  Bytes bytes(info.st_size);
  EXPECT_EQ(pread(fd, bytes.data(), bytes.size(), 0), ssize_t(bytes.size()));
  return bytes;
}

int OpenWithBytes(const char* path, const Bytes& bytes) {
  const int fd = open(path, O_RDWR | O_CREAT | O_TRUNC, 0644);
  EXPECT_EQ(write(fd, bytes.data(), bytes.size()), ssize_t(bytes.size()));
  return fd;
}

// The folder of the tests on the file system of /tmp (ext4 here), and the warnings they log.
class FastFileOperationsTest : public ::testing::Test {
 protected:
  std::vector<std::string> Warnings() const { return _log.Texts(LOG_LEVEL_WARNING); }

  TempDir _dir;
  LogCapture _log;
};

TEST_F(FastFileOperationsTest, AllocateReservesZerosWithFallocate) {
  const std::string path = _dir.path() + "/a.vrx";
  const long fd = FastAllocateFile(path.c_str(), 3 << 20, 0640);
  ASSERT_GE(fd, 0);
  struct stat info;
  ASSERT_EQ(fstat(fd, &info), 0);
  EXPECT_EQ(info.st_size, 3 << 20);
  EXPECT_GE(info.st_blocks * 512, 3 << 20) << "the blocks are reserved, not a sparse file";
  EXPECT_EQ(info.st_mode & 0777, 0640u);
  EXPECT_EQ(lseek(fd, 0, SEEK_CUR), 0);
  EXPECT_EQ(ReadAllFrom(fd), Bytes(3 << 20, 0));
  close(fd);
  EXPECT_TRUE(Warnings().empty());

  // Sizes fallocate refuses, and a path that cannot be opened.
  EXPECT_EQ(FastAllocateFile(path.c_str(), 0, 0640), kEINVAL);
  EXPECT_EQ(FastAllocateFile(path.c_str(), -4096, 0640), kEINVAL);
  EXPECT_EQ(FastAllocateFile("/tmp/vidora-no-such-dir/x.vrx", 4096, 0640),
            ::vrex::errors::SystemError(ENOENT));
}

TEST_F(FastFileOperationsTest, AllocateWritesZerosWithoutFallocate) {
  ScratchMount ramfs("ramfs", "");
  if (!ramfs.ok()) GTEST_SKIP() << "cannot mount ramfs here";
  const std::string path = ramfs.File("a.vrx");
  // Old bytes in the file must not survive the truncation.
  close(OpenWithBytes(path.c_str(), Pattern(5000, 1)));
  const long size = (9 << 20) + 4096;  // more than two 4 MiB blocks
  long fd = FastAllocateFile(path.c_str(), size, 0600);
  ASSERT_GE(fd, 0);
  EXPECT_EQ(lseek(fd, 0, SEEK_CUR), 0);
  EXPECT_EQ(ReadAllFrom(fd), Bytes(size, 0));
  close(fd);
  ASSERT_EQ(Warnings().size(), 1u);
  EXPECT_NE(Warnings()[0].find("fallocate not supported on the target file system: " + path),
            std::string::npos);

  fd = FastAllocateFile(ramfs.File("b.vrx").c_str(), 1 << 20, 0600);
  ASSERT_GE(fd, 0);
  EXPECT_EQ(ReadAllFrom(fd), Bytes(1 << 20, 0));
  close(fd);
  EXPECT_EQ(Warnings().size(), 1u) << "the warning is given once per process";
  // The kernel refuses a size of 0 before it asks the file system, so the plain writes are
  // never reached with it.
  EXPECT_EQ(FastAllocateFile(ramfs.File("c.vrx").c_str(), 0, 0600), kEINVAL);
}

TEST_F(FastFileOperationsTest, AllocateOnAFullFileSystemFails) {
  ScratchMount tmpfs("tmpfs", "size=1m");
  if (!tmpfs.ok()) GTEST_SKIP() << "cannot mount tmpfs here";
  EXPECT_EQ(FastAllocateFile(tmpfs.File("big.vrx").c_str(), 2 << 20, 0600), kENOSPC);
  ASSERT_TRUE(tmpfs.FillUp("filler"));
  EXPECT_EQ(FastAllocateFile(tmpfs.File("small.vrx").c_str(), 4096, 0600), kENOSPC);
}

TEST_F(FastFileOperationsTest, ZeroRangeTable) {
  struct row_t {
    long offset, length;
    long position;  // of the descriptor before the call
    int result;
    long zeroFrom, zeroTo;  // the range that reads as zeros after it
  };
  const long size = 64 * 1024;
  const row_t rows[] = {
      {4096, 8192, 0, 0, 4096, 12288},
      {-1, 4096, 8192, 0, 8192, 12288},   // from the current position
      {60000, -1, 0, 0, 60000, size},     // to the end
      {0, 0, 0, 0, 0, 0},                 // nothing asked, nothing done
      {size, -1, 0, 0, 0, 0},             // an empty range at the end
      {size + 4, -1, 0, ERR_ABSTRACTION_INVALID_PARAMETERS, 0, 0},
      {0, size + 1, 0, ERR_ABSTRACTION_INVALID_PARAMETERS, 0, 0},
      {size - 4, 8, 0, ERR_ABSTRACTION_INVALID_PARAMETERS, 0, 0},
  };
  const std::string path = _dir.path() + "/a.vrx";
  for (const row_t& row : rows) {
    const Bytes before = Pattern(size, 7);
    const int fd = OpenWithBytes(path.c_str(), before);
    lseek(fd, row.position, SEEK_SET);
    EXPECT_EQ(TryFastZeroFile(fd, row.offset, row.length), row.result) << row.offset << "/" << row.length;
    EXPECT_EQ(lseek(fd, 0, SEEK_CUR), row.position) << "the position stays";
    Bytes want = before;
    std::fill(want.begin() + row.zeroFrom, want.begin() + row.zeroTo, 0);
    EXPECT_EQ(ReadAllFrom(fd), want) << row.offset << "/" << row.length;
    close(fd);
  }
  EXPECT_TRUE(Warnings().empty());
}

TEST_F(FastFileOperationsTest, ZeroRangeIsAWishWhereUnsupported) {
  ScratchMount tmpfs("tmpfs", "size=4m");
  if (!tmpfs.ok()) GTEST_SKIP() << "cannot mount tmpfs here";
  const Bytes before = Pattern(16384, 3);
  const int fd = OpenWithBytes(tmpfs.File("a").c_str(), before);
  EXPECT_EQ(TryFastZeroFile(fd, 0, 8192), 0);
  EXPECT_EQ(TryFastZeroFile(fd, 4096, -1), 0);
  EXPECT_EQ(ReadAllFrom(fd), before) << "tmpfs has no zero range: the bytes stay";
  close(fd);
  ASSERT_EQ(Warnings().size(), 1u);
  EXPECT_NE(Warnings()[0].find("fallocate with FALLOC_FL_ZERO_RANGE not supported"),
            std::string::npos);
}

std::vector<long>& HookedWrites() {
  static std::vector<long> lengths;
  return lengths;
}
void KeepWriteLength(int, long length) { HookedWrites().push_back(length); }

TEST_F(FastFileOperationsTest, CopyTable) {
  struct row_t {
    long dstOffset, srcOffset, length;
    long dstPosition;  // before the call
    int result;
    long copied;       // bytes that land at the destination
  };
  const long size = (9 << 20) + 3;  // three blocks, the last one short and odd
  const row_t rows[] = {
      {0, 0, -1, 0, 0, size},
      {100, 5, 4096, 0, 0, 4096},
      {-1, 0, 1000, 2000, 0, 1000},   // at the current position
      {0, size, -1, 0, 0, 0},         // nothing left to copy
      {0, 0, 0, 0, 0, 0},
      {0, size - 10, 11, 0, ERR_ABSTRACTION_INVALID_PARAMETERS, 0},
      {0, size + 4, -1, 0, ERR_ABSTRACTION_INVALID_PARAMETERS, 0},
      {0, -1, 10, 0, ERR_ABSTRACTION_INVALID_PARAMETERS, 0},
  };
  const std::string srcPath = _dir.path() + "/src", dstPath = _dir.path() + "/dst";
  const Bytes source = Pattern(size, 11);
  const int src = OpenWithBytes(srcPath.c_str(), source);
  for (const row_t& row : rows) {
    const Bytes before = Pattern(size + 200, 99);
    const int dst = OpenWithBytes(dstPath.c_str(), before);
    lseek(dst, row.dstPosition, SEEK_SET);
    HookedWrites().clear();
    internal::SetWriteHook(KeepWriteLength);
    EXPECT_EQ(FastCopyFile(dst, row.dstOffset, src, row.srcOffset, row.length), row.result);
    internal::SetWriteHook(nullptr);
    Bytes want = before;
    const long at = row.dstOffset >= 0 ? row.dstOffset : row.dstPosition;
    if (row.copied > 0) {
      std::copy(source.begin() + row.srcOffset, source.begin() + row.srcOffset + row.copied,
                want.begin() + at);
    }
    EXPECT_EQ(ReadAllFrom(dst), want) << row.srcOffset << "/" << row.length;
    if (row.result == 0) {
      EXPECT_EQ(lseek(dst, 0, SEEK_CUR), at + row.copied);
    }
    long hooked = 0;
    for (long length : HookedWrites()) {
      EXPECT_LE(length, 4 << 20);
      hooked += length;
    }
    EXPECT_EQ(hooked, row.copied) << "every write goes through the hook";
    close(dst);
  }
  EXPECT_EQ(FastCopyFile(-1, 0, src, 0, 1), ERR_ABSTRACTION_INVALID_PARAMETERS);
  EXPECT_EQ(FastCopyFile(src, 0, -1, 0, 1), ERR_ABSTRACTION_INVALID_PARAMETERS);
  // A destination opened for reading only refuses the write.
  const int readOnly = open(dstPath.c_str(), O_RDONLY);
  EXPECT_EQ(FastCopyFile(readOnly, 0, src, 0, 100), kEBADF);
  close(readOnly);
  close(src);
}

TEST_F(FastFileOperationsTest, CopyOntoAFullFileSystemFails) {
  ScratchMount tmpfs("tmpfs", "size=1m");
  if (!tmpfs.ok()) GTEST_SKIP() << "cannot mount tmpfs here";
  const std::string srcPath = _dir.path() + "/src";
  const int src = OpenWithBytes(srcPath.c_str(), Pattern(2 << 20, 5));
  const int dst = open(tmpfs.File("copy").c_str(), O_RDWR | O_CREAT, 0600);
  // The block that does not fit is taken in part, which the copy reports as such.
  EXPECT_EQ(FastCopyFile(dst, 0, src, 0, -1), ERR_ABSTRACTION_WRITE_INCOMPLETE);
  EXPECT_EQ(FastCopyFile(dst, -1, src, 0, 4096), kENOSPC);
  close(dst);
  close(src);
}

}  // namespace
}  // namespace abstraction
}  // namespace vrex
