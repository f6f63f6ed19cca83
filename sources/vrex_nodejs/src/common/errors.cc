// The error texts of module 8. Numbers and texts are fixed: other processes read them.
#include "nodejs/errors.h"

#include "errors/error_table.h"

namespace vrex {
namespace webrtcnodejs {

namespace internal {

const char* GetErrorDescription(uint16_t number) {
  static const char* const kTexts[] = {
    "OK",
    "NodeJS invalid internal state",
    "NodeJS functionality not yet implemented",
    "NodeJS WebRTC connection not found",
    "NodeJS WebRTC channel not found",
    "NodeJS WebRTC channel was closed and sending data over it attempted",
    "NodeJS file sending already in progress",
    "NodeJS file not found or incorrect permissions",
    "NodeJS invalid file offset and length",
    "NodeJS file input/output error",
    "NodeJS invalid STUN server address",
    "NodeJS invalid TURN server address",
    "NodeJS function parameters are incorrect",
    "NodeJS sending operation already in progress",
    "NodeJS sending operation not found",
    "NodeJS output media format not supported",
    "NodeJS no seek points detected in the specified file",
    "NodeJS no MP4 tracks found in the provided fragmented MP4",
    "NodeJS bluetooth management failed on camera side",
    "NodeJS bluetooth management timed out",
    "NodeJS bluetooth platform not supported",
    "NodeJS timestamp not found",
    "NodeJS bluetooth scanning already in progress",
    "NodeJS no remoted SDP available",
    "NodeJS thread priority already set",
    "NodeJS WebRTC stats not available yet",
    "NodeJS transcoder not found",
    "NodeJS transcoder stream not found",
    "NodeJS no gops found on the transcoded stream",
    "NodeJS transcoder is busy and can not service the requested operation",
    "NodeJS transcoder is closed",
    "NodeJS operation timed out",
    "NodeJS libUv error",
    "NodeJS invalid URI provided",
    "NodeJS libuv failed to establish TCP/UNIX connection",
    "NodeJS operation is not a bridge",
    "unknown"};
  return ::vrex::errors::DescribeFromTable(kTexts, number);
}

}  // namespace internal

namespace {
::vrex::errors::InitErrors registration(8, internal::GetErrorDescription);
}  // namespace

int InitializeErrorCodes() { return 0; }

}  // namespace webrtcnodejs
}  // namespace vrex
