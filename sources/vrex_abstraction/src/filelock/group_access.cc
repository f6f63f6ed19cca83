// Opening a recording to the group of the service's processes.
#include <errno.h>
#include <grp.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vector>

#include "abstraction/filelock.h"
#include "abstraction/logging.h"

namespace vrex {
namespace abstraction {

const char* groupName = "dorvi-streaming";

bool SetFileGroupAccess(const char* file) {
  struct group entry;
  struct group* found = nullptr;
  std::vector<char> buffer(16384);
  if (getgrnam_r(groupName, &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr) {
    if (chown(file, static_cast<uid_t>(-1), found->gr_gid) != 0) {
      LOGE << "<-# SetFileGroupAccess FAILED! chown() for " << file << " reason: " << strerror(errno);
      return false;
    }
  }
  if (chmod(file, 0660) != 0) {
    LOGE << "<-# SetFileGroupAccess FAILED! chmod() for " << file << " reason: " << strerror(errno);
    return false;
  }
  return true;
}

}  // namespace abstraction
}  // namespace vrex
