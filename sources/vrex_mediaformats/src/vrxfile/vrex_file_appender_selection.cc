// VREXFileAppender: copying a wall-clock selection of several source files into one new
// partition. A selection is cut on seek points, so it may begin up to one GOP before its
// start, and a partition with a single seek point is taken whole.
#include <algorithm>
#include <sstream>

#include "abstraction/logging.h"
#include "mediaformats/errors.h"
#include "vrxfile/vrex_file_appender.h"

namespace vrex {
namespace mediaformats {
namespace internal {

namespace {

// The part of `partition` from seek point `first` up to seek point `end` (its offset ends the
// contents, and the entry itself is kept), or to the end of the contents when `end` is the
// count. Offsets stay those of the source.
partition_t Extract(const partition_t& partition, unsigned long first, unsigned long end) {
  const seek_point_t* points = partition._pSeekPoints;
  const long contentsEnd = partition._contents._offset + partition._contents._size;
  const bool toEnd = end >= partition._seekPointsCount;
  partition_t out = partition;
  out._contents._offset = points[first]._offset;
  out._contents._size = (toEnd ? contentsEnd : points[end]._offset) - out._contents._offset;
  out.SetSeekpoints(points + first, (toEnd ? partition._seekPointsCount : end + 1) - first);
  return out;
}

// The index of the first seek point later than `millis`, or the count.
unsigned long FirstAfter(const partition_t& partition, long millis) {
  unsigned long i = 0;
  while (i < partition._seekPointsCount && partition._pSeekPoints[i]._wallClockMillis <= millis) ++i;
  return i;
}

// The index of the last seek point at or before `millis`; 0 when there is none.
unsigned long LastAtOrBefore(const partition_t& partition, long millis) {
  const unsigned long after = FirstAfter(partition, millis);
  return after > 0 ? after - 1 : 0;
}

partition_t ExtractHead(const partition_t& partition, long endMillis) {
  return Extract(partition, 0, FirstAfter(partition, endMillis));
}

partition_t ExtractTail(const partition_t& partition, long startMillis) {
  return Extract(partition, LastAtOrBefore(partition, startMillis), partition._seekPointsCount);
}

partition_t ExtractBody(const partition_t& partition, long startMillis, long endMillis) {
  return Extract(partition, LastAtOrBefore(partition, startMillis),
                 FirstAfter(partition, endMillis));
}

}  // namespace

std::string file_partitions_t::ToString(bool humanTimes) const {
  std::ostringstream text;
  text << path << ": " << partitions.size() << " partitions";
  for (const partition_t& partition : partitions) text << "\n" << partition.ToString(humanTimes);
  return text.str();
}

int VREXFileAppender::ScanFile(ReaderVREX& reader, long startMillis, long endMillis,
                               file_partitions_t& out) {
  int err = 0;
  while (const partition_t* partition =
             reader.ReadPartition(PARTITION_LAST_TIMESTAMP_VIDEO_AND_IMAGES, err)) {
    if (partition->_seekPointsCount == 0) continue;
    const long first = partition->_pSeekPoints[0]._wallClockMillis;
    const long last = partition->_lastWallClockMillis;
    if (first > endMillis || last < startMillis) continue;
    if (partition->_seekPointsCount == 1 || (first >= startMillis && last <= endMillis)) {
      out.partitions.push_back(*partition);
    } else if (first < startMillis && last > endMillis) {
      out.partitions.push_back(ExtractBody(*partition, startMillis, endMillis));
    } else if (first < startMillis) {
      out.partitions.push_back(ExtractTail(*partition, startMillis));
    } else {
      out.partitions.push_back(ExtractHead(*partition, endMillis));
    }
  }
  return err;
}

int VREXFileAppender::ScanFiles(const std::vector<std::string>& srcs, long startMillis,
                                long endMillis, std::vector<file_partitions_t>& out) {
  for (const std::string& src : srcs) {
    int err = 0;
    std::unique_ptr<ReaderVREX> reader = ReaderVREX::Create(this, src.c_str(), true, -1, -1, err);
    if (!reader) {
      LOGE << "<-# VREXFileAppender::ScanFiles FAILED! ReaderVREX::Create for " << src
           << " err=" << err;
      return err;
    }
    file_partitions_t file;
    file.path = src;
    err = ScanFile(*reader, startMillis, endMillis, file);
    if (err < 0) {
      LOGE << "<-# VREXFileAppender::ScanFiles FAILED! ScanFile for " << src << " err=" << err;
      return err;
    }
    if (!file.partitions.empty()) out.push_back(std::move(file));
  }
  return 0;
}

int VREXFileAppender::AppendInternal(const file_partitions_t& file, bool isFirstFile) {
  static const unsigned char kNoMetadata[kFixedMetadataSize] = {0};
  int err = OpenSource(file.path);
  for (size_t i = 0; err >= 0 && i < file.partitions.size(); ++i) {
    const partition_t& partition = file.partitions[i];
    const media::dts_cts_t ts(partition._pSeekPoints[0]._wallClockMillis, 1000, 0);
    err = isFirstFile && i == 0 ? CreatePartition(ts, partition, kNoMetadata, nullptr, 0)
                                : UpdatePartition(ts, partition);
  }
  Close();
  return err;
}

long VREXFileAppender::Append(const std::vector<std::string>& srcs, long startMillis,
                              long endMillis) {
  _lastUse = std::chrono::steady_clock::now();
  Close();
  std::vector<file_partitions_t> files;
  VREX_CHECK(ScanFiles(srcs, startMillis, endMillis, files));
  if (files.empty()) return 0;
  long contentsSize = 0;
  unsigned long seekPoints = 0;
  for (const file_partitions_t& file : files) {
    for (const partition_t& partition : file.partitions) {
      contentsSize += partition._contents._size;
      seekPoints += partition._seekPointsCount;
    }
    if (_trace) LOGI << "VREXFileAppender::Append selection " << file.ToString(true);
  }
  const media::timestamp_t ts(files[0].partitions[0]._pSeekPoints[0]._wallClockMillis, 1000);
  const long required =
      WriterVREX::ComputeRequiredSpace(&ts, 0, kPartitionHeaderFixedPayload) + contentsSize +
      WriterVREX::ComputeRequiredSpace(&ts, 0, kPartitionFooterFixedPayload + seekPoints * kSeekPointSize);
  // Measured against the tail partition, as it always was; CreatePartition guards the space.
  if (_dstPartitionInfo._totalSize + kEmptySkipPacketSize > required) {
    LOGW << "<-# VREXFileAppender::Append Not enough space in VRX file requiredSize=" << required
         << " _dstPartitionInfo._totalSize=" << _dstPartitionInfo._totalSize
         << " WriterVREXImpl::ComputeRequiredSpace(NULL, 0)=" << kEmptySkipPacketSize;
    return VREX_ERROR(ERR_MEDIAFORMATS_NOT_ENOUGH_SPACE);
  }
  for (size_t i = 0; i < files.size(); ++i) VREX_CHECK(AppendInternal(files[i], i == 0));
  return required;
}

}  // namespace internal
}  // namespace mediaformats
}  // namespace vrex
