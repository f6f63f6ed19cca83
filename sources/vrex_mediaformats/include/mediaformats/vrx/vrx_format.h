// The .vrx container's fixed vocabulary: track ids, payload types, flag bits, clock codes and
// skip packets. A file is a flat run of packets, each a whole number of 4-byte words:
//
//   R(1) TID(2) X(1) | flags(2) | sequence(2) | [rate(4)] [DTS(4|8)] [CTS(4)] [frame size(4)]
//   | payload size(4) | payload, zero padded to 4 | [trailer(4): bytes from R through padding]
//
// R is 0xA0 when written (0xA0..0xAF accepted), X = R ^ TID high ^ TID low. All integers are
// big-endian.
#pragma once

#include <cstdint>

namespace vrex {
namespace mediaformats {

// The kind of payload a track carries; the file stores only the TID, which implies it.
enum VREXPayloadType : int {
  VRX_PAYLOAD_UNDEFINED = 0,
  VRX_PAYLOAD_TID_MAP = 1,
  VRX_PAYLOAD_AUDIO_AAC_ADTS = 2,
  VRX_PAYLOAD_VIDEO_H264_NALU_B = 3,
  VRX_PAYLOAD_SC_TO_WC = 4,
  VRX_PAYLOAD_MILESTONE = 5,
  VRX_PAYLOAD_SKIP = 6,
  VRX_PAYLOAD_VIDEO_H264_NALU_AVCC = 7,
  VRX_PAYLOAD_PARTITION_HEADER = 9,
  VRX_PAYLOAD_PARTITION_FOOTER = 10,
  VRX_PAYLOAD_AUDIO_OPUS = 11,
  VRX_PAYLOAD_VIDEO_H265_NALU_AVCC = 12,
  VRX_PAYLOAD_IMAGE_JPEG = 13,
  VRX_PAYLOAD_VIDEO_AV1 = 14,
  VRX_PAYLOAD_SNAPSHOT_META = 15,
};

enum : uint16_t {
  VRX_TID_UNDEFINED = 0,
  VRX_TID_TID_MAP = 1,
  VRX_TID_MILESTONE = 5,
  VRX_TID_SKIP = 6,
  VRX_TID_H264_AVCC = 7,
  VRX_TID_PARTITION_HEADER = 9,
  VRX_TID_PARTITION_FOOTER = 10,
  VRX_TID_AAC_ADTS = 1000,
  VRX_TID_H264_ANNEXB = 1001,
  VRX_TID_OPUS = 1002,
  VRX_TID_H265_AVCC = 1003,
  VRX_TID_AV1 = 1004,
  VRX_TID_SNAPSHOT_META = 1005,
  VRX_TID_IMAGE_JPEG = 19056,
  VRX_TID_SC_TO_WC = 55934,
};

// The payload type a TID implies; VRX_PAYLOAD_UNDEFINED for an unknown TID.
VREXPayloadType PayloadTypeOfTid(uint16_t tid);
// Whether packets of `tid` carry media frames that a reader hands out.
bool IsMediaTid(uint16_t tid);

enum : uint16_t {
  VRX_FLAG_FRAME_START = 0x8000,
  VRX_FLAG_FRAME_END = 0x4000,
  VRX_FLAG_KEY = 0x2000,
  VRX_FLAG_STAND_ALONE = 0x1000,
  VRX_FLAG_DTS = 0x0800,
  VRX_FLAG_DTS_64 = 0x0400,
  VRX_FLAG_CTS = 0x0200,
  VRX_FLAG_TRAILER = 0x0100,
  VRX_FLAG_CLOCK_CODE_MASK = 0x000F,
  // Descriptors, clock syncs and skip packets: complete, key, stand-alone, with trailer.
  VRX_FLAGS_DESCRIPTOR = 0xF100,
};

constexpr unsigned char VRX_MARKER = 0xA0;
constexpr unsigned VRX_CLOCK_CODE_NONE = 0;
constexpr unsigned VRX_CLOCK_CODE_EXPLICIT = 1;  // the rate stands in its own field

// The first word of a packet: R = 0xA0, TID, X.
uint32_t MakePacketWord(uint16_t tid);
// Whether the first three bytes hold an accepted marker and the matching check byte X.
bool IsPacketWordValid(const unsigned char* first4);

// Clock code table: 2 -> 1,000 Hz ... 14 -> 1,000,000,000 Hz; 0 for codes 0, 1 and 15.
uint32_t GetClockRate(unsigned code);
// The code of `rate`: a table code, VRX_CLOCK_CODE_EXPLICIT for other rates, NONE for 0.
unsigned GetClockCode(uint32_t rate);

// Skip packet: A0 00 06 A6 F1 00 00 00 | payload length p (4) | p bytes | trailer p + 12 (4)
constexpr unsigned char kSkipPacketHeader[8] = {0xA0, 0x00, 0x06, 0xA6, 0xF1, 0x00, 0x00, 0x00};
constexpr long kEmptySkipPacketSize = 16;
constexpr long kFullSkipPacketSize = 0x100000000L;  // payload 0xFFFFFFF0

// The payload length of the next skip packet laid over `total` bytes (a multiple of 4, at
// least 16): a full packet, or what leaves room for one last empty packet, or the rest.
// Returns the length, or ERR_MEDIAFORMATS_INVALID_FILE_SIZE.
long GetSkipPacketPayloadLength(long total);

// Partition descriptors. Header payload: contents length (8) | fixed metadata (12) | dynamic
// metadata. Footer payload: contents length (8) | seek table (16 per entry) | table length (4).
constexpr unsigned kFixedMetadataSize = 12;
constexpr unsigned kPartitionHeaderFixedPayload = 20;
constexpr unsigned kPartitionFooterFixedPayload = 12;
constexpr unsigned kSeekPointSize = 16;  // file offset (8) | wall clock in ms (8)
constexpr unsigned kClockSyncPayloadSize = 8;  // seconds (4) | nanoseconds (4)
constexpr unsigned kSnapshotMetaPayloadSize = 12;  // type 1 (2) | length 8 (2) | tag (8)

}  // namespace mediaformats
}  // namespace vrex
