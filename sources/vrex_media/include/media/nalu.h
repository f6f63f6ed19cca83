// Conversion between the two framings of H.264/H.265 NAL units: 4-byte big-endian length
// prefixes (AVCC, as MP4 and VRX store them) and start codes (Annex B, as raw streams and
// decoders want them). The converters keep their buffer across frames, so that a steady
// stream allocates nothing.
//
// Threads: an object belongs to one thread at a time. Results stay in the object's buffer
// (pData, used bytes) until the next Work.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vrex {
namespace media {

// A byte array that only grows. Growing drops the contents: it frees and reallocates to
// exactly the requested capacity.
class resizing_buffer_t {
 public:
  resizing_buffer_t() = default;
  resizing_buffer_t(const resizing_buffer_t&) = delete;
  resizing_buffer_t& operator=(const resizing_buffer_t&) = delete;
  virtual ~resizing_buffer_t();

  // Makes capacity at least `size`.
  void EnsureCapacity(uint64_t size);

  uint8_t* pData = nullptr;  // array new, owned
  uint64_t capacity = 0;
  uint64_t used = 0;
};

// AVCC to Annex B: each 4-byte length becomes the start code 00 00 00 01, so the output has
// the input's size.
class nalu_avcc_to_b_t : public resizing_buffer_t {
 public:
  // Returns 0, or ERR_MEDIA_INVALID_NALU when `size` is 4 or less, a length runs past the
  // input, or 1 to 4 bytes are left over after the last NAL unit.
  int Work(const uint8_t* data, size_t size);
};

// Annex B to AVCC: each NAL unit, found between 00 00 01 patterns, gets a 4-byte length. A
// zero byte just before a pattern is taken as part of a 4-byte start code (one trailing zero
// of a NAL unit is lost with it). The output grows by one byte per 3-byte start code.
class nalu_b_to_avcc_t : public resizing_buffer_t {
 public:
  // Returns 0; input without any start code is one NAL unit.
  int Work(const uint8_t* data, size_t size);
};

}  // namespace media
}  // namespace vrex
