// A fresh folder under /tmp for one test, removed with everything in it at the end.
#pragma once

#include <stdlib.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace vrex {
namespace abstraction {

class TempDir {
 public:
  TempDir() {
    char pattern[] = "/tmp/vidora-abstraction-XXXXXX";
    _path = mkdtemp(pattern);
  }
  ~TempDir() { std::system(("rm -rf '" + _path + "'").c_str()); }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  // Writes `content` to the file `name` in the folder, in place of what it held (same inode,
  // as another writer would), and returns its path.
  std::string File(const std::string& name, const std::string& content = std::string()) const {
    const std::string path = _path + "/" + name;
    std::ofstream(path, std::ios::binary) << content;
    return path;
  }
  std::string File(const std::string& name, const std::vector<unsigned char>& bytes) const {
    return File(name, std::string(bytes.begin(), bytes.end()));
  }
  const std::string& path() const { return _path; }

  // The whole content of the file at `path`.
  static std::string Read(const std::string& path) {
    std::stringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.str();
  }

 private:
  std::string _path;
};

}  // namespace abstraction
}  // namespace vrex
