// The VRX listing functions bound to JavaScript: each checks its arguments, enqueues its task
// on the "Read" pool and returns the task's id.
#pragma once

#include <napi.h>

namespace vrex {
namespace nodejs {
namespace vrxutils {

// (fileName, callback)
Napi::Value callback_vrxFileInfo(const Napi::CallbackInfo& info);
Napi::Value callback_vrxFileListFrames(const Napi::CallbackInfo& info);
Napi::Value callback_vrxFileListPartitions(const Napi::CallbackInfo& info);
// ({ fileName, wallClockStart, wallClockEnd }, callback)
Napi::Value callback_vrxFileListFragments(const Napi::CallbackInfo& info);

}  // namespace vrxutils
}  // namespace nodejs
}  // namespace vrex
