// vrx_packet_t: the parsed header of one packet, and the rule that gives a packet's size from
// its flags alone.
#pragma once

#include <cstdint>

namespace vrex {
namespace abstraction {
class DataSource;
}  // namespace abstraction

namespace mediaformats {

struct vrx_packet_t {
  // The most header bytes a packet can have: 8 fixed, rate, 64-bit DTS, CTS, frame size and
  // the payload size word.
  static constexpr unsigned kMaxHeaderSize = 32;

  uint32_t word = 0;  // R, TID, X
  uint16_t flags = 0;
  uint16_t sequence = 0;
  int64_t dts = -1;       // -1 when absent
  uint32_t clockRate = 0;
  uint32_t cts = 0;
  uint32_t frameSize = 0;  // first fragments only
  uint32_t payloadSize = 0;
  uint32_t tail = 0;       // padding plus trailer
  long headerSize = 0;     // payload size offset + 4
  long packetSize = 0;
  long offset = -1;        // of the packet's first byte in its source

  uint16_t Tid() const { return static_cast<uint16_t>(word >> 8); }
  bool IsStart() const;
  bool IsEnd() const;
  bool IsKey() const;
  long PayloadOffset() const { return offset + headerSize; }

  // Offset of the payload size word, from the flags: 8 to 28, or -1 for a combination no
  // writer makes.
  static int GetPayloadSizeOffset(uint16_t flags);

  // Parses the packet at `offset` from `bytes`, the first min(kMaxHeaderSize, end - offset)
  // bytes there; `end` is the end of the data. Returns 1 when the whole packet is there, 0
  // when it is incomplete (more data may come), ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT when
  // the flags are corrupt.
  int Parse(const unsigned char* bytes, unsigned long count, long offset, long end);

  // Parse, for the packet at the source's cursor, given the first `count` bytes there. A
  // continuation fragment (no header fields, trailer bit clear) that is followed by a word equal
  // to its size takes that word as its trailer: our writer ends every packet with one, and no
  // packet can start with such a word (its first byte would have to be 0xA0..0xAF). Such a
  // continuation counts as incomplete until that next word is in the source.
  int Read(abstraction::DataSource* source, const unsigned char* bytes, unsigned long count);
  // The same, reading the header bytes itself. The cursor is left at the payload when the
  // result is 1, at the packet start otherwise.
  int Read(abstraction::DataSource* source);
};

}  // namespace mediaformats
}  // namespace vrex
