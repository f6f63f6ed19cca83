// Error codes of module 1 (vrex::abstraction); their texts stand in errors.cc beside the module's sources.
#pragma once

#include "errors/errors.h"

namespace vrex {
namespace abstraction {

constexpr uint16_t kErrorModule = 1;

enum : int {
  ERR_ABSTRACTION_NOT_IMPLEMENTED = ::vrex::errors::MakeError(1, 1),  // "Functionality not yet implemented"
  ERR_ABSTRACTION_INVALID_PARAMETERS = ::vrex::errors::MakeError(1, 2),  // "Invalid function parameters"
  ERR_ABSTRACTION_RANGE_NOT_AVAILABLE = ::vrex::errors::MakeError(1, 3),  // "Specified range not available"
  ERR_ABSTRACTION_PUT_NOT_SUPPORTED = ::vrex::errors::MakeError(1, 4),  // "Data source does not support put method"
  ERR_ABSTRACTION_INVALID_FILE_SIZE = ::vrex::errors::MakeError(1, 5),  // "The specified file size is invalid"
  ERR_ABSTRACTION_READ_INCOMPLETE = ::vrex::errors::MakeError(1, 6),  // "read() POSIX function did not full complete"
  ERR_ABSTRACTION_WRITE_INCOMPLETE = ::vrex::errors::MakeError(1, 7),  // "write() POSIX function did not full complete"
  ERR_ABSTRACTION_INVALID_FILE_OFFSET = ::vrex::errors::MakeError(1, 8),  // "Invalid file offset provided for the file operation"
  ERR_ABSTRACTION_LOCK_ALREADY_INITIALIZED = ::vrex::errors::MakeError(1, 9),  // "File lock already initialized"
  ERR_ABSTRACTION_LOCK_NOT_INITIALIZED = ::vrex::errors::MakeError(1, 10),  // "File lock not initialized"
};

// Pulls this module's registration into the link. Returns 0.
int InitializeErrorCodes();

namespace internal {
const char* GetErrorDescription(uint16_t number);
}  // namespace internal

}  // namespace abstraction
}  // namespace vrex
