// TaskVRXFileCreate.
#include "vrxutils/task_vrx_file_create.h"

#include "mediaformats/vrx/vrex_file_utils.h"

namespace vrex {
namespace nodejs {
namespace vrxutils {

namespace {
// Owner and group may read and write, others nothing.
constexpr int kFileMode = 0640;
}  // namespace

TaskVRXFileCreate::TaskVRXFileCreate(Napi::Env& env, long id, const std::string& fileName,
                                     long size, const common::async_callback_info_t& completion)
    : Task(env, id, "vrxFileCreate", "Write", false, -1, completion), _fileName(fileName), _size(size) {}

int TaskVRXFileCreate::SignalWork() {
  return mediaformats::VREXFileUtils::VRXFileCreate(_fileName, _size, kFileMode);
}

}  // namespace vrxutils
}  // namespace nodejs
}  // namespace vrex
