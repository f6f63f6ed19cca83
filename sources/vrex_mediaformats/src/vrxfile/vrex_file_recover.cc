// VREXFileRecover: the partition walk, the rebuild of the last partition's footer from its
// frames, the chop of everything behind it, and the description of what was kept.
#include "vrxfile/vrex_file_recover.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>

#include "abstraction/byte_order.h"
#include "abstraction/logging.h"
#include "media/codec_tags.h"
#include "mediaformats/errors.h"
#include "mediaformats/vrx/vrx_packet.h"
#include "vrxfile/vrex_file_appender.h"
#include "vrxfile/vrx_file_io.h"

namespace vrex {
namespace mediaformats {
namespace internal {

namespace {

using Clock = std::chrono::steady_clock;

long MillisSince(Clock::time_point start) {
  return static_cast<long>(
      std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count());
}

}  // namespace

VREXFileRecover::VREXFileRecover(const std::string& path, last_partition_info_t* info,
                                 bool salvage)
    : _info(info), _path(path), _salvage(salvage) {}

VREXFileRecover::~VREXFileRecover() {
  if (_fd >= 0) close(_fd);
}

std::unique_ptr<ReaderVREX> VREXFileRecover::OpenReader(ReaderVREX::Observer* observer,
                                                        long offset, long length, int& err) {
  std::unique_ptr<ReaderVREX> reader =
      ReaderVREX::Create(observer, _path.c_str(), true, offset, length, err);
  if (!reader) {
    LOGE << "<-# VREXFileRecover::OpenReader FAILED! Can't open VRX reader for " << _path
         << " at offset " << offset << " err=" << err;
  }
  return reader;
}

int VREXFileRecover::Recover() {
  const Clock::time_point start = Clock::now();
  _fd = open(_path.c_str(), O_RDWR | O_CLOEXEC);
  if (_fd < 0) {
    const int err = errno;
    LOGE << "<-# VREXFileRecover::Recover FAILED! open() failed for " << _path
         << " with errno=" << err;
    return VREX_ERROR(::vrex::errors::SystemError(err));
  }
  VREX_CHECK(FileIdOf(_fd, _path, _id));
  int err = DetectIssuesOffset();
  if (err < 0) {
    LOGE << "<-# VREXFileRecover::Recover FAILED! DetectIssuesOffset() err=" << err;
    return err;
  }
  err = CorrectIssues();
  if (err < 0) {
    LOGE << "<-# VREXFileRecover::Recover FAILED! CorrectIssues() err=" << err;
    return err;
  }
  err = GetLastPartInfo();
  if (err < 0) {
    LOGE << "<-# VREXFileRecover::Recover FAILED! GetLastPartInfo() err=" << err;
    return err;
  }
  LOGI << "<-# VREXFileRecover::Recover " << _path << " done in " << MillisSince(start) << " ms";
  return 0;
}

int VREXFileRecover::Check() {
  const int err = DetectIssuesOffset();
  if (err < 0) {
    LOGE << "<-# VREXFileRecover::Check FAILED! DetectIssuesOffset() for " << _path
         << " err=" << err;
    return err;
  }
  return _walkError;
}

int VREXFileRecover::DetectIssuesOffset() {
  int err = 0;
  _reader = OpenReader(nullptr, 0, -1, err);
  if (!_reader) return err;
  while (const partition_t* partition = _reader->ReadPartition(PARTITION_LAST_TIMESTAMP_NONE, err)) {
    _lastPartitionOffset = partition->_offset;
    _lastPartitionEnd = partition->_offset + partition->_size;
  }
  _walkError = err;
  _reader.reset();
  LOGI << "VREXFileRecover::DetectIssuesOffset OK. Last good partition in " << _path
       << " found at offset " << _lastPartitionOffset << ", detected err=" << _walkError;
  return 0;
}

long VREXFileRecover::FindTornPartition() {
  const long size = FileSize(_fd);
  for (long at = _lastPartitionOffset < 0 ? 0 : _lastPartitionEnd; at < size;) {
    unsigned char bytes[vrx_packet_t::kMaxHeaderSize];
    const long count = std::min<long>(sizeof bytes, size - at);
    vrx_packet_t packet;
    if (ReadAt(_fd, at, bytes, static_cast<size_t>(count)) < 0 || !IsPacketWordValid(bytes) ||
        packet.Parse(bytes, static_cast<unsigned long>(count), at, size) != 1) {
      return -1;
    }
    if (packet.Tid() == VRX_TID_PARTITION_HEADER) return at;
    if (packet.Tid() != VRX_TID_SKIP) return -1;
    at += packet.packetSize;
  }
  return -1;
}

int VREXFileRecover::CorrectIssues() {
  const long size = FileSize(_fd);
  if (size < 0) return static_cast<int>(size);
  const long torn = _salvage && _walkError < 0 ? FindTornPartition() : -1;
  if (torn >= 0 && ReadPartitionHeaderAt(_fd, torn, size, _header) >= 0) {
    _salvaging = true;
    const int err = CollectFrames(-1);
    _salvaging = false;
    if (err < 0) return err;
    if (!_seekPoints.empty()) {
      LOGW << "VREXFileRecover::CorrectIssues salvaged " << _contentsLength
           << " bytes of frames of the partition at offset " << torn << " in " << _path;
      _lastPartitionOffset = torn;
      return SavePartitionFooter();
    }
    LOGW << "VREXFileRecover::CorrectIssues nothing to salvage at offset " << torn;
    // A first partition without a frame to keep would leave the file unusable.
    if (_lastPartitionOffset < 0) return Chop(torn);
  }
  if (_lastPartitionOffset < 0) {
    LOGI << "VREXFileRecover::CorrectIssues OK. No partitions to recover in " << _path;
    return 0;
  }
  if (ReadPartitionHeaderAt(_fd, _lastPartitionOffset, size, _header) < 0) {
    LOGE << "<-# VREXFileRecover::CorrectIssues FAILED! Can't read partition in " << _path
         << ". Chop off at offset " << _lastPartitionOffset;
    return Chop(_lastPartitionOffset);
  }
  LOGI << "VREXFileRecover::CorrectIssues recover partition offset=" << _header.packetOffset
       << " size=" << _header.packetSize << " contentLength=" << _header.contentsLength
       << " contentLengthOffset=" << _header.payloadOffset << " metadataBounds=["
       << _header.dynamicOffset << "," << _header.dynamicSize << "]";
  VREX_CHECK(CollectFrames(_header.contentsLength));
  if (_seekPoints.empty()) {
    LOGW << "VREXFileRecover::CorrectIssues No seek points in partition for " << _path
         << ". Chop off at offset _lastPartitionOffset=" << _lastPartitionOffset;
    return Chop(_lastPartitionOffset);
  }
  const int err = SavePartitionFooter();
  if (err < 0) {
    LOGE << "<-# VREXFileRecover::CorrectIssues FAILED! Can't save partition footer for " << _path
         << " err=" << err;
  }
  return err;
}

int VREXFileRecover::CollectFrames(long length) {
  _contentsStart = _header.packetOffset + _header.packetSize;
  _contentsLength = 0;
  _seekPoints.clear();
  _clockSync.Clear();
  int err = 0;
  _reader = OpenReader(this, _contentsStart, length, err);
  // Contents too short to hold a packet hold no frame.
  if (!_reader) return err == ERR_MEDIAFORMATS_INCORRECT_OFFSET ? 0 : err;
  // A frame that cannot be read ends the contents as if the data had ended there.
  while (const media::frame_t* frame = _reader->ReadFrame(err)) {
    _lastTs = frame->dtsCts;
    _contentsLength = _reader->GetCurrentRawOffset() - _contentsStart;
    const char kind = media::tagKind(frame->tag);
    if ((kind == 'V' || kind == 'I') && frame->keyFrame && _clockSync.offset >= 0) {
      unsigned char entry[kSeekPointSize];
      abstraction::StoreBE64(entry, static_cast<uint64_t>(_clockSync.offset));
      abstraction::StoreBE64(entry + 8, static_cast<uint64_t>(
                                            _clockSync.ComputeWallClock(frame->dtsCts.Dts(), 1000)));
      _seekPoints.insert(_seekPoints.end(), entry, entry + sizeof entry);
      _clockSync.offset = -1;  // one sync node, one entry
    }
  }
  _reader.reset();
  return 0;
}

int VREXFileRecover::SavePartitionFooter() {
  const long size = FileSize(_fd);
  if (size < 0) return static_cast<int>(size);
  const long freeStart = _contentsStart + _contentsLength;
  const long available = size - freeStart;
  const unsigned tableLength = static_cast<unsigned>(_seekPoints.size());
  const media::timestamp_t lastDts = _lastTs.Dts();
  const long needed = WriterVREX::ComputeRequiredSpace(&lastDts, _lastTs.cts,
                                                       tableLength + kPartitionFooterFixedPayload);
  if (available < needed) {
    LOGE << "<-# VREXFileRecover::SavePartitionFooter Not enough space in VRX file " << _path
         << " for seekpoint table. Needed " << needed << " bytes but only " << available
         << " bytes available";
    return VREX_ERROR(ERR_MEDIAFORMATS_NOT_ENOUGH_SPACE);
  }
  const long remaining = available - needed;
  if (remaining != 0 && remaining < kEmptySkipPacketSize) {
    LOGE << "<-# VREXFileRecover::SavePartitionFooter Not enough space in VRX file " << _path
         << " for skip packet. Needed " << kEmptySkipPacketSize << " bytes but only " << remaining
         << " bytes available";
    return VREX_ERROR(ERR_MEDIAFORMATS_NOT_ENOUGH_SPACE);
  }
  // The contents length first: a crash after it is repaired by the next recover, which then
  // reads the same contents.
  int err = WriteBE64At(_fd, _header.payloadOffset, static_cast<uint64_t>(_contentsLength));
  if (err < 0) {
    LOGE << "<-# VREXFileRecover::SavePartitionFooter FAILED! Could not update file " << _path
         << " content length in partition header at " << _header.payloadOffset;
    return err;
  }
  _writer = WriterVREX::Create(0xFFFFFFFF, this, err);
  if (!_writer) return err;
  if (lseek(_fd, freeStart, SEEK_SET) != freeStart) {
    return VREX_ERROR(::vrex::errors::SystemError(errno));
  }
  const long written =
      _writer->WritePartitionDescriptorEnd(_lastTs, _contentsLength, _seekPoints.data(), tableLength);
  if (written < 0) return static_cast<int>(written);
  if (written != needed) {
    LOGE << "<-# VREXFileRecover::SavePartitionFooter Could not WritePartitionDescriptorEnd() "
            "bytesWritten=" << written << " but neededSpace=" << needed;
    return VREX_ERROR(ERR_MEDIAFORMATS_NOT_ENOUGH_SPACE);
  }
  err = Chop(freeStart + needed);
  if (err < 0) {
    LOGE << "<-# VREXFileRecover::SavePartitionFooter Could not chop VRX file at offset "
         << freeStart + needed;
  }
  return err;
}

int VREXFileRecover::Chop(long offset) {
  return VREXFileAppender::AddSkipPackets(_fd, offset, -1, false);
}

int VREXFileRecover::GetLastPartInfo() {
  const Clock::time_point start = Clock::now();
  if (_lastPartitionOffset < 0) {
    LOGE << "<-# VREXFileRecover::GetLastPartInfo FAILED! Invalid _lastPartitionOffset="
         << _lastPartitionOffset << " in " << _path;
    return VREX_ERROR(ERR_MEDIAFORMATS_DELETE_OFFSET);
  }
  int err = 0;
  _reader = OpenReader(this, _lastPartitionOffset, -1, err);
  if (!_reader) return err;
  const partition_t* partition = _reader->ReadPartition(PARTITION_LAST_TIMESTAMP_NONE, err);
  if (partition == nullptr) {
    LOGE << "<-# VREXFileRecover::GetLastPartInfo FAILED! Can't read partition at offset "
         << _lastPartitionOffset << " in " << _path << " err=" << err;
    return err < 0 ? err : VREX_ERROR(ERR_MEDIAFORMATS_DELETE_PARTITION);
  }
  if (partition->_seekPointsCount == 0) {
    LOGE << "<-# VREXFileRecover::GetLastPartInfo FAILED! Partition at offset "
         << _lastPartitionOffset << " for for " << _path << " does not have seek points";
    return VREX_ERROR(ERR_MEDIAFORMATS_DELETE_PARTITION);
  }
  std::copy(partition->_fixedMetadata, partition->_fixedMetadata + kFixedMetadataSize,
            _info->fixedMetadata);
  _info->startMillis = partition->_pSeekPoints[0]._wallClockMillis;
  _info->bounds = {partition->_offset, partition->_size};
  const long gop = partition->_pSeekPoints[partition->_seekPointsCount - 1]._offset;
  const long end = partition->_offset + partition->_size;
  _reader = OpenReader(this, gop, end - gop, err);
  if (!_reader) return err;
  while (const media::frame_t* frame = _reader->ReadFrame(err)) {
    if (frame->clockSync == nullptr || !frame->clockSync->IsValid()) {
      LOGE << "<-# VREXFileRecover::GetLastPartInfo FAILED! Clock sync absent for " << _path
           << " GOP at offset " << gop;
      return VREX_ERROR(ERR_MEDIAFORMATS_NO_SYNC_NODE);
    }
    _info->endMillis = frame->clockSync->ComputeWallClock(frame->dtsCts.Dts(), 1000);
  }
  _reader.reset();
  LOGI << "<-# VREXFileRecover::GetLastPartInfo OK. Done in " << MillisSince(start)
       << " ms _videoWallClockEndMillis=" << _info->endMillis;
  return 0;
}

bool VREXFileRecover::WriteVREXData(const WriterVREX::message_t& message) {
  if (WritePacket(_fd, message)) return true;
  LOGE << "<-# VREXFileRecover::WriteVREXData FAILED! writev() failed for " << _path
       << " with errno=" << errno;
  return false;
}

int VREXFileRecover::SignalPayloadScToWc(const media::clock_sync_t& sync) {
  // While salvaging, a sync node that moves the wall clock back is not of this recording.
  if (_salvaging && _clockSync.IsValid() && sync.wc.Millis() < _clockSync.wc.Millis()) return 1;
  _clockSync = sync;
  return 0;
}

int VREXFileRecover::SignalPacket(unsigned short tid, VREXPayloadType, abstraction::DataSource* ds,
                                  long offset, long size, bool, bool) {
  if (!_salvaging) return 0;
  if (tid == VRX_TID_PARTITION_HEADER || tid == VRX_TID_PARTITION_FOOTER) return 1;
  _afterHole = _inHole;
  _inHole = tid == VRX_TID_SKIP;
  // Our writer ends every packet with its size: a packet whose last word is not that was
  // not all written.
  unsigned char trailer[4];
  int err = 0;
  if (size < kEmptySkipPacketSize || ds->PeekBuffer(trailer, offset + size - 4, 4, err) == nullptr) {
    return 1;
  }
  return abstraction::LoadBE32(trailer) == static_cast<uint64_t>(size - 4) ? 0 : 1;
}

int VREXFileRecover::SignalPacketsLoss(unsigned short, VREXPayloadType, long, unsigned short,
                                       unsigned short, unsigned short got) {
  // While salvaging, a track goes on with its next packet, starts over with the next source,
  // or jumps over a hole that a delete left.
  return _salvaging && got != 1 && !_afterHole ? 1 : 0;
}

}  // namespace internal
}  // namespace mediaformats
}  // namespace vrex
