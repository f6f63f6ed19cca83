// ReaderVREXImpl: positioning by wall clock, the file's time range and its recording spans.
#include <algorithm>
#include <chrono>

#include "abstraction/logging.h"
#include "mediaformats/errors.h"
#include "reader_vrex_impl.h"

namespace vrex {
namespace mediaformats {
namespace internal {

namespace {
// Within this distance SNAP_TO_IDR_CLOSEST keeps the key frame before the target.
constexpr long kClosestBeforeWindowMillis = 4999;
// Seek points further apart than this split a recording span.
constexpr long kSeekPointGapMillis = 20000;
// Frames 2,001 ms or more apart split a span when a file has no partitions to list.
constexpr long kFrameGapMillis = 2000;

// Gathers wall clocks into spans: a step longer than `maxStep`, or one back in time, starts a
// new one, so that no span ever ends before it starts.
class span_builder_t {
 public:
  span_builder_t(std::vector<fragment_t>& out, long maxStep) : _out(out), _maxStep(maxStep) {}

  void Add(long wallClock) {
    long step = 0;
    // Wall clocks come from the file: a step too large to compute is a gap too.
    if (_open && (__builtin_sub_overflow(wallClock, _span.end, &step) || step < 0 || step > _maxStep)) {
      Close();
    }
    if (!_open) {
      _span.start = wallClock;
      _open = true;
    }
    _span.end = wallClock;
  }
  void Close() {
    if (_open) _out.push_back(_span);
    _open = false;
  }

 private:
  std::vector<fragment_t>& _out;
  long _maxStep;
  bool _open = false;
  fragment_t _span;
};

// A seek table as written: wall clocks that are known and never go back.
bool IsOrdered(const seek_point_t* points, unsigned long count) {
  for (unsigned long i = 0; i < count; ++i) {
    if (points[i]._wallClockMillis < 0) return false;
    if (i > 0 && points[i]._wallClockMillis < points[i - 1]._wallClockMillis) return false;
  }
  return true;
}

struct candidate_t {
  long wallClock = -1;
  long offset = -1;
  bool Found() const { return offset >= 0; }
};

// The wall clock of a frame that places itself on it, else -1.
long FrameWallClock(const media::frame_t& frame) {
  if (frame.clockSync == nullptr || !frame.clockSync->IsValid()) return -1;
  return frame.clockSync->ComputeWallClock(frame.dtsCts.Dts(), 1000);
}
}  // namespace

int ReaderVREXImpl::IsPartitioned(bool& partitioned, const char* caller) {
  unsigned char bytes[3];
  if (_source->Cursor(_minCursor) != _minCursor || _source->ReadBuffer(bytes, 3) != 3) {
    LOGE << "<-# ReaderVREXImpl::" << caller << " FAILED! ReadBuffer() failed 3 bytes";
    return VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_OFFSET);
  }
  partitioned = ((bytes[1] << 8) | bytes[2]) == VRX_TID_PARTITION_HEADER;
  return 0;
}

long ReaderVREXImpl::FindPartition(long millis) {
  bool partitioned = false;
  VREX_CHECK(IsPartitioned(partitioned, "FindPartition"));
  if (!partitioned) return _minCursor;
  _partitionReadCursor = _minCursor;
  long startOffset = -1;
  int err = 0;
  while (const partition_t* partition = ReadPartition(PARTITION_LAST_TIMESTAMP_NONE, err)) {
    const unsigned long count = partition->_seekPointsCount;
    if (count == 0) continue;
    const seek_point_t* points = partition->_pSeekPoints;
    if (points[0]._wallClockMillis > millis) {
      if (startOffset < 0) startOffset = points[0]._offset;
      break;
    }
    if (points[count - 1]._wallClockMillis >= millis) {
      unsigned long below = 0;
      while (below + 1 < count && points[below + 1]._wallClockMillis < millis) ++below;
      startOffset = points[below]._offset;
      break;
    }
    startOffset = points[count - 1]._offset;
  }
  if (err < 0) return err;
  if (startOffset < _minCursor || startOffset > _maxCursor) {
    LOGE << "<-# ReaderVREXImpl::FindPartition FAILED! no partition for " << millis
         << " startOffset=" << startOffset;
    return VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_PARAMETERS);
  }
  return startOffset;
}

std::pair<long, int> ReaderVREXImpl::SeekToWallClock(long millis, snap_to_idr_t mode) {
  if (millis < 0) return {-1, VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_PARAMETERS)};
  const long savedPartitionCursor = _partitionReadCursor;
  const long start = FindPartition(millis);
  _partitionReadCursor = savedPartitionCursor;
  if (start < 0) return {-1, static_cast<int>(start)};
  int err = SeekToRawOffset(start);
  if (err < 0) return {-1, err};

  candidate_t before, after, exact;
  long offset = start;
  while (const media::frame_t* frame = ReadFrame(err)) {
    if (!frame->keyFrame || media::tagKind(frame->tag) == 'A') continue;
    const long wallClock = FrameWallClock(*frame);
    if (wallClock < 0) continue;
    // Restarting at the sync node in force lets a reader meet it before the key frame.
    offset = std::max(offset, frame->clockSync->offset);
    const candidate_t candidate{wallClock, offset};
    if (wallClock == millis) {
      exact = candidate;
      break;
    }
    if (wallClock > millis) {
      after = candidate;
      break;
    }
    before = candidate;
  }
  // A reader that stops at a footer runs out of frames with "need more data": that is the end
  // of what there is, not a failure of the seek.
  if (err < 0 && err != ERR_MEDIAFORMATS_NEED_MORE_DATA) return {-1, err};
  if (!exact.Found() && !after.Found() && !before.Found()) {
    LOGE << "<-# ReaderVREXImpl::SeekToWallClock FAILED! (before._offset < 0) millis=" << millis;
    return {-1, VREX_ERROR(ERR_MEDIAFORMATS_WALL_CLOCK_NOT_FOUND)};
  }
  const bool validMode = mode >= SNAP_TO_IDR_BEFORE && mode <= SNAP_TO_IDR_CLOSEST;
  candidate_t chosen;
  if (exact.Found()) {
    chosen = exact;
    if (!validMode) chosen.wallClock = -1;
  } else if (!validMode) {
    return {-1, VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_PARAMETERS)};
  } else if (!after.Found()) {
    chosen = before;
  } else if (!before.Found()) {
    chosen = after;
  } else if (mode == SNAP_TO_IDR_BEFORE) {
    chosen = before;
  } else if (mode == SNAP_TO_IDR_AFTER) {
    chosen = after;
  } else {
    chosen = millis - before.wallClock <= kClosestBeforeWindowMillis ? before : after;
  }
  err = SeekToRawOffset(chosen.offset);
  if (err < 0) return {-1, err};
  return {chosen.wallClock, 0};
}

int ReaderVREXImpl::SeekToWc(long millis) {
  const unsigned long count = _partition._seekPointsCount;
  if (count == 0) {
    LOGE << "<-# ReaderVREXImpl::SeekToWc FAILED! No seek points";
    return VREX_ERROR(ERR_MEDIAFORMATS_SEEK_FAILED);
  }
  unsigned long left = 0;
  unsigned long right = count;
  while (left < right) {
    const unsigned long mid = left + (right - left) / 2;
    const seek_point_t& entry = _partition._pSeekPoints[mid];
    if (entry._wallClockMillis == millis) return SeekToRawOffset(entry._offset);
    if (entry._wallClockMillis < millis) {
      left = mid + 1;
    } else {
      right = mid;
    }
  }
  LOGE << "<-# ReaderVREXImpl::SeekToWc FAILED! Unable to seek to wall clock " << millis
       << " left=" << left << " right=" << right;
  return VREX_ERROR(ERR_MEDIAFORMATS_SEEK_FAILED);
}

int ReaderVREXImpl::GetStartStopTimestamp(long& start, long& stop) {
  bool partitioned = false;
  VREX_CHECK(IsPartitioned(partitioned, "GetStartStopTimestamp"));
  VREX_CHECK(SeekToRawOffset(_minCursor));
  long first = -1;
  long last = -1;
  long lastOffset = _minCursor;
  int err = 0;
  const long savedPartitionCursor = _partitionReadCursor;
  _partitionReadCursor = _minCursor;
  while (const partition_t* partition = ReadPartition(PARTITION_LAST_TIMESTAMP_NONE, err)) {
    const unsigned long count = partition->_seekPointsCount;
    if (count == 0) continue;
    const seek_point_t* points = partition->_pSeekPoints;
    if (first < 0 || points[0]._wallClockMillis < first) first = points[0]._wallClockMillis;
    if (points[count - 1]._wallClockMillis <= last) break;
    last = points[count - 1]._wallClockMillis;
    lastOffset = points[count - 1]._offset;
  }
  _partitionReadCursor = savedPartitionCursor;
  if (err < 0) {
    LOGE << "<-# ReaderVREXImpl::GetStartStopTimestamp FAILED! ReadPartition() failed, err=" << err;
    return err;
  }
  VREX_CHECK(SeekToRawOffset(lastOffset));
  long maximum = -1;
  while (const media::frame_t* frame = ReadFrame(err)) {
    maximum = std::max(maximum, FrameWallClock(*frame));
  }
  if (err < 0) return err;
  if (first >= 0) start = first;
  if (maximum != -1) stop = maximum;
  return 0;
}

int ReaderVREXImpl::ListFragments(long startMillis, long endMillis, std::vector<fragment_t>& out) {
  bool partitioned = false;
  VREX_CHECK(IsPartitioned(partitioned, "ListFragments"));
  if (!partitioned) return ListFragmentsFull(startMillis, endMillis, out);
  const long savedPartitionCursor = _partitionReadCursor;
  _partitionReadCursor = _minCursor;
  int err = 0;
  while (const partition_t* partition = ReadPartition(PARTITION_LAST_TIMESTAMP_NONE, err)) {
    const unsigned long count = partition->_seekPointsCount;
    if (count == 0) continue;
    const seek_point_t* points = partition->_pSeekPoints;
    if (!IsOrdered(points, count)) {
      LOGE << "<-# ReaderVREXImpl::ListFragments FAILED! Seek table out of order in partition at offset "
           << partition->_offset;
      _partitionReadCursor = savedPartitionCursor;
      return VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT);
    }
    if (endMillis > 0 && points[0]._wallClockMillis > endMillis) break;
    if (startMillis > 0 && points[count - 1]._wallClockMillis < startMillis) continue;
    span_builder_t spans(out, kSeekPointGapMillis);
    for (unsigned long i = 0; i < count; ++i) {
      const long wallClock = points[i]._wallClockMillis;
      if (startMillis > 0 && wallClock < startMillis) continue;
      spans.Add(wallClock);
      if (endMillis > 0 && wallClock >= endMillis) break;
    }
    spans.Close();
  }
  _partitionReadCursor = savedPartitionCursor;
  return err;
}

int ReaderVREXImpl::ListFragmentsFull(long startMillis, long endMillis,
                                      std::vector<fragment_t>& out) {
  const auto began = std::chrono::steady_clock::now();
  VREX_CHECK(SeekToRawOffset(_minCursor));
  const long from = std::max(startMillis, 0L);
  span_builder_t spans(out, kFrameGapMillis);
  int err = 0;
  while (const media::frame_t* frame = ReadFrame(err)) {
    if (media::tagKind(frame->tag) != 'V') continue;
    const long wallClock = FrameWallClock(*frame);
    if (wallClock < 0 || wallClock < from) continue;
    if (endMillis > 0 && wallClock > endMillis) break;
    spans.Add(wallClock);
  }
  spans.Close();
  const auto spent = std::chrono::duration_cast<std::chrono::milliseconds>(
      std::chrono::steady_clock::now() - began);
  LOGD << "ReaderVREXImpl::ListFragmentsFull " << out.size() << " fragments in " << spent.count()
       << " ms";
  return err;
}

}  // namespace internal
}  // namespace mediaformats
}  // namespace vrex
