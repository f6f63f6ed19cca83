// Where the codec parsers find a frame's bytes (its out-of-band config, its payload in memory,
// or a copy read from its data source), and the GetInstance body the video codecs share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "abstraction/logging.h"
#include "media/errors.h"
#include "media/frame.h"

namespace vrex {
namespace media {
namespace internal {

// The least a video key frame must hold: a length and a few parameter set bytes.
constexpr size_t kMinVideoFrameSize = 12;

struct frame_bytes_t {
  const uint8_t* data = nullptr;
  size_t size = 0;
  std::vector<uint8_t> copy;  // holds the bytes when they came from a data source
};

// With only a data source, copies the payload from it; otherwise takes pCodecConfig when set,
// else pData + offset. Returns 0 or ERR_MEDIA_INVALID_FRAME (no bytes anywhere, a negative
// offset or size, a failed read).
int GetFrameBytes(const frame_t& frame, frame_bytes_t& out);

// Reads `size` bytes at the cursor of `source`, or all it has left when `size` is -1.
// Returns 0, ERR_MEDIA_INVALID_FRAME when fewer remain, or the source's code.
int ReadFromSource(abstraction::DataSource* source, long size, std::vector<uint8_t>& out);

// A new Info initialised from `size` bytes at `data`, or null with `error` set.
template <typename Info>
Info* BuildVideoInfo(const uint8_t* data, size_t size, unsigned clockRate, const char* name,
                     int& error) {
  if (data == nullptr || size < kMinVideoFrameSize) {
    LOGE << "<-# " << name << "::GetInstance FAILED! Not enough data";
    error = VREX_ERROR(ERR_MEDIA_INVALID_FRAME);
    return nullptr;
  }
  Info* info = new Info();
  error = info->Init(data, size, clockRate);
  if (error < 0) {
    LOGE << "<-# " << name << "::GetInstance FAILED! Init() FAILED! errorCode=" << error;
    delete info;
    return nullptr;
  }
  return info;
}

// The same from a frame the caller has checked, with the frame's clock rate.
template <typename Info>
Info* BuildVideoInfo(const frame_t& frame, const char* name, int& error) {
  frame_bytes_t bytes;
  error = GetFrameBytes(frame, bytes);
  if (error < 0) return nullptr;
  return BuildVideoInfo<Info>(bytes.data, bytes.size, frame.dtsCts.clockRate, name, error);
}

}  // namespace internal
}  // namespace media
}  // namespace vrex
