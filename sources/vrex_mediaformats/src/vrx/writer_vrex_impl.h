// WriterVREXImpl: packet assembly for WriterVREX.
#pragma once

#include <memory>
#include <vector>

#include "abstraction/datasource.h"
#include "mediaformats/vrx/writer_vrex.h"

namespace vrex {
namespace mediaformats {
namespace internal {

// One written track: its id and sequence counter, and the scratch words of a packet.
struct vrex_protocol_track_t {
  static constexpr int kMaxPieces = 12;

  uint16_t tid = 0;
  uint16_t sequence = 0;  // incremented before each media packet; descriptors keep 0
  unsigned char header[32 + kPartitionHeaderFixedPayload] = {0};
  unsigned char pad[4] = {0};
  unsigned char trailer[4] = {0};
  unsigned headerLength = 0;
  struct iovec pieces[kMaxPieces];
  int count = 0;
  unsigned long total = 0;

  explicit vrex_protocol_track_t(uint16_t id) : tid(id) {}
  void PutHeader16(uint16_t value);
  void PutHeader32(uint32_t value);
  void PutHeader64(uint64_t value);
  // Makes the header so far the first piece.
  void AddHeader() { Add(header, headerLength); }
  void Add(const void* data, unsigned long size);
  // Adds the zero padding after `payloadSize` bytes, then the trailer with all bytes so far.
  void AddPadAndTrailer(unsigned long payloadSize);
};

class WriterVREXImpl : public WriterVREX {
 public:
  WriterVREXImpl(unsigned int maxPacketPayload, Observer* observer);
  ~WriterVREXImpl() override;

  int WriteVideoData(const void* data, size_t size, const media::dts_cts_t& ts,
                     bool key) override;
  int WriteVideoData(const void* data, size_t size, const media::dts_cts_t& ts, bool key,
                     unsigned long codecTag) override;
  int WriteAudioData(const void* data, size_t size, const media::dts_cts_t& ts) override;
  int WriteAudioData(const void* data, size_t size, const media::dts_cts_t& ts,
                     unsigned long codecTag) override;
  int WriteClockSync(const media::clock_sync_t& sync) override;
  int WriteImageData(const char* data, size_t size, const media::dts_cts_t& ts) override;
  int WriteImageData(const char* data, size_t size, const media::dts_cts_t& ts,
                     unsigned long codecTag) override;
  int WriteSnapshotMeta(const media::dts_cts_t& ts, unsigned long refTag) override;
  int OpenPartition(const partition_info_t* info) override;
  long ClosePartition() override;
  long WritePartitionDescriptorStart(const media::dts_cts_t& ts, long contentsLength,
                                     const unsigned char* fixedMetadata,
                                     const void* dynamicMetadata,
                                     unsigned long dynamicLength) override;
  int ComputeSkipPacketHeaderAndFooter(unsigned int payloadLength, unsigned char* header,
                                       unsigned char* trailer) override;
  long WritePartitionDescriptorEnd(const media::dts_cts_t& ts, long contentsLength,
                                   const void* seekTable, unsigned int seekTableLength) override;
  long GetBytesWritten() const override { return _bytesWritten; }

 private:
  struct open_partition_t {
    unsigned char fixedMetadata[kFixedMetadataSize] = {0};
    std::vector<unsigned char> dynamicMetadata;
    abstraction::DataSource* seekTable = nullptr;  // owned
    media::clock_sync_t clockSync;                 // the last one written
    long clockSyncStart = -1;
    long clockSyncEnd = -1;
    long headerOffset = 0;
    long contentsOffset = 0;  // 0 while the header is not written
    media::dts_cts_t footerTs;
    ~open_partition_t() { abstraction::DataSource::FreeInstance(seekTable); }
  };

  enum TrackIndex { AAC, OPUS, H264, H265, AV1, CLOCK_SYNC, JPEG, SNAPSHOT, HEADER, FOOTER, COUNT };

  int WriteFrame(vrex_protocol_track_t& track, const void* data, unsigned long size,
                 const media::dts_cts_t& ts, bool key, bool standAlone);
  int WriteFrameData(vrex_protocol_track_t& track, const unsigned char* data, unsigned long size,
                     const media::dts_cts_t& ts, bool key, bool standAlone);
  int OpenPartitionInternal(const media::dts_cts_t& ts);
  int WriteSeekPoint(long frameOffset, const media::dts_cts_t& ts);
  long ClosePartitionInternal();
  // Starts `track`'s packet: R TID X, flags, sequence, and with a timestamp the rate, DTS and
  // CTS fields (flags must already say so).
  static void BeginPacket(vrex_protocol_track_t& track, uint16_t flags,
                          const media::dts_cts_t* ts);
  // A descriptor's packet through its contents length word.
  static void BeginDescriptor(vrex_protocol_track_t& track, const media::dts_cts_t& ts,
                              unsigned long payloadSize, long contentsLength);
  int Emit(vrex_protocol_track_t& track);
  // Emit, answering the bytes emitted.
  long EmitDescriptor(vrex_protocol_track_t& track);

  Observer* _observer;
  unsigned long _maxPacketPayload;
  long _bytesWritten = 0;
  std::unique_ptr<open_partition_t> _partition;
  std::vector<vrex_protocol_track_t> _tracks;
};

}  // namespace internal
}  // namespace mediaformats
}  // namespace vrex
