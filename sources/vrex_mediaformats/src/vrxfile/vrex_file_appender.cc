// VREXFileAppender: opening the destination and working out its free space and tail
// partition from the end of the file, and the skip chain.
#include "vrxfile/vrex_file_appender.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "abstraction/byte_order.h"
#include "abstraction/fastfileoperations.h"
#include "abstraction/logging.h"
#include "mediaformats/errors.h"
#include "mediaformats/vrx/vrx_format.h"
#include "mediaformats/vrx/vrx_packet.h"
#include "vrxfile/vrex_file_appender_cache.h"
#include "vrxfile/vrx_file_io.h"

namespace vrex {
namespace mediaformats {
namespace internal {

using abstraction::file_id_t;
using abstraction::LoadBE32;

namespace {

int SystemFailure(int err) { return VREX_ERROR(::vrex::errors::SystemError(err)); }

}  // namespace

VREXFileAppender::VREXFileAppender(const file_id_t& id)
    : _id(id),
      _lastUse(std::chrono::steady_clock::now()),
      _trace(getenv("ADDON_TRACE_VRX_APPEND") != nullptr) {}

VREXFileAppender::~VREXFileAppender() {
  Close();
  if (_fd >= 0) close(_fd);
}

std::shared_ptr<VREXFileAppender> VREXFileAppender::Create(const file_id_t& id, int& err) {
  std::shared_ptr<VREXFileAppender> appender = VREXFileAppenderCache::Find(id, err);
  if (err < 0) return nullptr;
  if (appender && appender->TailIsCurrent()) return appender;
  if (appender) {
    LOGI << "    VREXFileAppender::Create the tail of " << id.path
         << " was changed by another process: reading it again";
    err = VREXFileAppenderCache::Evict(appender);
    if (err < 0) return nullptr;
  }
  appender.reset(new VREXFileAppender(id));
  err = appender->Initialize();
  if (err >= 0) err = VREXFileAppenderCache::PutAndLock(appender);
  return err < 0 ? nullptr : appender;
}

void VREXFileAppender::Close() {
  _reader.reset();
  if (_srcFd >= 0) close(_srcFd);
  _srcFd = -1;
  _srcId.Clear();
}

int VREXFileAppender::Initialize() {
  _fd = open(_id.path.c_str(), O_RDWR | O_CLOEXEC);
  if (_fd < 0) {
    const int err = errno;
    LOGE << "<-# VREXFileAppender::Initialize FAILED! open() " << _id.path
         << " failed. errno=" << err;
    return SystemFailure(err);
  }
  VREX_CHECK(FileIdOf(_fd, _id.path, _dstId));
  int err = 0;
  _writer = WriterVREX::Create(0xFFFFFFFF, this, err);
  if (!_writer) return err;
  int temp = GetFreeSpaceBounds();
  if (temp < 0) {
    LOGE << "<-# VREXFileAppender::Initialize FAILED! GetFreeSpaceBounds() failed. temp=" << temp
         << " file=" << _id.path;
    return ::vrex::errors::wrapError(ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT, temp, __FILE__, __LINE__);
  }
  temp = GetTailPartitionBounds();
  if (temp < 0) {
    LOGE << "<-# VREXFileAppender::Initialize FAILED! GetTailPartitionBounds() failed. temp="
         << temp << " file=" << _id.path;
    return ::vrex::errors::wrapError(ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT, temp, __FILE__, __LINE__);
  }
  return 0;
}

int VREXFileAppender::GetFreeSpaceBounds() {
  const long size = FileSize(_fd);
  if (size < 0) return static_cast<int>(size);
  _freeSpaceBounds = free_space_t{size, 0};
  if (size % 4 != 0) {
    LOGE << "<-# VREXFileAppender::GetFreeSpaceBounds FAILED! current offset=" << size
         << " not multiple of 4 bytes";
    return VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT);
  }
  long& offset = _freeSpaceBounds._offset;
  while (offset >= 4) {
    uint32_t trailer = 0;
    VREX_CHECK(ReadBE32At(_fd, offset - 4, trailer));
    // A full skip packet's trailer is 0xFFFFFFFC: its size needs more than 32 bits.
    const long packetSize = static_cast<long>(trailer) + 4;
    if (trailer % 4 != 0 || trailer < 8 || packetSize > offset) {
      LOGE << "<-# VREXFileAppender::GetFreeSpaceBounds FAILED! packetSize=" << trailer
           << " at offset " << offset - 4;
      return VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT);
    }
    unsigned char header[sizeof kSkipPacketHeader];
    VREX_CHECK(ReadAt(_fd, offset - packetSize, header, sizeof header));
    if (memcmp(header, kSkipPacketHeader, sizeof header) != 0) break;
    offset -= packetSize;
    _freeSpaceBounds._size = size - offset;
  }
  return 0;
}

bool VREXFileAppender::TailIsCurrent() {
  const free_space_t cached = _freeSpaceBounds;
  if (GetFreeSpaceBounds() < 0 || _freeSpaceBounds._offset != cached._offset ||
      _freeSpaceBounds._size != cached._size) {
    return false;
  }
  const tail_partition_t& tail = _dstPartitionInfo;
  if (tail._offset < 0) return true;
  unsigned char words[8];
  return ReadAt(_fd, cached._offset - 8, words, sizeof words) >= 0 &&
         LoadBE32(words) == tail._seekTable.size() &&
         static_cast<long>(LoadBE32(words + 4)) == cached._offset - tail._footerOffset - 4;
}

int VREXFileAppender::GetTailPartitionBounds() {
  _dstPartitionInfo = tail_partition_t();
  const long free = _freeSpaceBounds._offset;
  if (free == 0) return 0;
  unsigned char words[8];
  VREX_CHECK(ReadAt(_fd, free - 8, words, sizeof words));
  const long tableLength = LoadBE32(words);
  const long trailer = LoadBE32(words + 4);
  if (trailer < 8 || trailer % 4 != 0 || tableLength % 8 != 0 || tableLength >= 0x4000000) {
    LOGE << "<-# VREXFileAppender::GetTailPartitionBounds FAILED! packetSize=" << trailer
         << " seek table length=" << tableLength;
    return VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT);
  }
  tail_partition_t& tail = _dstPartitionInfo;
  tail._footerOffset = free - trailer - 4;
  // The footer's own header words and contents length stand before the table.
  if (tail._footerOffset < 0 || free - 16 - tableLength < tail._footerOffset + 12) {
    LOGE << "<-# VREXFileAppender::GetTailPartitionBounds FAILED! _dstPartitionInfo._footerOffset="
         << tail._footerOffset << " seek table length=" << tableLength;
    return VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT);
  }
  unsigned char footer[5];
  VREX_CHECK(ReadAt(_fd, tail._footerOffset, footer, sizeof footer));
  if (!IsPacketWordValid(footer) || LoadBE32(footer) != MakePacketWord(VRX_TID_PARTITION_FOOTER) ||
      (footer[4] & 0xF1) != 0xF1) {
    LOGE << "<-# VREXFileAppender::GetTailPartitionBounds FAILED! R123x or TID at offset "
         << tail._footerOffset << " not correct ";
    return VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT);
  }
  uint64_t contentsLength = 0;
  VREX_CHECK(ReadBE64At(_fd, free - 16 - tableLength, contentsLength));
  tail._seekTable.resize(static_cast<size_t>(tableLength));
  VREX_CHECK(ReadAt(_fd, free - 8 - tableLength, tail._seekTable.data(), tail._seekTable.size()));
  tail._contentsOffset = tail._footerOffset - static_cast<long>(contentsLength);
  if (contentsLength > static_cast<uint64_t>(tail._footerOffset) || tail._contentsOffset < 4) {
    LOGE << "<-# VREXFileAppender::GetTailPartitionBounds FAILED! _dstPartitionInfo._contentsOffset="
         << tail._contentsOffset;
    return VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT);
  }
  uint32_t headerSize = 0;
  VREX_CHECK(ReadBE32At(_fd, tail._contentsOffset - 4, headerSize));
  tail._offset = tail._contentsOffset - static_cast<long>(headerSize) - 4;
  if (headerSize < 8 || headerSize % 4 != 0 || tail._offset < 0) {
    LOGE << "<-# VREXFileAppender::GetTailPartitionBounds FAILED! header packetSize=" << headerSize
         << " before contents at " << tail._contentsOffset;
    return VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT);
  }
  internal::partition_header_record_t header;
  VREX_CHECK(ReadPartitionHeaderAt(_fd, tail._offset, free, header));
  if (header.packetSize != tail._contentsOffset - tail._offset) {
    LOGE << "<-# VREXFileAppender::GetTailPartitionBounds FAILED! header at " << tail._offset
         << " of " << header.packetSize << " bytes does not end at the contents";
    return VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT);
  }
  tail._dynamicMetadataSize = header.dynamicSize;
  tail._totalSize = free - tail._offset;
  return 0;
}

int VREXFileAppender::SignalPayloadScToWc(const media::clock_sync_t& sync) {
  _srcSyncNodeOffset = sync.offset;
  return 0;
}

bool VREXFileAppender::WriteVREXData(const WriterVREX::message_t& message) {
  if (WritePacket(_fd, message)) return true;
  const int err = errno;
  LOGE << "<-# VREXFileAppender::WriteVREXData FAILED! writev() failed for " << _id.path
       << " with errno=" << err;
  return false;
}

int VREXFileAppender::OpenSource(const std::string& path) {
  _srcFd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (_srcFd < 0) return SystemFailure(errno);
  VREX_CHECK(FileIdOf(_srcFd, path, _srcId));
  if (_srcId.IsSameFile(_dstId)) {
    LOGE << "<-# VREXFileAppender::OpenSource FAILED! source " << path
         << " is the destination " << _id.path;
    return VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_PARAMETERS);
  }
  return 0;
}

int VREXFileAppender::LayFreeSpace() {
  return AddSkipPackets(_fd, _freeSpaceBounds._offset, -1, false);
}

int VREXFileAppender::AddSkipPackets(int fd, long offset, long length, bool zero) {
  if (length == 0) return 0;
  if (offset < 0) offset = lseek(fd, 0, SEEK_CUR);
  const long size = FileSize(fd);
  if (offset < 0 || size < 0) return SystemFailure(errno);
  if (length < 0) length = size - offset;
  if (length < 0 || offset % 4 != 0 || length % 4 != 0 || offset > size - length) {
    LOGE << "<-# VREXFileAppender::AddSkipPackets FAILED! length is=" << length
         << " offset is=" << offset << " but file size is=" << size;
    return VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_PARAMETERS);
  }
  for (long at = offset, left = length; left > 0;) {
    const long payload = GetSkipPacketPayloadLength(left);
    if (payload < 0) {
      LOGE << "<-# VREXFileAppender::AddSkipPackets FAILED! GetSkipPacketPayloadLength() "
              "skipPacketPayloadLength=" << payload << " for " << left;
      return static_cast<int>(payload);
    }
    // The trailer, then header and payload length as one write; the payload is not touched.
    // Until the header lands, a reader going forward still meets the packets that were there
    // (it does not look at trailers), so a crash in between leaves them whole.
    unsigned char header[sizeof kSkipPacketHeader + 4];
    memcpy(header, kSkipPacketHeader, sizeof kSkipPacketHeader);
    abstraction::StoreBE32(header + sizeof kSkipPacketHeader, static_cast<uint32_t>(payload));
    unsigned char trailer[4];
    abstraction::StoreBE32(trailer, static_cast<uint32_t>(payload + 12));
    int err = WriteAt(fd, at + 12 + payload, trailer, sizeof trailer);
    if (err >= 0) err = WriteAt(fd, at, header, sizeof header);
    if (err < 0) {
      LOGE << "<-# VREXFileAppender::AddSkipPackets FAILED! write() errno=" << errno
           << " at offset " << at << " err=" << err;
      return err;
    }
    // Zeroed once it is free space: a crash in between leaves a skip packet over old bytes,
    // never a run of zeros that no reader can step over.
    if (zero) VREX_CHECK(abstraction::TryFastZeroFile(fd, at + 12, payload));
    at += payload + kEmptySkipPacketSize;
    left -= payload + kEmptySkipPacketSize;
  }
  return 0;
}

}  // namespace internal
}  // namespace mediaformats
}  // namespace vrex
