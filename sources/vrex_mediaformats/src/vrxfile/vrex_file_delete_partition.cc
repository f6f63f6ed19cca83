// VREXFileDeleteContent: cutting one partition. A head is cut on a seek point, a tail on a
// frame; the frames go under a skip packet, then the seek entries that led into them leave the
// footer.
#include <algorithm>
#include <vector>

#include "abstraction/byte_order.h"
#include "abstraction/logging.h"
#include "media/codec_tags.h"
#include "mediaformats/errors.h"
#include "vrxfile/vrex_file_appender.h"
#include "vrxfile/vrex_file_delete_content.h"
#include "vrxfile/vrx_file_io.h"

namespace vrex {
namespace mediaformats {
namespace internal {

using abstraction::interval_t;

namespace {

// Entries are rewritten through a buffer of this many.
constexpr long kEntriesPerWrite = 5000;

// The first seek point at or after `millis`, or the count.
long FirstSeekPointFrom(const partition_t& partition, long millis) {
  long i = 0;
  const long count = static_cast<long>(partition._seekPointsCount);
  while (i < count && partition._pSeekPoints[i]._wallClockMillis < millis) ++i;
  return i;
}

long ContentsEnd(const partition_t& partition) {
  return partition._contents._offset + partition._contents._size;
}

}  // namespace

int VREXFileDeleteContent::DeletePartitionContents(const delete_partition_bounds_t& bounds,
                                                   delete_mode_t mode, size_t index) {
  int err = 0;
  std::unique_ptr<ReaderVREX> reader =
      ReaderVREX::Create(nullptr, _path.c_str(), true, bounds.offset, bounds.size, err);
  if (!reader) {
    LOGE << "<-# VREXFileDeleteContent::DeletePartitionContents FAILED! ReaderVREX::Create() error="
         << err << " for partition " << index;
    return err;
  }
  const partition_t* read = reader->ReadPartition(PARTITION_LAST_TIMESTAMP_NONE, err);
  if (read == nullptr) {
    LOGE << "<-# VREXFileDeleteContent::DeletePartitionContents Could not read first partition "
            "ReadPartition() error=" << err << " at offset " << bounds.offset;
    return err < 0 ? err : VREX_ERROR(ERR_MEDIAFORMATS_DELETE_PARTITION);
  }
  const partition_t partition = *read;
  if (partition._offset != bounds.offset || partition._size != bounds.size) {
    LOGE << "<-# VREXFileDeleteContent::DeletePartitionContents unexpected partition at offset "
         << partition._offset << ". Expected partition bounds=[" << bounds.offset << ", "
         << bounds.size << "] but got [" << partition._offset << ", " << partition._size << "]";
    return VREX_ERROR(ERR_MEDIAFORMATS_DELETE_PARTITION);
  }
  deleted_content_t deleted;
  if (mode == DELETE_MODE_HEAD) {
    ComputeDeletedHead(partition, deleted);
  } else if (mode == DELETE_MODE_TAIL) {
    VREX_CHECK(ComputeDeletedTail(*reader, partition, deleted));
  } else if (mode == DELETE_MODE_MIDDLE) {
    // What lies before the interval's end and what lies after its start: where both hold.
    deleted_content_t head, tail;
    ComputeDeletedHead(partition, head);
    VREX_CHECK(ComputeDeletedTail(*reader, partition, tail));
    if (!head._frames.IsValid()) {
      deleted = tail;
    } else if (!tail._frames.IsValid()) {
      deleted = head;
    } else {
      deleted._frames = head._frames.Intersect(tail._frames);
      if (head._seekPoints.IsValid() && tail._seekPoints.IsValid()) {
        deleted._seekPoints = head._seekPoints.Intersect(tail._seekPoints);
      }
    }
  } else {
    LOGE << "<-# VREXFileDeleteContent::DeletePartitionContents invalid delete mode " << mode;
    return VREX_ERROR(ERR_MEDIAFORMATS_DELETE_MODE);
  }
  reader.reset();
  if (!deleted._frames.IsValid()) {
    LOGI << "<-# VREXFileDeleteContent::DeletePartitionContents no frames to delete in partition "
         << index << " " << deleted.ToString();
    return 0;
  }
  if (_trace) {
    LOGI << "    VREXFileDeleteContent::DeletePartitionContents partition " << index << " mode "
         << mode << " " << deleted.ToString();
  }
  return PerformDeletePartitionContents(partition, deleted);
}

void VREXFileDeleteContent::ComputeDeletedHead(const partition_t& partition,
                                               deleted_content_t& out) const {
  const long count = static_cast<long>(partition._seekPointsCount);
  const long first = FirstSeekPointFrom(partition, _wallClockEndMillis);
  if (first == count) {
    out._frames = interval_t(partition._contents._offset, ContentsEnd(partition) - 1);
    out._seekPoints = interval_t(0, count - 1);
    return;
  }
  out._frames = interval_t(partition._contents._offset, partition._pSeekPoints[first]._offset - 1);
  out._seekPoints = first > 0 ? interval_t(0, first - 1) : interval_t();
}

int VREXFileDeleteContent::ComputeDeletedTail(ReaderVREX& reader, const partition_t& partition,
                                              deleted_content_t& out) const {
  const long count = static_cast<long>(partition._seekPointsCount);
  const long first = FirstSeekPointFrom(partition, _wallClockStartMillis);
  out = deleted_content_t();
  if (first < count) out._seekPoints = interval_t(first, count - 1);
  // Nothing before the interval to keep: a whole partition, which Work() deleted as such.
  if (first == 0) return 0;
  const long contentsEnd = ContentsEnd(partition);
  VREX_CHECK(reader.SeekToRawOffset(partition._pSeekPoints[first - 1]._offset));
  int err = 0;
  for (;;) {
    // The cut falls where the frame that first reaches the interval was read from: the sync
    // node before it goes with it, the audio before that stays.
    const long candidate = reader.GetCurrentRawOffset();
    if (candidate < 0) return VREX_ERROR(ERR_MEDIAFORMATS_DELETE_OFFSET);
    const media::frame_t* frame = candidate < contentsEnd ? reader.ReadFrame(err) : nullptr;
    if (err < 0) return err;
    if (frame == nullptr || static_cast<long>(frame->offset) >= contentsEnd) {
      LOGI << "    VREXFileDeleteContent::ComputeDeletedTail out of partition result._frames._left="
           << candidate;
      out._frames = interval_t();
      return 0;
    }
    const char kind = media::tagKind(frame->tag);
    if (kind != 'V' && kind != 'I') continue;
    if (frame->clockSync == nullptr || !frame->clockSync->IsValid()) {
      LOGE << "<-# VREXFileDeleteContent::ComputeDeletedTail FAILED! Clock sync missing at offset "
           << frame->offset << " in " << _path;
      return VREX_ERROR(ERR_MEDIAFORMATS_NO_SYNC_NODE);
    }
    if (frame->clockSync->ComputeWallClock(frame->dtsCts.Dts(), 1000) >= _wallClockStartMillis) {
      out._frames = interval_t(candidate, contentsEnd - 1);
      return 0;
    }
  }
}

int VREXFileDeleteContent::PerformDeletePartitionContents(const partition_t& partition,
                                                          const deleted_content_t& deleted) {
  const interval_t& frames = deleted._frames;
  if (frames.Size() == partition._contents._size) {
    LOGI << "    VREXFileDeleteContent::PerformDeletePartitionContents full partition delete because "
            "all frames in it were deleted AddSkipPacket() [offset=" << partition._offset
         << ", length=" << partition._size << "]";
    return AddSkipPackets(partition._offset, partition._size);
  }
  LOGI << "    VREXFileDeleteContent::PerformDeletePartitionContents Delete frames AddSkipPacket() "
          "[offset=" << frames.left << ", length=" << frames.Size() << "]";
  int err = AddSkipPackets(frames.left, frames.Size());
  if (err < 0) {
    LOGE << "<-# VREXFileDeleteContent::PerformDeletePartitionContents FAILED! AddSkipPackets() "
            "returned err=" << err;
    return err;
  }
  if (!deleted._seekPoints.IsValid()) return 0;
  err = SavePartitionFooter(partition, deleted._seekPoints.left, deleted._seekPoints.Size());
  if (err < 0 && err != ERR_MEDIAFORMATS_NOT_ENOUGH_SPACE) {
    LOGE << "<-# VREXFileDeleteContent::PerformDeletePartitionContents FAILED! "
            "SavePartitionFooter() returned err=" << err;
  }
  return err;
}

int VREXFileDeleteContent::SavePartitionFooter(const partition_t& partition, long evictedIndex,
                                               long evictedSize) {
  const long count = static_cast<long>(partition._seekPointsCount);
  if (evictedIndex < 0 || evictedSize < 1 || evictedIndex + evictedSize > count) {
    return VREX_ERROR(ERR_MEDIAFORMATS_DELETE_OFFSET);
  }
  const long end = partition._offset + partition._size;
  const long sizeOffset = end - 8 - count * kSeekPointSize - 12;
  const long shrink = evictedSize * kSeekPointSize;
  uint32_t payloadSize = 0, tableLength = 0, trailer = 0;
  int err = ReadBE32At(_fd, sizeOffset, payloadSize);
  if (err >= 0) err = ReadBE32At(_fd, end - 8, tableLength);
  if (err >= 0) err = ReadBE32At(_fd, end - 4, trailer);
  if (err < 0) {
    LOGE << "<-# VREXFileDeleteContent::SavePartitionFooter FAILED! lseek() #1 returned errno="
         << errno << " err=" << err;
    return err;
  }
  if (tableLength != count * kSeekPointSize || payloadSize != tableLength + kPartitionFooterFixedPayload ||
      trailer <= payloadSize) {
    LOGE << "<-# VREXFileDeleteContent::SavePartitionFooter FAILED! footer of partition at "
         << partition._offset << " says payload=" << payloadSize << " table=" << tableLength
         << " size=" << trailer << " for " << count << " seek points";
    return VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT);
  }
  // The entries behind the evicted ones move down over them, in buffers of 5,000.
  const long tableOffset = sizeOffset + 4 + 8;
  std::vector<unsigned char> buffer;
  for (long from = evictedIndex + evictedSize; from < count; from += kEntriesPerWrite) {
    const long entries = std::min(kEntriesPerWrite, count - from);
    buffer.resize(static_cast<size_t>(entries * kSeekPointSize));
    for (long i = 0; i < entries; ++i) {
      const seek_point_t& point = partition._pSeekPoints[from + i];
      abstraction::StoreBE64(&buffer[i * kSeekPointSize], static_cast<uint64_t>(point._offset));
      abstraction::StoreBE64(&buffer[i * kSeekPointSize + 8], static_cast<uint64_t>(point._wallClockMillis));
    }
    err = WriteAt(_fd, tableOffset + (from - evictedSize) * kSeekPointSize, buffer.data(), buffer.size());
    if (err < 0) {
      LOGE << "<-# VREXFileDeleteContent::SavePartitionFooter FAILED! write() #"
           << (from == evictedIndex + evictedSize ? 1 : 2) << " returned errno=" << errno;
      return err;
    }
  }
  // Then the words of the shorter footer and the skip packet behind it, while the old payload
  // size still spans both; the new payload size comes last.
  unsigned char words[8];
  abstraction::StoreBE32(words, static_cast<uint32_t>(tableLength - shrink));
  abstraction::StoreBE32(words + 4, static_cast<uint32_t>(trailer - shrink));
  err = WriteAt(_fd, end - shrink - 8, words, sizeof words);
  if (err < 0) {
    LOGE << "<-# VREXFileDeleteContent::SavePartitionFooter FAILED! write() tableSize/endPacketSize "
            "returned errno=" << errno;
    return err;
  }
  VREX_CHECK(AddSkipPackets(end - shrink, shrink));
  abstraction::StoreBE32(words, static_cast<uint32_t>(payloadSize - shrink));
  err = WriteAt(_fd, sizeOffset, words, 4);
  if (err < 0) {
    LOGE << "<-# VREXFileDeleteContent::SavePartitionFooter FAILED! lseek() #2 returned errno=" << errno;
  }
  return err;
}

}  // namespace internal
}  // namespace mediaformats
}  // namespace vrex
