// ReaderVREXImpl: the packet walk, partition walk and wall-clock positioning of ReaderVREX.
#pragma once

#include <climits>
#include <vector>

#include "mediaformats/vrx/reader_vrex.h"
#include "vrx_track.h"

namespace vrex {
namespace mediaformats {
namespace internal {

class ReaderVREXImpl : public ReaderVREX {
 public:
  ReaderVREXImpl();
  ~ReaderVREXImpl() override;

  // The push form: a memory queue that FeedData fills.
  int Initialize(Observer* observer);
  int Initialize(Observer* observer, const std::vector<std::string>& files, bool flag,
                 long offset, long length, bool stopAtFooter);

  std::pair<long, int> SeekToWallClock(long millis, snap_to_idr_t mode) override;
  int SeekToRawOffset(long offset) override;
  const partition_t* ReadPartition(PartitionLastTimestampType type, int& err) override;
  media::frame_t* ReadFrame(int& err) override;
  int ListFragments(long startMillis, long endMillis, std::vector<fragment_t>& out) override;
  int GetStartStopTimestamp(long& start, long& stop) override;
  long GetAvailableDataSize() const override;
  long GetCurrentRawOffset() const override;
  long FeedData(const unsigned char* data, unsigned long size) override;
  int SeekToWc(long millis) override;
  int DropReadAhead() override;

 private:
  static constexpr int kTrackCount = 15;

  void SetUpTracks(Observer* observer);
  vrx_track_t& TrackOf(uint16_t tid);
  void ResetTrackCounters();
  // Peeks the header bytes of the packet at the source's cursor: min(32, what is left).
  int PeekHeader(unsigned char* bytes, unsigned long& count);
  int IgnoreSkipPackets();
  int ReadPartitionPacket(vrx_track_t& track, bool& eof);
  int ReadSeekTable(const partition_footer_record_t& footer, long baseOffset);
  int ValidateSinglePartitionFile(long contentsOffset, long& contentsLength);
  int GetPartitionLastTimestamp(PartitionLastTimestampType type);
  // The end of the data: `_length` bytes from _minCursor, or the end of a source of `size`.
  long MaxCursorFor(long size) const;
  // Whether the data at _minCursor starts with a partition header.
  int IsPartitioned(bool& partitioned, const char* caller);
  long FindPartition(long millis);
  int ListFragmentsFull(long startMillis, long endMillis, std::vector<fragment_t>& out);

  abstraction::DataSource* _source = nullptr;  // owned
  long _readCursor = 0;
  long _minCursor = -1;
  long _maxCursor = -1;
  long _length = 0;         // as asked for at creation; < 1 reads to the end
  bool _fromFiles = false;  // not a push reader: the end follows the files' size
  Observer* _observer = nullptr;
  media::clock_sync_t _clockSync;  // shared by all tracks; reset by each partition header
  vrx_track_t _tracks[kTrackCount];
  partition_t _partition;
  long _partitionReadCursor = 0;
  bool _stopAtFooter = false;
  long _footerOffset = -1;
  long _lastFramePayloadOffset = -1;  // of the packet that completed the last frame
  bool _trace = false;
};

}  // namespace internal
}  // namespace mediaformats
}  // namespace vrex
