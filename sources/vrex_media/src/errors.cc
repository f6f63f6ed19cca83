// The error texts of module 11. Numbers and texts are fixed: other processes read them.
#include "media/errors.h"

#include "errors/error_table.h"

namespace vrex {
namespace media {

namespace internal {

const char* GetErrorDescription(uint16_t number) {
  static const char* const kTexts[] = {
    "OK",
    "Functionality not yet implemented",
    "Codec bytes format not supported",
    "The frame provided for codec bytes extraction is invalid",
    "The stream of bits could not be read as an Exp-Golomb number",
    "The codec parameters provided are not supported",
    "Invalid NALU provided",
    "Codec type not supported",
    "unknown"};
  return ::vrex::errors::DescribeFromTable(kTexts, number);
}

}  // namespace internal

namespace {
::vrex::errors::InitErrors registration(11, internal::GetErrorDescription);
}  // namespace

int InitializeErrorCodes() { return 0; }

}  // namespace media
}  // namespace vrex
