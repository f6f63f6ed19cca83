// A partition of a .vrx file as a reader returns it: bounds, metadata and seek table.
#pragma once

#include <cstdint>
#include <string>

#include "mediaformats/vrx/vrx_format.h"

namespace vrex {
namespace mediaformats {

// One seek table entry. In memory `_offset` is the file offset plus the base offset of the
// file in a multi-file source.
struct seek_point_t {
  long _offset = 0;
  long _wallClockMillis = 0;
};

// A byte range of the file; -1 when unset.
struct partition_bounds_t {
  long _offset = -1;
  long _size = -1;
};

// How SeekToWallClock lands when the time is not a key frame's own.
enum snap_to_idr_t : int { SNAP_TO_IDR_BEFORE = 0, SNAP_TO_IDR_AFTER = 1, SNAP_TO_IDR_CLOSEST = 2 };

// Which frames ReadPartition looks at for the partition's last wall clock: none, video and
// images, or everything but audio.
enum PartitionLastTimestampType : int {
  PARTITION_LAST_TIMESTAMP_NONE = 0,
  PARTITION_LAST_TIMESTAMP_VIDEO_AND_IMAGES = 1,
  PARTITION_LAST_TIMESTAMP_ALL_BUT_AUDIO = 2,
};

// A span of continuous recording, wall clocks in ms, both ends included.
struct fragment_t {
  long start = -1;
  long end = -1;
};

struct partition_t {
  long _offset = -1;  // of the header packet
  long _size = -1;    // header through footer
  unsigned char _fixedMetadata[kFixedMetadataSize] = {0};
  partition_bounds_t _dynamicMetadata;
  partition_bounds_t _contents;  // between header and footer
  unsigned long _seekPointsCount = 0;
  seek_point_t* _pSeekPoints = nullptr;  // owned, new[]
  long _lastWallClockMillis = -1;

  partition_t() = default;
  partition_t(const partition_t& other);
  partition_t& operator=(const partition_t& other);
  ~partition_t();

  // Frees the table and allocates `count` entries (zeroed on request); 0 leaves it null.
  void AllocateSeekPoints(unsigned long count, bool zero);
  // Copies `count` entries; a null `points` empties the table.
  void SetSeekpoints(const seek_point_t* points, unsigned long count);
  void Clear();

  // The fixed metadata dump, then dynamic metadata, contents, seek points and end, one per
  // line; `humanTimes` writes wall clocks as UTC text.
  std::string ToString(bool humanTimes) const;
};

}  // namespace mediaformats
}  // namespace vrex
