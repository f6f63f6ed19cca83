// A fresh folder under /tmp for one test, removed with everything in it at the end.
#pragma once

#include <stdlib.h>

#include <cstdlib>
#include <fstream>
#include <string>

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

  // Writes `content` to a new file in the folder and returns its path.
  std::string File(const std::string& name, const std::string& content = "") const {
    const std::string path = _path + "/" + name;
    std::ofstream(path) << content;
    return path;
  }
  const std::string& path() const { return _path; }

 private:
  std::string _path;
};

}  // namespace abstraction
}  // namespace vrex
