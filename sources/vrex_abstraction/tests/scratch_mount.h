// A small file system mounted for one test: tmpfs to fill up or to make read-only, ramfs for
// a file system without fallocate. Mounting needs root; where the test cannot mount, ok() is
// false and the test skips.
#pragma once

#include <errno.h>
#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace vidora_testing {

class ScratchMount {
 public:
  ScratchMount(const char* type, const char* options) : _type(type), _options(options) {
    char pattern[] = "/tmp/vidora-mount-XXXXXX";
    if (mkdtemp(pattern) == nullptr) return;
    _path = pattern;
    _mounted = mount("none", _path.c_str(), type, 0, options) == 0;
  }
  ~ScratchMount() {
    if (_mounted) umount2(_path.c_str(), MNT_DETACH);
    if (!_path.empty()) rmdir(_path.c_str());
  }
  ScratchMount(const ScratchMount&) = delete;
  ScratchMount& operator=(const ScratchMount&) = delete;

  bool ok() const { return _mounted; }
  std::string File(const std::string& name) const { return _path + "/" + name; }

  bool RemountReadOnly() {
    return mount("none", _path.c_str(), _type.c_str(), MS_REMOUNT | MS_RDONLY,
                 _options.c_str()) == 0;
  }

  // Writes a file of `name` until the file system refuses more: nothing is left after it.
  bool FillUp(const std::string& name) const {
    const int fd = open(File(name).c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd < 0) return false;
    const std::vector<char> block(4096, 'x');
    ssize_t written;
    while ((written = write(fd, block.data(), block.size())) > 0) {
    }
    const bool full = written < 0 && errno == ENOSPC;
    close(fd);
    return full;
  }

 private:
  std::string _type;
  std::string _options;
  std::string _path;
  bool _mounted = false;
};

}  // namespace vidora_testing
