// ReaderVREX: the one way to read a .vrx file. It walks partitions through their footers
// (ReadPartition), frames packet by packet (ReadFrame), and positions by wall clock or raw
// offset. It reports what it meets to an optional observer.
//
// Ownership: Create returns an owning pointer. Frames and partitions are handed out as
// pointers into the reader, valid until its next call; a frame's payload stays in the source
// (frame_t::pDataSource at frame_t::offset) unless it was reassembled from fragments
// (frame_t::pData), and media::CopyFramePayload fetches it either way.
// Threads: a reader belongs to one thread; the observer is called on it, synchronously.
// Results: null with `err` 0 means the end of the data. Read failures return null with `err`
// set and leave the reader at the start of the packet at fault, so that a later call retries;
// the reader never resynchronises past a damaged packet. Codes are vrex::mediaformats's
// (ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT for damaged data, ERR_MEDIAFORMATS_SEEK_FAILED,
// ERR_MEDIAFORMATS_INCORRECT_OFFSET, ERR_MEDIAFORMATS_INCORRECT_PARAMETERS,
// ERR_MEDIAFORMATS_WALL_CLOCK_NOT_FOUND, ERR_MEDIAFORMATS_READER_OBSERVER_FAILED) or the data
// source's.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "abstraction/datasource.h"
#include "media/clock_sync.h"
#include "media/frame.h"
#include "mediaformats/vrx/partition.h"
#include "mediaformats/vrx/vrx_format.h"

namespace vrex {
namespace mediaformats {

class ReaderVREX {
 public:
  // Every operation defaults to nothing and 0; a non-zero result stops the read with
  // ERR_MEDIAFORMATS_READER_OBSERVER_FAILED. Pointers and references are valid only during
  // the call.
  class Observer {
   public:
    virtual ~Observer() = default;
    // Each packet as met: its offset and whole size, and its fragment bits.
    virtual int SignalPacket(unsigned short, VREXPayloadType, abstraction::DataSource*, long,
                             long, bool, bool) { return 0; }
    // The sequence of `tid` jumped from `last` to `got` instead of `expected`.
    virtual int SignalPacketsLoss(unsigned short, VREXPayloadType, long, unsigned short,
                                  unsigned short, unsigned short) { return 0; }
    // A last fragment did not complete its frame; the fragments are dropped.
    virtual int SignalMalformedPacketsDetected(unsigned short, VREXPayloadType) { return 0; }
    // The payload of a packet on a track not known here: in `data` when it is in memory, else
    // in `ds` at `offset`.
    virtual int SignalPayloadRaw(unsigned short, VREXPayloadType, abstraction::DataSource*, long,
                                 const void*, long) { return 0; }
    virtual int SignalPayloadTidMap(unsigned short) { return 0; }
    virtual int SignalPayloadAudioAacAdts(unsigned short, media::frame_t&) { return 0; }
    virtual int SignalPayloadAudioOpus(unsigned short, media::frame_t&) { return 0; }
    virtual int SignalPayloadVideoH264NaluB(unsigned short, media::frame_t&) { return 0; }
    virtual int SignalPayloadScToWc(const media::clock_sync_t&) { return 0; }
    virtual int SignalPartitionHeader(unsigned short) { return 0; }
    virtual int SignalPartitionFooter(unsigned short) { return 0; }
    virtual int SignalPayloadMilestone(unsigned short) { return 0; }
    virtual int SignalPayloadSkip(unsigned short) { return 0; }
    virtual int SignalPayloadVideoH264NaluAvcc(unsigned short, media::frame_t&) { return 0; }
    virtual int SignalPayloadVideoH265NaluAvcc(unsigned short, media::frame_t&) { return 0; }
    virtual int SignalPayloadVideoAV1(unsigned short, media::frame_t&) { return 0; }
    virtual int SignalPayloadImageJpeg(unsigned short, media::frame_t&) { return 0; }
    virtual int SignalPayloadSnapshotMeta(unsigned short, media::dts_cts_t&, unsigned long) {
      return 0;
    }
  };

  // A push reader over a memory queue filled by FeedData; `observer` must not be null.
  static std::unique_ptr<ReaderVREX> Create(Observer* observer, int& err);
  // A reader over `files` read as one, limited to `length` bytes (< 1: to the end) from
  // `offset` (< 0: 0). With `stopAtFooter`, ReadFrame stops at a partition footer met at the
  // end of the data (ERR_MEDIAFORMATS_NEED_MORE_DATA) and leaves the reader on it. `observer`
  // may be null.
  static std::unique_ptr<ReaderVREX> Create(Observer* observer,
                                            const std::vector<std::string>& files, bool flag,
                                            long offset, long length, bool stopAtFooter,
                                            int& err);
  static std::unique_ptr<ReaderVREX> Create(Observer* observer,
                                            const std::vector<std::string>& files, bool flag,
                                            long offset, long length, int& err);
  static std::unique_ptr<ReaderVREX> Create(Observer* observer, const char* file, bool flag,
                                            long offset, long length, int& err);

  virtual ~ReaderVREX() = default;

  // Positions ReadFrame on a key frame (or the sync node before it) by wall clock in ms.
  // Returns the key frame's wall clock and 0, or -1 and a code.
  virtual std::pair<long, int> SeekToWallClock(long millis, snap_to_idr_t mode) = 0;
  virtual int SeekToRawOffset(long offset) = 0;
  // The next partition, stepping over skip packets; null with `err` 0 after the last one.
  virtual const partition_t* ReadPartition(PartitionLastTimestampType type, int& err) = 0;
  virtual media::frame_t* ReadFrame(int& err) = 0;
  // Spans of continuous recording that meet [startMillis, endMillis] (0: unbounded).
  virtual int ListFragments(long startMillis, long endMillis, std::vector<fragment_t>& out) = 0;
  // First and last wall clock of the file; each written only when known.
  virtual int GetStartStopTimestamp(long& start, long& stop) = 0;
  virtual long GetAvailableDataSize() const = 0;
  virtual long GetCurrentRawOffset() const = 0;
  // Push reader: appends the bytes and reads every frame they complete, through the
  // observer. Returns `size` or the read's error.
  virtual long FeedData(const unsigned char* data, unsigned long size) = 0;
  // Exact positioning on a seek point of the partition last read.
  virtual int SeekToWc(long millis) = 0;
  // Forgets what the file source read ahead and takes the file sizes anew; a reader made to
  // read to the end of its files has its end moved with them. Positions, the partition last
  // read and what the tracks know are kept. The reader reads ahead of the packet it is on and
  // keeps those bytes until this call: a caller that released its file locks and took them
  // again must call it before reading on, since others may have changed or grown the file in
  // between. Without the call the reader may see the file as it was (old bytes, the old end).
  // A push reader has nothing to drop. Returns 0 or the data source's code.
  virtual int DropReadAhead() = 0;
};

}  // namespace mediaformats
}  // namespace vrex
