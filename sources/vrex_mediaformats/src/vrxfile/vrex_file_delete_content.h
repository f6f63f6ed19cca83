// VREXFileDeleteContent: erases a wall-clock interval from a managed .vrx file in place.
// Nothing moves: deleted ranges become skip packets of the same total size, and the seek
// entries of deleted GOPs leave their footers, which shrink in place and give the bytes
// behind them to a skip packet.
//
//   partitions wholly inside the interval   one skip packet each run (< 4 GiB)
//   the partition where it starts           its tail, cut on a frame (DELETE_MODE_TAIL)
//   the partition where it ends             its head, cut on a seek point (DELETE_MODE_HEAD)
//   an interval within one partition        both cuts, where both hold (DELETE_MODE_MIDDLE)
//
// Crashes: the steps stand on their own, in that order; whatever was deleted stays deleted,
// and every write leaves each partition readable forward (through its header and footer, and
// packet by packet), so that recover, which rebuilds the tables, keeps all partitions.
//
// Threads: one object does one Work() on one thread, with the file reserved in
// VREXFileAppenderCache and under the caller's exclusive locks.
// Errors: ERR_MEDIAFORMATS_DELETE_PARTITION (a partition not where the walk saw it),
// ERR_MEDIAFORMATS_DELETE_MODE, ERR_MEDIAFORMATS_DELETE_OFFSET, ERR_MEDIAFORMATS_NO_SYNC_NODE
// (a video frame of the partition to cut has no clock sync), the reader's codes, errno codes.
#pragma once

#include <string>
#include <vector>

#include "abstraction/interval.h"
#include "mediaformats/vrx/partition.h"
#include "mediaformats/vrx/reader_vrex.h"

namespace vrex {
namespace mediaformats {
namespace internal {

// What DeletePartitionContents takes out of one partition: a byte range of its contents and
// the indexes of the seek entries that lead into it. Either may be invalid (nothing).
struct deleted_content_t {
  abstraction::interval_t _frames;
  abstraction::interval_t _seekPoints;
  // "frame offsets=[a, b]; seek point indexes=[c, d]"
  std::string ToString() const;
};

// One partition as Work() sees it.
struct delete_partition_bounds_t {
  long offset = -1;
  long size = -1;
  long firstWcMillis = -1;  // its first seek point
  long _lastWcMillis = -1;  // its last video or image frame; -1 where it cannot matter
};

class VREXFileDeleteContent {
 public:
  enum delete_mode_t : int {
    DELETE_MODE_HEAD = 0,    // from the partition's start to the interval's end
    DELETE_MODE_TAIL = 1,    // from the interval's start to the partition's end
    DELETE_MODE_MIDDLE = 2,  // the interval lies within this one partition
  };

  // [startMillis, endMillis], both included; `zeroFill` asks the file system to zero the bytes
  // of every range given back.
  VREXFileDeleteContent(const std::string& path, long startMillis, long endMillis, bool zeroFill);
  ~VREXFileDeleteContent();
  VREXFileDeleteContent(const VREXFileDeleteContent&) = delete;
  VREXFileDeleteContent& operator=(const VREXFileDeleteContent&) = delete;

  // Returns 0 (also when nothing lay in the interval) or the first failure; what was deleted
  // before a failure stays deleted.
  int Work();

  // Removes the seek entries [evictedIndex, evictedIndex + evictedSize) from the footer of
  // `partition` in place: the footer shrinks by evictedSize * 16 bytes at its end, and a skip
  // packet takes them. The entries are written before the footer's sizes change, and the skip
  // packet before the footer's payload size, so that every write leaves a footer that reads.
  int SavePartitionFooter(const partition_t& partition, long evictedIndex, long evictedSize);

 private:
  // Collects the partitions from the start of the file up to the first one at or after the
  // interval's end, with the last wall clocks of those that may reach the interval.
  int ListPartitions(std::vector<delete_partition_bounds_t>& out);
  void TracePartitions(const std::vector<delete_partition_bounds_t>& partitions, size_t start,
                       size_t end) const;
  // Lays skip packets over the whole partitions [first, end), in runs that one skip packet
  // each can hold, so that a crash between two leaves whole partitions on either side.
  int DeleteWholePartitions(const std::vector<delete_partition_bounds_t>& partitions, size_t first,
                            size_t end);
  int DeletePartitionContents(const delete_partition_bounds_t& bounds, delete_mode_t mode,
                              size_t index);
  void ComputeDeletedHead(const partition_t& partition, deleted_content_t& out) const;
  int ComputeDeletedTail(ReaderVREX& reader, const partition_t& partition,
                         deleted_content_t& out) const;
  int PerformDeletePartitionContents(const partition_t& partition, const deleted_content_t& deleted);
  int AddSkipPackets(long offset, long length);

  const std::string _path;
  long _wallClockStartMillis;
  long _wallClockEndMillis;
  const bool _zeroFill;
  int _fd = -1;  // read and write
  const bool _trace;
};

}  // namespace internal
}  // namespace mediaformats
}  // namespace vrex
