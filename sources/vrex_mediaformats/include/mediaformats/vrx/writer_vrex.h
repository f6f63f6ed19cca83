// WriterVREX: turns frames, clock syncs and partition descriptors into .vrx packets. It never
// touches a file: each packet goes to the observer as one list of pieces (the caller's payload
// is one of them, never copied), and the observer decides where the bytes go.
//
// Ownership: Create returns an owning pointer; the observer must outlive the writer.
// Threads: a writer belongs to one thread; the observer is called on it, synchronously, and
// the pieces it receives are valid only during the call.
// Results: the write operations return the bytes emitted (0 for an empty frame; frames are
// at most 2 GiB) or a negative code of vrex::mediaformats: ERR_MEDIAFORMATS_WRITER_OBSERVER_FAILED when the observer refused
// a packet (the byte count then stays where it was), ERR_MEDIAFORMATS_INCORRECT_PARAMETERS,
// ERR_MEDIAFORMATS_PARTITION_ALREADY_OPEN, ERR_MEDIAFORMATS_PARTITION_TABLE_FULL.
#pragma once

#include <sys/uio.h>

#include <cstdint>
#include <memory>

#include "media/clock_sync.h"
#include "media/timestamp.h"
#include "mediaformats/base_writer.h"
#include "mediaformats/vrx/vrx_format.h"

namespace vrex {
namespace mediaformats {

class WriterVREX : public BaseWriter {
 public:
  // The pieces of one packet, in order.
  struct message_t {
    const struct iovec* pieces = nullptr;
    int count = 0;
    unsigned long total = 0;
  };

  class Observer {
   public:
    virtual ~Observer() = default;
    // Takes one packet (or, for a clock sync, one of its two halves); false refuses it.
    virtual bool WriteVREXData(const message_t& message) = 0;
  };

  struct partition_info_t {
    unsigned char fixedMetadata[kFixedMetadataSize] = {0};
    const void* dynamicMetadata = nullptr;  // copied by OpenPartition
    unsigned long dynamicLength = 0;
  };

  // `maxPacketPayload` is the largest payload of one packet: longer frames are cut into
  // fragments. Null with `err` set when the observer is null (ERR_MEDIAFORMATS_NULL_OBSERVER)
  // or the limit is 0.
  static std::unique_ptr<WriterVREX> Create(unsigned int maxPacketPayload, Observer* observer,
                                            int& err);

  // The full size of a complete packet with this timestamp, CTS and payload: header, padded
  // payload and trailer. 16 for an empty skip packet.
  static long ComputeRequiredSpace(const media::timestamp_t* ts, unsigned int cts,
                                   unsigned long payloadLength);

  ~WriterVREX() override = default;

  // H.264 on TID 7, unless `codecTag` is H.265 (TID 1003) or AV1 (TID 1004). A key frame makes
  // a seek point in an open partition that has a valid clock sync.
  int WriteVideoData(const void* data, size_t size, const media::dts_cts_t& ts,
                     bool key) override = 0;
  int WriteVideoData(const void* data, size_t size, const media::dts_cts_t& ts, bool key,
                     unsigned long codecTag) override = 0;
  // AAC on TID 1000, Opus (TID 1002) when `codecTag` says so.
  int WriteAudioData(const void* data, size_t size, const media::dts_cts_t& ts) override = 0;
  int WriteAudioData(const void* data, size_t size, const media::dts_cts_t& ts,
                     unsigned long codecTag) override = 0;
  int WriteClockSync(const media::clock_sync_t& sync) override = 0;
  // A JPEG starting FF D8 FF and longer than 2 bytes; always a seek point. The tag is not
  // stored: the track says JPEG.
  virtual int WriteImageData(const char* data, size_t size, const media::dts_cts_t& ts) = 0;
  int WriteImageData(const char* data, size_t size, const media::dts_cts_t& ts,
                     unsigned long codecTag) override = 0;
  int WriteSnapshotMeta(const media::dts_cts_t& ts, unsigned long refTag) override = 0;

  // Starts a partition; its header is written with the first frame or clock sync, whose
  // timestamp it takes. Seek offsets are relative to the header.
  virtual int OpenPartition(const partition_info_t* info) = 0;
  // Writes the footer with the seek table (nothing if no header was written) and forgets the
  // partition whatever the result.
  virtual long ClosePartition() = 0;

  // The descriptors as such, for code that lays out partitions itself.
  virtual long WritePartitionDescriptorStart(const media::dts_cts_t& ts, long contentsLength,
                                             const unsigned char* fixedMetadata,
                                             const void* dynamicMetadata,
                                             unsigned long dynamicLength) = 0;
  // Fills the 12 header bytes and the 4 trailer bytes of a skip packet with this payload.
  virtual int ComputeSkipPacketHeaderAndFooter(unsigned int payloadLength, unsigned char* header,
                                               unsigned char* trailer) = 0;
  virtual long WritePartitionDescriptorEnd(const media::dts_cts_t& ts, long contentsLength,
                                           const void* seekTable,
                                           unsigned int seekTableLength) = 0;

  // Bytes emitted so far: the writer's only notion of position.
  virtual long GetBytesWritten() const = 0;
};

}  // namespace mediaformats
}  // namespace vrex
