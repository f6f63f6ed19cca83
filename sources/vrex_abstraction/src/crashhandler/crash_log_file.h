// The crash log's file, made at installation. "_UNSAFE": the caller holds the crash
// handler's mutex.
#pragma once

#include <string>

namespace vrex {
namespace abstraction {
namespace internal {

// Moves <name>.8 to <name>.9 and so on down to <name> to <name>.1 (the old <name>.9 is lost,
// a missing slot is passed over), then opens a new empty <name> for writing, mode 0660, and
// gives it to the group "dorvi-streaming" when that group exists. Returns the descriptor, or
// the errno code of the open.
int RollFile_UNSAFE(const std::string& name);

// Writes "pid: ...\nstart timestamp: ...\nversion: <version>\n" and then the bytes of
// /proc/self/maps to `fd`. Returns 0 or the errno code.
int WriteCrashLogHead_UNSAFE(int fd, const std::string& version);

}  // namespace internal
}  // namespace abstraction
}  // namespace vrex
