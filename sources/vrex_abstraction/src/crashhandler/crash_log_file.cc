// Rolling the crash log and writing what is known at installation.
#include "crashhandler/crash_log_file.h"

#include <errno.h>
#include <fcntl.h>
#include <grp.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cstdio>

#include "abstraction/filelock.h"
#include "abstraction/logging.h"
#include "crashhandler/crash_output.h"
#include "errors/errors.h"

namespace vrex {
namespace abstraction {
namespace internal {

namespace {

constexpr char kSlotDigits[] = "0123456789";
constexpr int kSlots = 10;

std::string Slot(const std::string& name, int index) {
  return index == 0 ? name : name + "." + kSlotDigits[index];
}

// Lets the other processes of the service read the log; a failure is only told.
void GiveToServiceGroup(const std::string& name) {
  const group* entry = getgrnam(groupName);
  if (entry == nullptr) return;
  if (chown(name.c_str(), static_cast<uid_t>(-1), entry->gr_gid) != 0) {
    fprintf(stderr, "Failed to change group ownership of %s to %s\n", name.c_str(), groupName);
  }
}

int WriteAll(int fd, const void* data, size_t length) {
  if (WriteFully(fd, data, length) < 0) return VREX_ERROR(::vrex::errors::SystemError(errno));
  return 0;
}

int CopyMemoryMap(int fd) {
  const int maps = open("/proc/self/maps", O_RDONLY | O_CLOEXEC);
  if (maps < 0) return VREX_ERROR(::vrex::errors::SystemError(errno));
  struct stat info;
  struct statfs fileSystem;
  int result = 0;
  if (fstat(maps, &info) != 0 || fstatfs(maps, &fileSystem) != 0) {
    result = VREX_ERROR(::vrex::errors::SystemError(errno));
  } else {
    LOGD << "    crash log: memory map from dev=" << info.st_dev << " ino=" << info.st_ino
         << " fs=0x" << std::hex << fileSystem.f_type;
  }
  char block[1024];
  while (result == 0) {
    const ssize_t count = read(maps, block, sizeof block);
    if (count == 0) break;
    if (count < 0) {
      if (errno == EINTR) continue;
      result = VREX_ERROR(::vrex::errors::SystemError(errno));
    } else {
      result = WriteAll(fd, block, static_cast<size_t>(count));
    }
  }
  close(maps);
  return result;
}

}  // namespace

int RollFile_UNSAFE(const std::string& name) {
  for (int index = kSlots - 2; index >= 0; --index) {
    rename(Slot(name, index).c_str(), Slot(name, index + 1).c_str());
  }
  const int fd = open(name.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0660);
  if (fd < 0) {
    const int code = VREX_ERROR(::vrex::errors::SystemError(errno));
    LOGE << "<-# RollFile_UNSAFE FAILED! open() of " << name << " err=" << code;
    return code;
  }
  GiveToServiceGroup(name);
  return fd;
}

int WriteCrashLogHead_UNSAFE(int fd, const std::string& version) {
  timeval now;
  gettimeofday(&now, nullptr);
  char head[96];
  const int length = snprintf(head, sizeof head, "pid: %ld\nstart timestamp: %lu\nversion: ",
                              static_cast<long>(getpid()), static_cast<unsigned long>(now.tv_sec));
  VREX_CHECK(WriteAll(fd, head, static_cast<size_t>(length)));
  VREX_CHECK(WriteAll(fd, version.data(), version.size()));
  VREX_CHECK(WriteAll(fd, "\n", 1));
  return CopyMemoryMap(fd);
}

}  // namespace internal
}  // namespace abstraction
}  // namespace vrex
