// Error codes of module 11 (vrex::media); their texts stand in errors.cc beside the module's sources.
#pragma once

#include "errors/errors.h"

namespace vrex {
namespace media {

constexpr uint16_t kErrorModule = 11;

enum : int {
  ERR_MEDIA_NOT_IMPLEMENTED = ::vrex::errors::MakeError(11, 1),  // "Functionality not yet implemented"
  ERR_MEDIA_CODEC_BYTES_FORMAT = ::vrex::errors::MakeError(11, 2),  // "Codec bytes format not supported"
  ERR_MEDIA_INVALID_FRAME = ::vrex::errors::MakeError(11, 3),  // "The frame provided for codec bytes extraction is invalid"
  ERR_MEDIA_EXP_GOLOMB = ::vrex::errors::MakeError(11, 4),  // "The stream of bits could not be read as an Exp-Golomb number"
  ERR_MEDIA_CODEC_PARAMETERS = ::vrex::errors::MakeError(11, 5),  // "The codec parameters provided are not supported"
  ERR_MEDIA_INVALID_NALU = ::vrex::errors::MakeError(11, 6),  // "Invalid NALU provided"
  ERR_MEDIA_CODEC_NOT_SUPPORTED = ::vrex::errors::MakeError(11, 7),  // "Codec type not supported"
};

// Pulls this module's registration into the link. Returns 0.
int InitializeErrorCodes();

namespace internal {
const char* GetErrorDescription(uint16_t number);
}  // namespace internal

}  // namespace media
}  // namespace vrex
