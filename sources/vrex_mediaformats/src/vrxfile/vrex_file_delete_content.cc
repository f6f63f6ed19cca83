// VREXFileDeleteContent: which partitions an interval meets, and what goes of each.
#include "vrxfile/vrex_file_delete_content.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <sstream>

#include "abstraction/logging.h"
#include "mediaformats/errors.h"
#include "vrxfile/vrex_file_appender.h"

namespace vrex {
namespace mediaformats {
namespace internal {

std::string deleted_content_t::ToString() const {
  return "frame offsets=" + _frames.ToString() + "; seek point indexes=" + _seekPoints.ToString();
}

VREXFileDeleteContent::VREXFileDeleteContent(const std::string& path, long startMillis,
                                             long endMillis, bool zeroFill)
    : _path(path),
      _wallClockStartMillis(startMillis),
      _wallClockEndMillis(endMillis),
      _zeroFill(zeroFill),
      _trace(getenv("MS_VRX_DELETE_TRACE") != nullptr) {}

VREXFileDeleteContent::~VREXFileDeleteContent() {
  if (_fd >= 0) close(_fd);
}

int VREXFileDeleteContent::ListPartitions(std::vector<delete_partition_bounds_t>& out) {
  int err = 0;
  std::unique_ptr<ReaderVREX> reader = ReaderVREX::Create(nullptr, _path.c_str(), true, 0, -1, err);
  if (!reader) {
    LOGE << "<-# VREXFileDeleteContent::Work FAILED! Cant create VRX reader for " << _path
         << " err=" << err;
    return err;
  }
  _fd = open(_path.c_str(), O_RDWR | O_CLOEXEC);
  if (_fd < 0) {
    const int code = errno;
    LOGE << "<-# VREXFileDeleteContent::Work FAILED! Cant open file " << _path << " errno=" << code;
    return VREX_ERROR(::vrex::errors::SystemError(code));
  }
  while (const partition_t* partition = reader->ReadPartition(PARTITION_LAST_TIMESTAMP_NONE, err)) {
    if (partition->_seekPointsCount == 0) {
      LOGI << "    VREXFileDeleteContent::Work partition with no seek points. Skipping. offset="
           << partition->_offset;
      continue;
    }
    out.push_back({partition->_offset, partition->_size, partition->_pSeekPoints[0]._wallClockMillis,
                   partition->_lastWallClockMillis});
    if (out.back().firstWcMillis >= _wallClockEndMillis) {
      LOGI << "    VREXFileDeleteContent::Work found partition " << partition->_offset
           << " which is after the endWcMillis=" << _wallClockEndMillis;
      break;
    }
  }
  if (err < 0) {
    LOGE << "<-# VREXFileDeleteContent::Work FAILED! Cant read partition from " << _path
         << " err=" << err;
    return err;
  }
  // A last wall clock costs a walk of the partition's last GOP. Partitions lie in the order of
  // their recordings, so one whose successor starts at or before the interval does not reach
  // it, and its last wall clock plays no part: only the others are walked.
  for (size_t i = 0; i < out.size(); ++i) {
    if (i + 1 < out.size() && out[i + 1].firstWcMillis <= _wallClockStartMillis) continue;
    std::unique_ptr<ReaderVREX> one = ReaderVREX::Create(nullptr, _path.c_str(), true, out[i].offset, out[i].size, err);
    const partition_t* partition =
        one ? one->ReadPartition(PARTITION_LAST_TIMESTAMP_VIDEO_AND_IMAGES, err) : nullptr;
    if (partition == nullptr) {
      LOGE << "<-# VREXFileDeleteContent::Work FAILED! Cant read partition from " << _path
           << " at offset " << out[i].offset << " err=" << err;
      return err < 0 ? err : VREX_ERROR(ERR_MEDIAFORMATS_DELETE_PARTITION);
    }
    out[i]._lastWcMillis = partition->_lastWallClockMillis;
  }
  return 0;
}

void VREXFileDeleteContent::TracePartitions(const std::vector<delete_partition_bounds_t>& partitions,
                                            size_t start, size_t end) const {
  std::ostringstream text;
  for (size_t i = 0; i < partitions.size(); ++i) {
    const delete_partition_bounds_t& p = partitions[i];
    char range[40];
    snprintf(range, sizeof range, " (%11ld - %11ld)", p.offset, p.offset + p.size);
    text << "\n    " << (i == start ? 'S' : ' ') << (i == end ? 'E' : ' ') << " | "
         << p.firstWcMillis << " | " << p._lastWcMillis << range;
  }
  LOGI << "    VREXFileDeleteContent::Work " << _path << " [" << _wallClockStartMillis << ", "
       << _wallClockEndMillis << "]" << text.str();
}

int VREXFileDeleteContent::Work() {
  std::vector<delete_partition_bounds_t> parts;
  VREX_CHECK(ListPartitions(parts));
  long& start = _wallClockStartMillis;
  long& end = _wallClockEndMillis;
  if (parts.empty()) {
    LOGI << "<-# VREXFileDeleteContent::Work no partitions to delete with startWcMillis=" << start
         << " and endWcMillis=" << end << " in " << _path;
    return 0;
  }
  const size_t count = parts.size();
  if (start > parts.back()._lastWcMillis) {
    LOGI << "<-# VREXFileDeleteContent::Work last partition with _lastWcMillis="
         << parts.back()._lastWcMillis << " which is before the _wallClockStartMillis=" << start;
    return 0;
  }
  if (end < parts.front().firstWcMillis) {
    LOGI << "<-# VREXFileDeleteContent::Work first partition with firstWcMillis="
         << parts.front().firstWcMillis << " which is after the _wallClockEndMillis=" << end;
    return 0;
  }
  for (size_t i = 0; i + 1 < count; ++i) {
    if (start > parts[i]._lastWcMillis && end < parts[i + 1].firstWcMillis) {
      LOGI << "<-# VREXFileDeleteContent::Work Delete interval [" << start << ", " << end
           << "] lies between partitions; nothing to delete";
      return 0;
    }
  }
  size_t startIndex = count;
  if (start < parts[0].firstWcMillis) {
    LOGI << "    VREXFileDeleteContent::Work startWcMillis=" << start
         << " is before the first partition firstWcMillis=" << parts[0].firstWcMillis
         << " changing startWcMillis to " << parts[0].firstWcMillis;
    start = parts[0].firstWcMillis;
    startIndex = 0;
  }
  for (size_t i = 0; startIndex == count && i < count; ++i) {
    if (i > 0 && start > parts[i - 1]._lastWcMillis && start < parts[i].firstWcMillis) {
      LOGI << "    VREXFileDeleteContent::Work startWcMillis=" << start << " is between partitions["
           << i - 1 << "] and [" << i << "] using startWcMillis=" << parts[i].firstWcMillis;
      start = parts[i].firstWcMillis;
      startIndex = i;
    } else if (start >= parts[i].firstWcMillis && start <= parts[i]._lastWcMillis) {
      LOGI << "    VREXFileDeleteContent::Work startWcMillis=" << start << " is within partitions["
           << i << "]";
      startIndex = i;
    }
  }
  size_t endIndex = count;
  for (size_t i = 0; endIndex == count && i < count; ++i) {
    if (i > 0 && end > parts[i - 1]._lastWcMillis && end < parts[i].firstWcMillis) {
      LOGI << "    VREXFileDeleteContent::Work endWcMillis=" << end << " is between partitions["
           << i - 1 << "] and [" << i << "] using endWcMillis=" << parts[i - 1]._lastWcMillis;
      end = parts[i - 1]._lastWcMillis;
      endIndex = i - 1;
    } else if (end >= parts[i].firstWcMillis && end <= parts[i]._lastWcMillis) {
      LOGI << "    VREXFileDeleteContent::Work endWcMillis=" << end << " is within partitions[" << i << "]";
      endIndex = i;
    }
  }
  if (endIndex == count && end > parts.back()._lastWcMillis) {
    LOGI << "    VREXFileDeleteContent::Work endWcMillis=" << end
         << " is after the last partition lastWcMillis=" << parts.back()._lastWcMillis;
    end = parts.back()._lastWcMillis + 1;
    endIndex = count - 1;
  }
  if (startIndex == count || endIndex == count || startIndex > endIndex) {
    // Only partitions whose clocks disagree with their own seek tables get here.
    LOGW << "<-# VREXFileDeleteContent::Work Delete interval [" << start << ", " << end
         << "] matches no partition of " << _path << "; nothing to delete";
    return 0;
  }
  if (_trace) TracePartitions(parts, startIndex, endIndex);

  bool headWhole = false;
  if (startIndex < endIndex) {
    headWhole = start <= parts[startIndex].firstWcMillis;
    const size_t firstWhole = headWhole ? startIndex : startIndex + 1;
    if (firstWhole < endIndex) VREX_CHECK(DeleteWholePartitions(parts, firstWhole, endIndex));
  }
  int err = 0;
  if (!headWhole) {
    err = DeletePartitionContents(parts[startIndex],
                                  startIndex == endIndex ? DELETE_MODE_MIDDLE : DELETE_MODE_TAIL,
                                  startIndex);
    if (err < 0) {
      LOGE << "<-# VREXFileDeleteContent::Work FAILED! DeletePartitionContents() #1 error=" << err;
      return err;
    }
  }
  if (startIndex != endIndex) {
    err = DeletePartitionContents(parts[endIndex], DELETE_MODE_HEAD, endIndex);
    if (err < 0) {
      LOGE << "<-# VREXFileDeleteContent::Work FAILED! DeletePartitionContents() #2 error=" << err;
    }
  }
  return err;
}

int VREXFileDeleteContent::DeleteWholePartitions(
    const std::vector<delete_partition_bounds_t>& partitions, size_t first, size_t end) {
  for (size_t from = first; from < end;) {
    // The run grows while one skip packet still holds it.
    size_t to = from + 1;
    const long offset = partitions[from].offset;
    while (to < end && partitions[to].offset + partitions[to].size - offset <= kFullSkipPacketSize) ++to;
    const long span = partitions[to - 1].offset + partitions[to - 1].size - offset;
    LOGI << "    VREXFileDeleteContent::Work Delete middle full partitions " << from << " to "
         << to - 1 << " bounds=[" << offset << ", " << offset + span << ")";
    const int err = AddSkipPackets(offset, span);
    if (err < 0) {
      LOGE << "<-# VREXFileDeleteContent::Work FAILED! AddSkipPackets() error=" << err;
      return err;
    }
    from = to;
  }
  return 0;
}

int VREXFileDeleteContent::AddSkipPackets(long offset, long length) {
  return VREXFileAppender::AddSkipPackets(_fd, offset, length, _zeroFill);
}

}  // namespace internal
}  // namespace mediaformats
}  // namespace vrex
