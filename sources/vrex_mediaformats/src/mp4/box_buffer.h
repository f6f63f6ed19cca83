// A growing byte vector in which the writers lay out boxes, with the size of each box patched
// in place once its body is complete. All integers go out big-endian.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vrex {
namespace mediaformats {
namespace internal {

class BoxBuffer {
 public:
  void Put8(uint8_t v) { _bytes.push_back(v); }
  void Put16(uint16_t v);
  void Put24(uint32_t v);
  void Put32(uint32_t v);
  void Put64(uint64_t v);
  void PutZeros(size_t count) { _bytes.insert(_bytes.end(), count, 0); }
  void PutBytes(const void* data, size_t size);
  // Four ASCII letters, e.g. "moov".
  void PutFourcc(const char* fourcc) { PutBytes(fourcc, 4); }

  // Starts a box: a zero size word and the type. Returns where the box starts, for EndBox.
  size_t BeginBox(const char* fourcc);
  // A full box: BeginBox then version (8 bits) and flags (24 bits).
  size_t BeginFullBox(const char* fourcc, uint8_t version, uint32_t flags);
  // Writes the size of the box started at `start`; a box never reaches 2 GiB (asserted).
  void EndBox(size_t start);

  void Patch32(size_t at, uint32_t v);
  void Patch64(size_t at, uint64_t v);

  const uint8_t* data() const { return _bytes.data(); }
  size_t size() const { return _bytes.size(); }
  void clear() { _bytes.clear(); }

 private:
  std::vector<uint8_t> _bytes;
};

// The unity transformation matrix of mvhd and tkhd: 9 words.
void PutUnityMatrix(BoxBuffer& out);

}  // namespace internal
}  // namespace mediaformats
}  // namespace vrex
