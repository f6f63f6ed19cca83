// Where the codec parsers find a frame's bytes: its out-of-band config, its payload in
// memory, or a copy read from its data source.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "media/frame.h"

namespace vrex {
namespace media {
namespace internal {

struct frame_bytes_t {
  const uint8_t* data = nullptr;
  size_t size = 0;
  std::vector<uint8_t> copy;  // holds the bytes when they came from a data source
};

// With only a data source, copies the payload from it; otherwise takes pCodecConfig when set,
// else pData + offset. Returns 0 or ERR_MEDIA_INVALID_FRAME (no bytes anywhere, a negative
// offset or size, a failed read).
int GetFrameBytes(const frame_t& frame, frame_bytes_t& out);

}  // namespace internal
}  // namespace media
}  // namespace vrex
