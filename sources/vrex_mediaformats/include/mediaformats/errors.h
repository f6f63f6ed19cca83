// Error codes of module 12 (vrex::mediaformats); their texts stand in errors.cc beside the module's sources.
#pragma once

#include "errors/errors.h"

namespace vrex {
namespace mediaformats {

constexpr uint16_t kErrorModule = 12;

enum : int {
  ERR_MEDIAFORMATS_NOT_IMPLEMENTED = ::vrex::errors::MakeError(12, 1),  // "Functionality not yet implemented"
  ERR_MEDIAFORMATS_INVALID_FILE_SIZE = ::vrex::errors::MakeError(12, 2),  // "The specified file size is too small or is not a multiple of 4096"
  ERR_MEDIAFORMATS_WRITER_OBSERVER_FAILED = ::vrex::errors::MakeError(12, 3),  // "The VRX writer observer failed when called"
  ERR_MEDIAFORMATS_SEEK_FAILED = ::vrex::errors::MakeError(12, 4),  // "Seeking inside the provided data source failed"
  ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT = ::vrex::errors::MakeError(12, 5),  // "Incorrect VRX file content"
  ERR_MEDIAFORMATS_NOT_ENOUGH_SPACE = ::vrex::errors::MakeError(12, 6),  // "Not enough space to store the contents"
  ERR_MEDIAFORMATS_NOT_PARTITIONED = ::vrex::errors::MakeError(12, 7),  // "The specified VRX file is not partitioned"
  ERR_MEDIAFORMATS_NULL_OBSERVER = ::vrex::errors::MakeError(12, 8),  // "The observer can not be NULL"
  ERR_MEDIAFORMATS_DATA_SOURCE_MEMORY = ::vrex::errors::MakeError(12, 9),  // "Not enough memory to create a data source"
  ERR_MEDIAFORMATS_INCORRECT_OFFSET = ::vrex::errors::MakeError(12, 10),  // "The provided offset is incorrect"
  ERR_MEDIAFORMATS_INVALID_FRAGMENT_DURATION = ::vrex::errors::MakeError(12, 11),  // "The provided fragment duration is invalid"
  ERR_MEDIAFORMATS_INVALID_TRACK_INFO = ::vrex::errors::MakeError(12, 12),  // "The track information is not valid"
  ERR_MEDIAFORMATS_FMP4_WRITER_STATE = ::vrex::errors::MakeError(12, 13),  // "Invalid internal FMP4 writer state"
  ERR_MEDIAFORMATS_NO_SYNC_NODE = ::vrex::errors::MakeError(12, 14),  // "VRX file without sync node"
  ERR_MEDIAFORMATS_WALL_CLOCK_NOT_FOUND = ::vrex::errors::MakeError(12, 15),  // "The specified wall clock was not found"
  ERR_MEDIAFORMATS_INCORRECT_PARAMETERS = ::vrex::errors::MakeError(12, 16),  // "Incorrect parameters provided"
  ERR_MEDIAFORMATS_DATA_SOURCE_IO = ::vrex::errors::MakeError(12, 17),  // "Doing data source I/O failed"
  ERR_MEDIAFORMATS_PARTITION_ALREADY_OPEN = ::vrex::errors::MakeError(12, 18),  // "VRX partition already opened"
  ERR_MEDIAFORMATS_NO_MORE_PARTITIONS = ::vrex::errors::MakeError(12, 19),  // "No more partitions available"
  ERR_MEDIAFORMATS_PARTITION_TABLE_FULL = ::vrex::errors::MakeError(12, 20),  // "Too many entries in the partition table"
  ERR_MEDIAFORMATS_READER_OBSERVER_FAILED = ::vrex::errors::MakeError(12, 21),  // "The VRX reader observer failed when called"
  ERR_MEDIAFORMATS_LIBAV_ALLOC_CONTEXT = ::vrex::errors::MakeError(12, 22),  // "LibAv API error. avformat_alloc_context() failed"
  ERR_MEDIAFORMATS_LIBAV_WRITE_HEADER = ::vrex::errors::MakeError(12, 23),  // "LibAv API error. avformat_write_header() failed"
  ERR_MEDIAFORMATS_LIBAV_WRITE_TRAILER = ::vrex::errors::MakeError(12, 24),  // "LibAv API error. av_write_trailer() failed"
  ERR_MEDIAFORMATS_LIBAV_WRITE_FRAME = ::vrex::errors::MakeError(12, 25),  // "LibAv API error. av_write_frame() failed"
  ERR_MEDIAFORMATS_LIBAV_MUXER_NOT_FOUND = ::vrex::errors::MakeError(12, 26),  // "LibAv muxer not found"
  ERR_MEDIAFORMATS_DELETE_PARTITION = ::vrex::errors::MakeError(12, 27),  // "Incorrect partition selected for delete"
  ERR_MEDIAFORMATS_DELETE_MODE = ::vrex::errors::MakeError(12, 28),  // "Incorrect delete mode selected"
  ERR_MEDIAFORMATS_DELETE_OFFSET = ::vrex::errors::MakeError(12, 29),  // "Incorrect offset detected while analyzing partition for delete"
  ERR_MEDIAFORMATS_DOUBLE_APPEND = ::vrex::errors::MakeError(12, 30),  // "Double VRX file append detected"
  ERR_MEDIAFORMATS_SIMULTANEOUS_APPEND = ::vrex::errors::MakeError(12, 31),  // "Simultaneous VRX file append detected"
  ERR_MEDIAFORMATS_APPENDER_PATH_MISMATCH = ::vrex::errors::MakeError(12, 32),  // "VRX appender present on the same inode but with a different file path"
  ERR_MEDIAFORMATS_FILE_LOCKED_BY_MAINTENANCE = ::vrex::errors::MakeError(12, 33),  // "VRX file locked by by one of append, deleteContent or recover operations"
  ERR_MEDIAFORMATS_NON_MONOTONIC_TIMESTAMP = ::vrex::errors::MakeError(12, 34),  // "Non-monotonic timestamp provided"
  ERR_MEDIAFORMATS_SRTP_INIT = ::vrex::errors::MakeError(12, 35),  // "SRTP session init failed"
  ERR_MEDIAFORMATS_NEED_MORE_DATA = ::vrex::errors::MakeError(12, 36),  // "Need more data for parsing"
  ERR_MEDIAFORMATS_MP4_PARSING = ::vrex::errors::MakeError(12, 37),  // "MP4 parsing error"
  ERR_MEDIAFORMATS_INTERNAL_STATE = ::vrex::errors::MakeError(12, 38),  // "Internal state error"
  ERR_MEDIAFORMATS_TRACK_CODEC_CHANGED = ::vrex::errors::MakeError(12, 39),  // "Track codec changed"
};

// Pulls this module's registration into the link. Returns 0.
int InitializeErrorCodes();

namespace internal {
const char* GetErrorDescription(uint16_t number);
}  // namespace internal

}  // namespace mediaformats
}  // namespace vrex
