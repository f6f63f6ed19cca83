// VREXFileAppender: appending a whole source file, as a new partition or as growth of the
// tail partition.
//
// Order of writes, which is what recover relies on after a crash:
//   new partition: header, contents, footer, then the skip chain behind it;
//   growth: contents over the old footer and on, the new footer, the header's contents
//   length, then the skip chain. Until the header is patched it points at the old footer's
//   place, so a growth torn before then leaves the tail partition unreadable.
#include <unistd.h>

#include <chrono>

#include "abstraction/byte_order.h"
#include "abstraction/fastfileoperations.h"
#include "abstraction/logging.h"
#include "mediaformats/errors.h"
#include "vrxfile/vrex_file_appender.h"
#include "vrxfile/vrx_file_io.h"

namespace vrex {
namespace mediaformats {
namespace internal {

namespace {

using Clock = std::chrono::steady_clock;

constexpr long kSlowMillis = 5000;

long MicrosSince(Clock::time_point& mark) {
  const Clock::time_point now = Clock::now();
  const long micros = static_cast<long>(
      std::chrono::duration_cast<std::chrono::microseconds>(now - mark).count());
  mark = now;
  return micros;
}

long Padded(long size) { return (size + 3) / 4 * 4; }

// The partition's seek points, big-endian, with offsets moved from `from` to `to`.
void AppendSeekPoints(const partition_t& partition, long from, long to,
                      std::vector<unsigned char>& table) {
  for (unsigned long i = 0; i < partition._seekPointsCount; ++i) {
    unsigned char entry[kSeekPointSize];
    abstraction::StoreBE64(entry, static_cast<uint64_t>(partition._pSeekPoints[i]._offset - from + to));
    abstraction::StoreBE64(entry + 8, static_cast<uint64_t>(partition._pSeekPoints[i]._wallClockMillis));
    table.insert(table.end(), entry, entry + sizeof entry);
  }
}

long DescriptorSize(const media::dts_cts_t& ts, unsigned long payload) {
  const media::timestamp_t dts = ts.Dts();
  return WriterVREX::ComputeRequiredSpace(&dts, ts.cts, payload);
}

}  // namespace

void VREXFileAppender::LogTimes(const char* what, const long (&micros)[5]) const {
  const long total = micros[0] + micros[1] + micros[2] + micros[3] + micros[4];
  if (!_trace && total <= kSlowMillis * 1000) return;
  LOGI << "VREXFileAppender::" << what << " " << _id.path << " descriptor=" << micros[0]
       << "us copy=" << micros[1] << "us table=" << micros[2] << "us footer=" << micros[3]
       << "us chain=" << micros[4] << "us";
}

int VREXFileAppender::CreatePartition(const media::dts_cts_t& ts, const partition_t& partition,
                                      const unsigned char* fixedMetadata,
                                      const void* dynamicMetadata, unsigned long dynamicLength) {
  Clock::time_point mark = Clock::now();
  long micros[5] = {0};
  const long contentsSize = partition._contents._size;
  const long headerSize = DescriptorSize(ts, kPartitionHeaderFixedPayload + dynamicLength);
  const long footerSize = DescriptorSize(
      ts, kPartitionFooterFixedPayload + partition._seekPointsCount * kSeekPointSize);
  const long required = headerSize + contentsSize + footerSize;
  if (_freeSpaceBounds._size < required + kEmptySkipPacketSize) {
    LOGW << "<-# VREXFileAppender::CreatePartition Not enough space in VRX file to fit the "
            "partition. _freeSpaceBounds._size=" << _freeSpaceBounds._size
         << " _dstPartitionInfo._totalSize=" << required
         << " WriterVREXImpl::ComputeRequiredSpace(NULL, 0)=" << kEmptySkipPacketSize;
    return VREX_ERROR(ERR_MEDIAFORMATS_NOT_ENOUGH_SPACE);
  }
  tail_partition_t tail;
  tail._offset = _freeSpaceBounds._offset;
  tail._dynamicMetadataSize = static_cast<long>(dynamicLength);
  tail._totalSize = required;
  if (lseek(_fd, tail._offset, SEEK_SET) != tail._offset) {
    return VREX_ERROR(::vrex::errors::SystemError(errno));
  }
  const long header = _writer->WritePartitionDescriptorStart(ts, contentsSize, fixedMetadata,
                                                             dynamicMetadata, dynamicLength);
  if (header < 0) return static_cast<int>(header);
  micros[0] = MicrosSince(mark);
  tail._contentsOffset = tail._offset + header;
  int err = abstraction::FastCopyFile(_fd, -1, _srcFd, partition._contents._offset, contentsSize);
  if (err < 0) {
    LOGE << "<-# VREXFileAppender::CreatePartition FAILED! copy failed temp=" << err;
    return err;
  }
  micros[1] = MicrosSince(mark);
  tail._footerOffset = tail._contentsOffset + contentsSize;
  AppendSeekPoints(partition, partition._contents._offset, tail._contentsOffset, tail._seekTable);
  micros[2] = MicrosSince(mark);
  const long footer = _writer->WritePartitionDescriptorEnd(
      ts, contentsSize, tail._seekTable.data(), static_cast<unsigned>(tail._seekTable.size()));
  if (footer < 0) return static_cast<int>(footer);
  micros[3] = MicrosSince(mark);
  if (header != headerSize || footer != footerSize) {
    LOGE << "<-# VREXFileAppender::CreatePartition FAILED! descriptors of " << header << "+"
         << footer << " bytes where " << headerSize << "+" << footerSize << " were reserved";
    return VREX_ERROR(ERR_MEDIAFORMATS_INTERNAL_STATE);
  }
  _dstPartitionInfo = std::move(tail);
  _freeSpaceBounds._offset += required;
  _freeSpaceBounds._size -= required;
  err = LayFreeSpace();
  micros[4] = MicrosSince(mark);
  LogTimes("CreatePartition", micros);
  return err;
}

int VREXFileAppender::UpdatePartition(const media::dts_cts_t& ts, const partition_t& partition) {
  Clock::time_point mark = Clock::now();
  long micros[5] = {0};
  tail_partition_t& tail = _dstPartitionInfo;
  const long contentsSize = partition._contents._size;
  const size_t oldTableLength = tail._seekTable.size();
  const long required =
      contentsSize + DescriptorSize(ts, kPartitionFooterFixedPayload + oldTableLength +
                                            partition._seekPointsCount * kSeekPointSize);
  // The old footer's bytes are free again: the contents go over them.
  const long start = tail._footerOffset;
  const long available = _freeSpaceBounds._size + _freeSpaceBounds._offset - start;
  if (available < required + kEmptySkipPacketSize) {
    LOGW << "<-# VREXFileAppender::UpdatePartition Not enough space in VRX file to update "
            "partition. requiredSpace=" << required << " _freeSpaceBounds._size=" << available;
    return VREX_ERROR(ERR_MEDIAFORMATS_NOT_ENOUGH_SPACE);
  }
  micros[0] = MicrosSince(mark);
  int err = abstraction::FastCopyFile(_fd, start, _srcFd, partition._contents._offset, contentsSize);
  if (err < 0) {
    LOGE << "<-# VREXFileAppender::UpdatePartition FAILED! copy failed temp=" << err;
    return err;
  }
  micros[1] = MicrosSince(mark);
  tail._footerOffset = start + contentsSize;
  AppendSeekPoints(partition, partition._contents._offset, start, tail._seekTable);
  const long contentsLength = tail._footerOffset - tail._contentsOffset;
  micros[2] = MicrosSince(mark);
  const long footer = _writer->WritePartitionDescriptorEnd(
      ts, contentsLength, tail._seekTable.data(), static_cast<unsigned>(tail._seekTable.size()));
  if (footer < 0) return static_cast<int>(footer);
  const long newFree = tail._footerOffset + footer;
  tail._totalSize = newFree - tail._offset;
  _freeSpaceBounds._size -= newFree - _freeSpaceBounds._offset;
  _freeSpaceBounds._offset = newFree;
  // The contents length field: 20 bytes before the dynamic metadata, which ends, padded, at
  // the header's trailer.
  const long lengthField = tail._contentsOffset - 4 - Padded(tail._dynamicMetadataSize) -
                           kPartitionHeaderFixedPayload;
  err = WriteBE64At(_fd, lengthField, static_cast<uint64_t>(contentsLength));
  if (err < 0) return err;
  micros[3] = MicrosSince(mark);
  err = LayFreeSpace();
  micros[4] = MicrosSince(mark);
  LogTimes("UpdatePartition", micros);
  return err;
}

int VREXFileAppender::FindFirstSyncedFrame(const std::string& src, media::dts_cts_t& ts,
                                           long& wallClock) {
  Clock::time_point start = Clock::now();
  int err = 0;
  while (const media::frame_t* frame = _reader->ReadFrame(err)) {
    if (frame->clockSync != nullptr && frame->clockSync->IsValid()) {
      ts = frame->dtsCts;
      wallClock = frame->clockSync->ComputeWallClock(ts.Dts(), 1000);
      if (_srcSyncNodeOffset >= 0) return 0;
      break;
    }
  }
  LOGW << "<-# VREXFileAppender::Append after " << MicrosSince(start) / 1000
       << "ms. Sync node not found in the source file " << src << " err=" << err;
  return VREX_ERROR(ERR_MEDIAFORMATS_NO_SYNC_NODE);
}

int VREXFileAppender::ListSourcePartitions(long firstWallClock, std::vector<partition_t>& out) {
  int err = 0;
  while (const partition_t* partition = _reader->ReadPartition(PARTITION_LAST_TIMESTAMP_NONE, err)) {
    out.push_back(*partition);
  }
  if (err < 0) return err;
  if (out.empty()) {
    // A stream of packets without partitions: all of it, entered where it starts.
    partition_t whole;
    whole._offset = 0;
    whole._size = _srcId.size;
    whole._contents = {0, _srcId.size};
    const seek_point_t first{0, firstWallClock};
    whole.SetSeekpoints(&first, 1);
    out.push_back(whole);
  }
  return 0;
}

long VREXFileAppender::Append(const std::string& src, const unsigned char* fixedMetadata,
                              const void* dynamicMetadata, unsigned long dynamicLength,
                              bool createNewPartition) {
  Clock::time_point mark = Clock::now();
  _lastUse = mark;
  Close();
  _srcSyncNodeOffset = -1;
  int err = 0;
  _reader = ReaderVREX::Create(this, src.c_str(), true, -1, -1, err);
  if (!_reader) {
    LOGE << "<-# VREXFileAppender::Append FAILED! ReaderVREX::Create for " << src << " err=" << err;
    return err;
  }
  if (_reader->GetAvailableDataSize() < 1) {
    LOGE << "<-# VREXFileAppender::Append FAILED! GetAvailableDataSize failed. err=" << err;
    Close();
    return VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT);
  }
  media::dts_cts_t ts;
  long firstWallClock = -1;
  std::vector<partition_t> partitions;
  err = FindFirstSyncedFrame(src, ts, firstWallClock);
  if (err >= 0) err = OpenSource(src);
  if (err >= 0) err = _reader->SeekToRawOffset(0);
  // All partitions are read before the first write: a damaged source changes nothing.
  if (err >= 0) err = ListSourcePartitions(firstWallClock, partitions);
  const long before = _freeSpaceBounds._offset;
  const bool create = createNewPartition || before == 0;
  for (size_t i = 0; err >= 0 && i < partitions.size(); ++i) {
    err = i == 0 && create ? CreatePartition(ts, partitions[i], fixedMetadata, dynamicMetadata,
                                             dynamicLength)
                           : UpdatePartition(ts, partitions[i]);
  }
  if (err < 0 && err != ERR_MEDIAFORMATS_NOT_ENOUGH_SPACE && err != ERR_MEDIAFORMATS_NO_SYNC_NODE) {
    LOGE << "<-# VREXFileAppender::Append after " << MicrosSince(mark) / 1000
         << "ms. CreatePartition/UpdatePartition for " << src << " failed. result=" << err;
  }
  Close();
  return err < 0 ? err : _freeSpaceBounds._offset - before;
}

}  // namespace internal
}  // namespace mediaformats
}  // namespace vrex
