// Removal of the ADTS header in front of an AAC frame before it goes into an MP4 sample.
#pragma once

#include <cstddef>

namespace vrex {
namespace mediaformats {
namespace internal {

// Returns where the raw AAC frame starts and reduces `size` by the header (7 bytes, or 9 with
// a CRC). Input shorter than 7 bytes or not starting with 0xFF is raw AAC and comes back
// unchanged. A broken sync word, an MPEG-2 header (ID 1), a layer other than 0 or a frame
// length above `size` give null with `error` set to ERR_MEDIAFORMATS_INCORRECT_PARAMETERS and
// the error record's extra info telling size, pointer and first bytes. Moves no data, never
// logs: the caller does. Only the first header goes; later frames in the buffer keep theirs.
const unsigned char* StripAdts(const unsigned char* data, unsigned long& size, int& error);

}  // namespace internal
}  // namespace mediaformats
}  // namespace vrex
