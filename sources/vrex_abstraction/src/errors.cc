// The error texts of module 1. Numbers and texts are fixed: other processes read them.
#include "abstraction/errors.h"

#include "errors/error_table.h"

namespace vrex {
namespace abstraction {

namespace internal {

const char* GetErrorDescription(uint16_t number) {
  static const char* const kTexts[] = {
    "OK",
    "Functionality not yet implemented",
    "Invalid function parameters",
    "Specified range not available",
    "Data source does not support put method",
    "The specified file size is invalid",
    "read() POSIX function did not full complete",
    "write() POSIX function did not full complete",
    "Invalid file offset provided for the file operation",
    "File lock already initialized",
    "File lock not initialized",
    "unknown"};
  return ::vrex::errors::DescribeFromTable(kTexts, number);
}

}  // namespace internal

namespace {
::vrex::errors::InitErrors registration(1, internal::GetErrorDescription);
}  // namespace

int InitializeErrorCodes() { return 0; }

}  // namespace abstraction
}  // namespace vrex
