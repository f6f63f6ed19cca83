// vrx_track_t: what the reader knows of one track: its sequence, the frame being reassembled
// from fragments, and the last descriptor it carried.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "abstraction/datasource.h"
#include "media/frame.h"
#include "mediaformats/vrx/reader_vrex.h"
#include "mediaformats/vrx/vrx_packet.h"

namespace vrex {
namespace mediaformats {
namespace internal {

// The last partition header read: where it is and what it holds.
struct partition_header_record_t {
  long packetOffset = -1;
  long packetSize = -1;
  long contentsLength = -1;
  long payloadOffset = -1;  // where the contents length field stands
  unsigned char fixedMetadata[kFixedMetadataSize] = {0};
  long dynamicOffset = -1;
  long dynamicSize = -1;
};

// The last partition footer read.
struct partition_footer_record_t {
  long packetOffset = -1;
  long packetSize = -1;
  long tableOffset = -1;
  long tableLength = -1;
};

class vrx_track_t {
 public:
  vrx_track_t();
  ~vrx_track_t();
  vrx_track_t(const vrx_track_t&) = delete;
  vrx_track_t& operator=(const vrx_track_t&) = delete;

  // `tid` 0 makes the catch-all track of unknown TIDs. `clockSync` is the reader's, shared.
  void Initialize(uint16_t tid, ReaderVREX::Observer* observer, media::clock_sync_t* clockSync);

  // Reads the packet at the source's cursor, given its first `count` header bytes. Returns 1
  // with the cursor after the packet, 0 when the packet is incomplete, or a code.
  int Read(abstraction::DataSource* source, const unsigned char* bytes, unsigned long count);

  // Forgets the sequence and any partial frame.
  void Reset();
  uint16_t Tid() const { return _tid; }
  bool IsFrameComplete() const { return _frameComplete; }
  media::frame_t& Frame() { return _frame; }
  const vrx_packet_t& Packet() const { return _packet; }
  const partition_header_record_t& Header() const { return _header; }
  const partition_footer_record_t& Footer() const { return _footer; }

 private:
  int SignalPayload(abstraction::DataSource* source, long offset, const unsigned char* memory,
                    long size);
  int SignalFrame(abstraction::DataSource* source, long offset, const unsigned char* memory,
                  long size);
  int ReadClockSync(abstraction::DataSource* source, long offset, const unsigned char* memory,
                    long size);
  int ReadPartitionHeader(abstraction::DataSource* source, long offset,
                          const unsigned char* memory, long size);
  int ReadSnapshotMeta(abstraction::DataSource* source, long offset, const unsigned char* memory,
                       long size);
  int DropFragments();
  // Appends `size` payload bytes at the source's cursor to the frame being built.
  int AppendPayload(abstraction::DataSource* source, long size);
  int FetchPayload(abstraction::DataSource* source, long offset, const unsigned char* memory,
                   long count, unsigned char* dst) const;

  ReaderVREX::Observer* _observer = nullptr;  // may be null
  vrx_packet_t _packet;
  std::vector<unsigned char> _reassembly;  // fragments of the frame being built
  bool _keyFrame = false;
  media::dts_cts_t _frameTs;   // of the first fragment
  uint32_t _frameSize = 0;     // announced by the first fragment
  uint16_t _lastSequence = 0;
  uint16_t _tid = 0;
  VREXPayloadType _type = VRX_PAYLOAD_UNDEFINED;
  media::frame_t _frame;
  bool _frameComplete = false;
  media::clock_sync_t* _clockSync = nullptr;
  partition_header_record_t _header;
  partition_footer_record_t _footer;
  // The header bytes the reader read at the packet start, set by each Read and used only
  // within it: small payloads in them are not read again.
  const abstraction::DataSource* _headerSource = nullptr;
  const unsigned char* _headerBytes = nullptr;
  unsigned long _headerCount = 0;
};

}  // namespace internal
}  // namespace mediaformats
}  // namespace vrex
