// Error codes of module 8 (vrex::webrtcnodejs); their texts stand in errors.cc beside the module's sources.
#pragma once

#include "errors/errors.h"

namespace vrex {
namespace webrtcnodejs {

constexpr uint16_t kErrorModule = 8;

enum : int {
  ERR_NODEJS_INVALID_STATE = ::vrex::errors::MakeError(8, 1),  // "NodeJS invalid internal state"
  ERR_NODEJS_NOT_IMPLEMENTED = ::vrex::errors::MakeError(8, 2),  // "NodeJS functionality not yet implemented"
  ERR_NODEJS_WEBRTC_CONNECTION_NOT_FOUND = ::vrex::errors::MakeError(8, 3),  // "NodeJS WebRTC connection not found"
  ERR_NODEJS_WEBRTC_CHANNEL_NOT_FOUND = ::vrex::errors::MakeError(8, 4),  // "NodeJS WebRTC channel not found"
  ERR_NODEJS_WEBRTC_CHANNEL_CLOSED = ::vrex::errors::MakeError(8, 5),  // "NodeJS WebRTC channel was closed and sending data over it attempted"
  ERR_NODEJS_FILE_SENDING_IN_PROGRESS = ::vrex::errors::MakeError(8, 6),  // "NodeJS file sending already in progress"
  ERR_NODEJS_FILE_NOT_FOUND = ::vrex::errors::MakeError(8, 7),  // "NodeJS file not found or incorrect permissions"
  ERR_NODEJS_INVALID_FILE_RANGE = ::vrex::errors::MakeError(8, 8),  // "NodeJS invalid file offset and length"
  ERR_NODEJS_FILE_IO = ::vrex::errors::MakeError(8, 9),  // "NodeJS file input/output error"
  ERR_NODEJS_INVALID_STUN_ADDRESS = ::vrex::errors::MakeError(8, 10),  // "NodeJS invalid STUN server address"
  ERR_NODEJS_INVALID_TURN_ADDRESS = ::vrex::errors::MakeError(8, 11),  // "NodeJS invalid TURN server address"
  ERR_NODEJS_INVALID_PARAMETERS = ::vrex::errors::MakeError(8, 12),  // "NodeJS function parameters are incorrect"
  ERR_NODEJS_OPERATION_IN_PROGRESS = ::vrex::errors::MakeError(8, 13),  // "NodeJS sending operation already in progress"
  ERR_NODEJS_OPERATION_NOT_FOUND = ::vrex::errors::MakeError(8, 14),  // "NodeJS sending operation not found"
  ERR_NODEJS_OUTPUT_FORMAT_NOT_SUPPORTED = ::vrex::errors::MakeError(8, 15),  // "NodeJS output media format not supported"
  ERR_NODEJS_NO_SEEK_POINTS = ::vrex::errors::MakeError(8, 16),  // "NodeJS no seek points detected in the specified file"
  ERR_NODEJS_NO_MP4_TRACKS = ::vrex::errors::MakeError(8, 17),  // "NodeJS no MP4 tracks found in the provided fragmented MP4"
  ERR_NODEJS_BLUETOOTH_FAILED = ::vrex::errors::MakeError(8, 18),  // "NodeJS bluetooth management failed on camera side"
  ERR_NODEJS_BLUETOOTH_TIMEOUT = ::vrex::errors::MakeError(8, 19),  // "NodeJS bluetooth management timed out"
  ERR_NODEJS_BLUETOOTH_UNSUPPORTED = ::vrex::errors::MakeError(8, 20),  // "NodeJS bluetooth platform not supported"
  ERR_NODEJS_TIMESTAMP_NOT_FOUND = ::vrex::errors::MakeError(8, 21),  // "NodeJS timestamp not found"
  ERR_NODEJS_BLUETOOTH_SCAN_IN_PROGRESS = ::vrex::errors::MakeError(8, 22),  // "NodeJS bluetooth scanning already in progress"
  ERR_NODEJS_NO_REMOTE_SDP = ::vrex::errors::MakeError(8, 23),  // "NodeJS no remoted SDP available"
  ERR_NODEJS_THREAD_PRIORITY_SET = ::vrex::errors::MakeError(8, 24),  // "NodeJS thread priority already set"
  ERR_NODEJS_WEBRTC_STATS_NOT_READY = ::vrex::errors::MakeError(8, 25),  // "NodeJS WebRTC stats not available yet"
  ERR_NODEJS_TRANSCODER_NOT_FOUND = ::vrex::errors::MakeError(8, 26),  // "NodeJS transcoder not found"
  ERR_NODEJS_TRANSCODER_STREAM_NOT_FOUND = ::vrex::errors::MakeError(8, 27),  // "NodeJS transcoder stream not found"
  ERR_NODEJS_NO_GOPS = ::vrex::errors::MakeError(8, 28),  // "NodeJS no gops found on the transcoded stream"
  ERR_NODEJS_TRANSCODER_BUSY = ::vrex::errors::MakeError(8, 29),  // "NodeJS transcoder is busy and can not service the requested operation"
  ERR_NODEJS_TRANSCODER_CLOSED = ::vrex::errors::MakeError(8, 30),  // "NodeJS transcoder is closed"
  ERR_NODEJS_OPERATION_TIMED_OUT = ::vrex::errors::MakeError(8, 31),  // "NodeJS operation timed out"
  ERR_NODEJS_LIBUV = ::vrex::errors::MakeError(8, 32),  // "NodeJS libUv error"
  ERR_NODEJS_INVALID_URI = ::vrex::errors::MakeError(8, 33),  // "NodeJS invalid URI provided"
  ERR_NODEJS_CONNECT_FAILED = ::vrex::errors::MakeError(8, 34),  // "NodeJS libuv failed to establish TCP/UNIX connection"
  ERR_NODEJS_NOT_A_BRIDGE = ::vrex::errors::MakeError(8, 35),  // "NodeJS operation is not a bridge"
};

// Pulls this module's registration into the link. Returns 0.
int InitializeErrorCodes();

namespace internal {
const char* GetErrorDescription(uint16_t number);
}  // namespace internal

}  // namespace webrtcnodejs
}  // namespace vrex
