// VREXFileReindex: the frame walk of each partition and the rewrite of its seek table.
#include "vrxfile/vrex_file_reindex.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>

#include "abstraction/byte_order.h"
#include "abstraction/logging.h"
#include "media/codec_tags.h"
#include "mediaformats/errors.h"
#include "vrxfile/vrx_file_io.h"

namespace vrex {
namespace mediaformats {
namespace internal {

namespace {
// Entries are written through a buffer of this many bytes.
constexpr size_t kWriteBufferBytes = 80000;
}  // namespace

VREXFileReindex::VREXFileReindex(const std::string& path)
    : _path(path), _trace(getenv("MS_VRX_REINDEX_TRACE") != nullptr) {}

int VREXFileReindex::SignalPayloadScToWc(const media::clock_sync_t& sync) {
  _lastClockSync = sync;
  return 0;
}

int VREXFileReindex::Reindex(bool dryRun) {
  const auto start = std::chrono::steady_clock::now();
  int err = 0;
  std::unique_ptr<ReaderVREX> reader = ReaderVREX::Create(nullptr, _path.c_str(), true, 0, -1, err);
  if (!reader) {
    LOGE << "<-# VREXFileReindex::Reindex FAILED! ReaderVREX::Create for " << _path << "  err=" << err;
    return err;
  }
  while (const partition_t* partition = reader->ReadPartition(PARTITION_LAST_TIMESTAMP_NONE, err)) {
    const int result = ReindexPartition(*partition, dryRun);
    if (result < 0) {
      LOGW << "    VREXFileReindex::Reindex partition at offset " << partition->_offset << " of "
           << _path << " err=" << result;
    }
  }
  if (_trace) {
    LOGI << "<-# VREXFileReindex::Reindex " << _path << " done in "
         << std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start).count()
         << " ms err=" << err;
  }
  return err;
}

int VREXFileReindex::ReindexPartition(const partition_t& partition, bool dryRun) {
  int err = 0;
  std::unique_ptr<ReaderVREX> reader =
      ReaderVREX::Create(this, _path.c_str(), true, partition._offset, partition._size, err);
  if (!reader) {
    LOGE << "<-# VREXFileReindex::ReindexPartition FAILED! Can't open VRX reader for " << _path
         << " at offset " << partition._offset << " err=" << err;
    return err;
  }
  _lastClockSync.Clear();
  const long end = partition._offset + partition._size;
  std::vector<seek_point_t> found;
  while (const media::frame_t* frame = reader->ReadFrame(err)) {
    if (static_cast<long>(frame->offset) >= end) break;
    // Only a key frame behind a fresh sync node makes an entry, aimed at that sync node.
    if (media::tagKind(frame->tag) == 'V' && frame->keyFrame && _lastClockSync.offset >= 0) {
      found.push_back({_lastClockSync.offset, _lastClockSync.ComputeWallClock(frame->dtsCts.Dts(), 1000)});
      _lastClockSync.offset = -1;
    }
  }
  if (err < 0) {
    LOGE << "<-# VREXFileReindex::ReindexPartition FAILED! ReadFrame() error=" << err << " in "
         << _path << " partition at offset " << partition._offset;
  }
  if (_trace) {
    LOGI << "    VREXFileReindex::ReindexPartition Found " << found.size()
         << " seek points in partition at offset " << partition._offset;
  }
  if (found.empty()) {
    LOGI << "    VREXFileReindex::ReindexPartition No seek points in partition; skipping. offset="
         << partition._offset;
    return err;
  }
  const int result = UpdatePartitionSeekPoints(partition, found, dryRun);
  if (result < 0) {
    LOGE << "<-# VREXFileReindex::ReindexPartition FAILED! UpdatePartitionSeekPoints() returned error "
         << result;
    return result;
  }
  return err;
}

int VREXFileReindex::UpdatePartitionSeekPoints(const partition_t& partition,
                                               const std::vector<seek_point_t>& found, bool dryRun) {
  const int fd = open(_path.c_str(), O_RDWR | O_CLOEXEC);
  if (fd < 0) {
    LOGE << "<-# VREXFileReindex::UpdatePartitionSeekPoints FAILED! open() failed for " << _path
         << " errno=" << errno;
    return VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT);
  }
  const long count = static_cast<long>(partition._seekPointsCount);
  const long tableOffset = partition._offset + partition._size - 8 - count * kSeekPointSize;
  // The table keeps its size: the entries it has take what was found, the last one found
  // repeated over a surplus.
  std::vector<unsigned char> table(static_cast<size_t>(count * kSeekPointSize));
  long changed = 0;
  for (long i = 0; i < count; ++i) {
    const seek_point_t& old = partition._pSeekPoints[i];
    const seek_point_t& now = found[std::min<size_t>(static_cast<size_t>(i), found.size() - 1)];
    if (old._offset != now._offset || old._wallClockMillis != now._wallClockMillis) {
      ++changed;
      LOGI << "        Old: offset=" << old._offset << " wallclock=" << old._wallClockMillis
           << " New: offset=" << now._offset << " wallclock=" << now._wallClockMillis;
    }
    abstraction::StoreBE64(&table[i * kSeekPointSize], static_cast<uint64_t>(now._offset));
    abstraction::StoreBE64(&table[i * kSeekPointSize + 8], static_cast<uint64_t>(now._wallClockMillis));
  }
  int err = 0;
  for (size_t at = 0; !dryRun && changed > 0 && err >= 0 && at < table.size(); at += kWriteBufferBytes) {
    err = WriteAt(fd, tableOffset + static_cast<long>(at), &table[at],
                  std::min(kWriteBufferBytes, table.size() - at));
    if (err < 0) {
      LOGE << "<-# VREXFileReindex::UpdatePartitionSeekPoints FAILED! write() #" << (at == 0 ? 1 : 2)
           << " returned errno=" << errno;
    }
  }
  close(fd);
  LOGI << "    VREXFileReindex::UpdatePartitionSeekPoints" << (dryRun ? " Would be updated " : " Updated ")
       << changed << " seek points in partition at offset " << partition._offset << " of " << _path;
  return err;
}

}  // namespace internal
}  // namespace mediaformats
}  // namespace vrex
