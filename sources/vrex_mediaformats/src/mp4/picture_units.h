// Which parts of a video frame go into an MP4 sample: the picture NAL units of H.264 and
// H.265 (parameter sets, SEI and delimiters live in the sample entry instead), and the AV1
// OBUs but temporal delimiters.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vrex {
namespace mediaformats {
namespace internal {

// Copies the kept units of a 4-byte length-prefixed frame, prefixes included, into `out`
// (cleared first). H.264 keeps types 1 and 5, H.265 types 0-9 and 16-21. The walk stops at the
// first length that does not fit. AV1 keeps what StripAV1 keeps, nothing when its OBUs do not
// parse. Returns 0, or ERR_MEDIAFORMATS_INCORRECT_PARAMETERS for another tag.
int KeepPictureUnits(const unsigned char* data, size_t size, uint64_t tag,
                     std::vector<unsigned char>& out);

}  // namespace internal
}  // namespace mediaformats
}  // namespace vrex
