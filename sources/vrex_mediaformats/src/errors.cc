// The error texts of module 12. Numbers and texts are fixed: other processes read them.
#include "mediaformats/errors.h"

#include "errors/error_table.h"

namespace vrex {
namespace mediaformats {

namespace internal {

const char* GetErrorDescription(uint16_t number) {
  static const char* const kTexts[] = {
    "OK",
    "Functionality not yet implemented",
    "The specified file size is too small or is not a multiple of 4096",
    "The VRX writer observer failed when called",
    "Seeking inside the provided data source failed",
    "Incorrect VRX file content",
    "Not enough space to store the contents",
    "The specified VRX file is not partitioned",
    "The observer can not be NULL",
    "Not enough memory to create a data source",
    "The provided offset is incorrect",
    "The provided fragment duration is invalid",
    "The track information is not valid",
    "Invalid internal FMP4 writer state",
    "VRX file without sync node",
    "The specified wall clock was not found",
    "Incorrect parameters provided",
    "Doing data source I/O failed",
    "VRX partition already opened",
    "No more partitions available",
    "Too many entries in the partition table",
    "The VRX reader observer failed when called",
    "LibAv API error. avformat_alloc_context() failed",
    "LibAv API error. avformat_write_header() failed",
    "LibAv API error. av_write_trailer() failed",
    "LibAv API error. av_write_frame() failed",
    "LibAv muxer not found",
    "Incorrect partition selected for delete",
    "Incorrect delete mode selected",
    "Incorrect offset detected while analyzing partition for delete",
    "Double VRX file append detected",
    "Simultaneous VRX file append detected",
    "VRX appender present on the same inode but with a different file path",
    "VRX file locked by by one of append, deleteContent or recover operations",
    "Non-monotonic timestamp provided",
    "SRTP session init failed",
    "Need more data for parsing",
    "MP4 parsing error",
    "Internal state error",
    "Track codec changed",
    "unknown"};
  return ::vrex::errors::DescribeFromTable(kTexts, number);
}

}  // namespace internal

namespace {
::vrex::errors::InitErrors registration(12, internal::GetErrorDescription);
}  // namespace

int InitializeErrorCodes() { return 0; }

}  // namespace mediaformats
}  // namespace vrex
