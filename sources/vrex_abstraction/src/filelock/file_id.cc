// file_id_t: what makes two paths one file.
#include <errno.h>
#include <sys/stat.h>
#include <sys/vfs.h>

#include "abstraction/filelock.h"
#include "abstraction/logging.h"
#include "errors/errors.h"

namespace vrex {
namespace abstraction {

void file_id_t::Clear() {
  device = 0;
  inode = 0;
  size = 0;
  path.clear();
  fileSystemType = 0;
}

int file_id_t::Init(const std::string& filePath) {
  Clear();
  struct stat info;
  if (stat(filePath.c_str(), &info) != 0) {
    const int err = errno;
    if (err == ENOENT) {
      LOGD << "<-# file_id_t::Init file not found: " << filePath;
      return VREX_ERROR(kFILE_NOT_FOUND);
    }
    LOGE << "<-# file_id_t::Init FAILED! stat() for " << filePath << " failed with errno=" << err;
    return VREX_ERROR(::vrex::errors::SystemError(err));
  }
  struct statfs fsInfo;
  if (statfs(filePath.c_str(), &fsInfo) != 0) {
    const int err = errno;
    LOGE << "<-# file_id_t::Init FAILED! statfs() for " << filePath << " failed with errno=" << err;
    return VREX_ERROR(::vrex::errors::SystemError(err));
  }
  device = info.st_dev;
  inode = info.st_ino;
  size = info.st_size;
  path = filePath;
  fileSystemType = static_cast<long>(fsInfo.f_type);
  return 0;
}

}  // namespace abstraction
}  // namespace vrex
