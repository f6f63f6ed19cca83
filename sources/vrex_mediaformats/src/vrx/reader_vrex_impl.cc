// ReaderVREXImpl: set-up, the frame walk and the partition walk.
#include "reader_vrex_impl.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "abstraction/byte_order.h"
#include "abstraction/logging.h"
#include "mediaformats/errors.h"

namespace vrex {
namespace mediaformats {

using abstraction::DataSource;
using abstraction::LoadBE32;
using abstraction::LoadBE64;

namespace internal {

namespace {
// The tracks a reader keeps; the last, TID 0, takes every unknown TID.
const uint16_t kTrackIds[] = {VRX_TID_TID_MAP,   VRX_TID_MILESTONE,  VRX_TID_SKIP,
                              VRX_TID_AAC_ADTS,  VRX_TID_OPUS,       VRX_TID_H264_ANNEXB,
                              VRX_TID_H264_AVCC, VRX_TID_H265_AVCC,  VRX_TID_AV1,
                              VRX_TID_SC_TO_WC,  VRX_TID_IMAGE_JPEG, VRX_TID_SNAPSHOT_META,
                              VRX_TID_PARTITION_HEADER, VRX_TID_PARTITION_FOOTER,
                              VRX_TID_UNDEFINED};

std::string HexWord(const unsigned char* bytes) {
  char text[16];
  snprintf(text, sizeof(text), "%02x %02x %02x %02x", bytes[0], bytes[1], bytes[2], bytes[3]);
  return text;
}

uint16_t TidOf(const unsigned char* bytes) { return static_cast<uint16_t>((bytes[1] << 8) | bytes[2]); }
}  // namespace

ReaderVREXImpl::ReaderVREXImpl() : _trace(getenv("MS_READ_VREX_TRACE") != nullptr) {}

ReaderVREXImpl::~ReaderVREXImpl() { DataSource::FreeInstance(_source); }

void ReaderVREXImpl::SetUpTracks(Observer* observer) {
  _observer = observer;
  for (int i = 0; i < kTrackCount; ++i) _tracks[i].Initialize(kTrackIds[i], observer, &_clockSync);
}

int ReaderVREXImpl::Initialize(Observer* observer) {
  SetUpTracks(observer);
  _source = DataSource::GetInstance(0L);
  _minCursor = 0;
  _maxCursor = LONG_MAX;
  return 0;
}

int ReaderVREXImpl::Initialize(Observer* observer, const std::vector<std::string>& files,
                               bool flag, long offset, long length, bool stopAtFooter) {
  if (files.empty()) {
    LOGE << "<-# ReaderVREXImpl::Initialize FAILED! filePaths.size() is 0";
    return VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_PARAMETERS);
  }
  SetUpTracks(observer);
  _stopAtFooter = stopAtFooter;
  int err = 0;
  _source = files.size() == 1 ? DataSource::GetInstance(files[0].c_str(), err)
                              : DataSource::GetInstance(files, flag, err);
  if (_source == nullptr) {
    LOGE << "<-# ReaderVREXImpl::Initialize FAILED! Could not create data source err=" << err;
    return err;
  }
  const long size = _source->Size();
  _minCursor = std::max(offset, 0L);
  if (_minCursor >= size - 5) {
    LOGE << "<-# ReaderVREXImpl::Initialize FAILED! Invalid offset " << offset << " size=" << size;
    return VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_OFFSET);
  }
  _length = length;
  _fromFiles = true;
  _maxCursor = MaxCursorFor(size);
  _readCursor = _minCursor;
  _partitionReadCursor = _minCursor;
  return 0;
}

long ReaderVREXImpl::MaxCursorFor(long size) const {
  return (_length < 1 || _length > size - _minCursor) ? size : _minCursor + _length;
}

int ReaderVREXImpl::DropReadAhead() {
  const int err = _source->DropReadAhead();
  if (_fromFiles) _maxCursor = MaxCursorFor(_source->Size());
  if (_trace) {
    LOGD << "ReaderVREXImpl::DropReadAhead size=" << _source->Size() << " maxCursor=" << _maxCursor
         << " err=" << err;
  }
  return err;
}

vrx_track_t& ReaderVREXImpl::TrackOf(uint16_t tid) {
  for (int i = 0; i < kTrackCount - 1; ++i) {
    if (kTrackIds[i] == tid) return _tracks[i];
  }
  return _tracks[kTrackCount - 1];
}

void ReaderVREXImpl::ResetTrackCounters() {
  for (vrx_track_t& track : _tracks) track.Reset();
  _clockSync.Clear();
}

int ReaderVREXImpl::PeekHeader(unsigned char* bytes, unsigned long& count) {
  count = static_cast<unsigned long>(std::min<long>(vrx_packet_t::kMaxHeaderSize, _source->Available()));
  int err = 0;
  if (count > 0 && _source->PeekBuffer(bytes, _source->Cursor(), count, err) == nullptr) return err;
  return 0;
}

media::frame_t* ReaderVREXImpl::ReadFrame(int& err) {
  err = 0;
  if (_source->Cursor(_readCursor) != _readCursor) {
    LOGE << "<-# ReaderVREXImpl::ReadFrame FAILED! Unable to seek to cursor " << _readCursor;
    err = VREX_ERROR(ERR_MEDIAFORMATS_SEEK_FAILED);
    return nullptr;
  }
  for (;;) {
    const long start = _source->Cursor();
    _readCursor = start;
    if (_source->Available() < 7) {
      if (_stopAtFooter && _footerOffset >= 0) {
        _readCursor = _footerOffset;
        _source->Cursor(_footerOffset);
        _footerOffset = -1;
        err = VREX_ERROR(ERR_MEDIAFORMATS_NEED_MORE_DATA);
      }
      return nullptr;
    }
    if (start >= _maxCursor) return nullptr;
    unsigned char bytes[vrx_packet_t::kMaxHeaderSize];
    unsigned long count = 0;
    err = PeekHeader(bytes, count);
    if (err < 0) return nullptr;
    if (!IsPacketWordValid(bytes)) {
      LOGE << "<-# ReaderVREXImpl::ReadFrame FAILED! Invalid VRX header detected "
           << HexWord(bytes) << " at offset " << start;
      err = VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT);
      return nullptr;
    }
    const uint16_t tid = TidOf(bytes);
    if (tid == VRX_TID_UNDEFINED) {
      LOGE << "<-# ReaderVREXImpl::ReadFrame FAILED! Invalid undefined VRX track detected at offset "
           << start;
      err = VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT);
      return nullptr;
    }
    if (tid == VRX_TID_PARTITION_HEADER) ResetTrackCounters();
    if (tid == VRX_TID_PARTITION_FOOTER && _stopAtFooter) _footerOffset = start;
    vrx_track_t& track = TrackOf(tid);
    if (PayloadTypeOfTid(tid) == VRX_PAYLOAD_UNDEFINED) {
      LOGW << "<-# ReaderVREXImpl::ReadFrame Unknown track ID " << tid << " at offset " << start
           << " " << HexWord(bytes);
    }
    const int result = track.Read(_source, bytes, count);
    if (result < 1) {
      _source->Cursor(start);
      err = result;
      return nullptr;
    }
    _readCursor = _source->Cursor();
    if (IsMediaTid(tid) && track.IsFrameComplete()) {
      _lastFramePayloadOffset = track.Packet().PayloadOffset();
      if (_trace) LOGD << "ReaderVREXImpl::ReadFrame " << track.Frame().ToString();
      return &track.Frame();
    }
  }
}

int ReaderVREXImpl::IgnoreSkipPackets() {
  const long start = _source->Cursor();
  if (_source->Available() == 0) return 0;
  unsigned char bytes[vrx_packet_t::kMaxHeaderSize];
  unsigned long count = 0;
  const int err = PeekHeader(bytes, count);
  if (err < 0 || count < 6 || !IsPacketWordValid(bytes)) {
    LOGE << "<-# ReaderVREXImpl::IgnoreSkipPackets FAILED! Failed to read skip packet header at "
            "cursor=" << start;
    return VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT);
  }
  if (TidOf(bytes) != VRX_TID_SKIP) return 0;
  if (TrackOf(VRX_TID_SKIP).Read(_source, bytes, count) < 0) {
    _source->Cursor(start);
    LOGE << "<-# ReaderVREXImpl::IgnoreSkipPackets FAILED! Failed to read skip packet at cursor="
         << start;
    return VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT);
  }
  return 0;
}

int ReaderVREXImpl::ReadPartitionPacket(vrx_track_t& track, bool& eof) {
  eof = false;
  track.Reset();
  for (;;) {
    const long start = _source->Cursor();
    if (_source->Available() == 0) {
      eof = true;
      return VREX_ERROR(ERR_MEDIAFORMATS_NO_MORE_PARTITIONS);
    }
    unsigned char bytes[vrx_packet_t::kMaxHeaderSize];
    unsigned long count = 0;
    const int err = PeekHeader(bytes, count);
    if (err < 0 || count < 6 || !IsPacketWordValid(bytes) || TidOf(bytes) == VRX_TID_UNDEFINED) {
      LOGE << "<-# ReaderVREXImpl::ReadPartitionPacket FAILED! Could not read partition header at "
              "cursor=" << start << " avail=" << _source->Available()
           << " R123x=" << (count >= 4 ? HexWord(bytes) : std::string("?"));
      return VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT);
    }
    const uint16_t tid = TidOf(bytes);
    if (IsMediaTid(tid) || tid == VRX_TID_SC_TO_WC) {
      eof = true;  // contents that are not partitioned end the partition walk
      return VREX_ERROR(ERR_MEDIAFORMATS_NO_MORE_PARTITIONS);
    }
    if (tid == VRX_TID_SKIP) {
      const int read = TrackOf(VRX_TID_SKIP).Read(_source, bytes, count);
      if (read < 0) return read;
      if (read == 0) {
        eof = true;  // the data ends inside a skip packet
        return VREX_ERROR(ERR_MEDIAFORMATS_NO_MORE_PARTITIONS);
      }
      continue;
    }
    const int read = tid == track.Tid() ? track.Read(_source, bytes, count) : 0;
    if (read < 1 || !track.IsFrameComplete()) {
      _source->Cursor(start);
      LOGE << "<-# ReaderVREXImpl::ReadPartitionPacket FAILED! Invalid partition header at cursor="
           << start << " TID " << tid;
      return VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT);
    }
    return 0;
  }
}

int ReaderVREXImpl::ValidateSinglePartitionFile(long contentsOffset, long& contentsLength) {
  const long size = _source->Size();
  if (size < 20) return VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT);
  unsigned char words[8];
  int err = 0;
  if (_source->PeekBuffer(words, size - 8, 8, err) == nullptr) {
    return VREX_ERROR(ERR_MEDIAFORMATS_DATA_SOURCE_IO);
  }
  const long tableLength = LoadBE32(words);
  const long trailer = LoadBE32(words + 4);
  if (tableLength + 16 > size || trailer + 4 > size) {
    return VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT);
  }
  unsigned char length[8];
  unsigned char footerWord[4];
  if (_source->PeekBuffer(length, size - 16 - tableLength, 8, err) == nullptr ||
      _source->PeekBuffer(footerWord, size - 4 - trailer, 4, err) == nullptr) {
    return VREX_ERROR(ERR_MEDIAFORMATS_DATA_SOURCE_IO);
  }
  const int64_t contents = static_cast<int64_t>(LoadBE64(length));
  if (contents < 0 || LoadBE32(footerWord) != MakePacketWord(VRX_TID_PARTITION_FOOTER) ||
      contents > size || contentsOffset + contents + trailer + 4 != size) {
    LOGE << "<-# ReaderVREXImpl::ValidateSinglePartitionFile FAILED! contents=" << contents
         << " trailer=" << trailer << " size=" << size;
    return VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT);
  }
  contentsLength = contents;
  return 0;
}

int ReaderVREXImpl::ReadSeekTable(const partition_footer_record_t& footer, long baseOffset) {
  const unsigned long count = static_cast<unsigned long>(footer.tableLength) / kSeekPointSize;
  std::vector<unsigned char> table(count * kSeekPointSize);
  int err = 0;
  if (!table.empty() &&
      _source->PeekBuffer(table.data(), footer.tableOffset, table.size(), err) == nullptr) {
    LOGE << "<-# ReaderVREXImpl::ReadPartition FAILED! Not enough data " << table.size()
         << " bytes to read seek point 0 of " << count << " at offset " << footer.tableOffset;
    return VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT);
  }
  _partition.AllocateSeekPoints(count, false);
  for (unsigned long i = 0; i < count; ++i) {
    const unsigned char* entry = table.data() + i * kSeekPointSize;
    // Unsigned sums: a damaged entry must not overflow, SeekToRawOffset refuses it later.
    _partition._pSeekPoints[i]._offset = static_cast<long>(LoadBE64(entry) + baseOffset);
    _partition._pSeekPoints[i]._wallClockMillis = static_cast<long>(LoadBE64(entry + 8));
  }
  return 0;
}

const partition_t* ReaderVREXImpl::ReadPartition(PartitionLastTimestampType type, int& err) {
  err = 0;
  if (_source->Cursor(_partitionReadCursor) != _partitionReadCursor) {
    err = VREX_ERROR(ERR_MEDIAFORMATS_SEEK_FAILED);
    return nullptr;
  }
  bool eof = false;
  vrx_track_t& headerTrack = TrackOf(VRX_TID_PARTITION_HEADER);
  err = IgnoreSkipPackets();
  if (err >= 0) err = ReadPartitionPacket(headerTrack, eof);
  if (eof) {
    err = 0;
    return nullptr;
  }
  if (err < 0) return nullptr;
  const partition_header_record_t header = headerTrack.Header();
  _source->Cursor(header.packetOffset);
  const long baseOffset = _source->MultifileBaseOffset();
  const long contentsOffset = header.packetOffset + header.packetSize;
  long contentsLength = header.contentsLength;
  if (contentsLength == 0) {
    err = ValidateSinglePartitionFile(contentsOffset, contentsLength);
    if (err < 0) return nullptr;
  }
  const bool inFile = contentsLength >= 0 && contentsLength <= _source->Size() - contentsOffset;
  const long footerOffset = inFile ? contentsOffset + contentsLength : -1;
  if (!inFile || _source->Cursor(footerOffset) != footerOffset) {
    LOGE << "<-# ReaderVREXImpl::ReadPartition FAILED! Unable to seek to partition footer at "
            "offset " << footerOffset << " contents length " << contentsLength;
    err = VREX_ERROR(ERR_MEDIAFORMATS_SEEK_FAILED);
    return nullptr;
  }
  vrx_track_t& footerTrack = TrackOf(VRX_TID_PARTITION_FOOTER);
  err = ReadPartitionPacket(footerTrack, eof);
  if (err < 0) {
    LOGE << "<-# ReaderVREXImpl::ReadPartition FAILED! Failed to read partition footer for "
            "partition header at offset " << header.packetOffset << " err=" << err;
    return nullptr;
  }
  const partition_footer_record_t& footer = footerTrack.Footer();
  _partition._offset = header.packetOffset;
  _partition._size = footer.packetOffset + footer.packetSize - header.packetOffset;
  std::copy(header.fixedMetadata, header.fixedMetadata + kFixedMetadataSize,
            _partition._fixedMetadata);
  _partition._dynamicMetadata = {header.dynamicOffset, header.dynamicSize};
  _partition._contents = {contentsOffset, contentsLength};
  _partition._lastWallClockMillis = -1;
  err = ReadSeekTable(footer, baseOffset);
  if (err < 0) return nullptr;
  _partitionReadCursor = footer.packetOffset + footer.packetSize;
  if (type != PARTITION_LAST_TIMESTAMP_NONE) {
    err = GetPartitionLastTimestamp(type);
    if (err < 0) {
      LOGE << "<-# ReaderVREXImpl::ReadPartition FAILED! Could not get last frame timestamp for "
              "partition at offset " << _partition._offset << " err=" << err;
      return nullptr;
    }
  }
  return &_partition;
}

int ReaderVREXImpl::GetPartitionLastTimestamp(PartitionLastTimestampType type) {
  if (_partition._seekPointsCount == 0) return 0;
  const long saved = _readCursor;
  int err = SeekToRawOffset(_partition._pSeekPoints[_partition._seekPointsCount - 1]._offset);
  const long end = _partition._contents._offset + _partition._contents._size;
  long last = -1;
  while (err >= 0) {
    const media::frame_t* frame = ReadFrame(err);
    if (frame == nullptr || _lastFramePayloadOffset >= end) break;
    const char kind = media::tagKind(frame->tag);
    const bool wanted = type == PARTITION_LAST_TIMESTAMP_VIDEO_AND_IMAGES
                            ? (kind == 'V' || kind == 'I')
                            : kind != 'A';
    if (wanted && frame->clockSync != nullptr) {
      last = std::max(last, frame->clockSync->ComputeWallClock(frame->dtsCts.Dts(), 1000));
    }
  }
  _readCursor = saved;
  if (err < 0) return err;
  _partition._lastWallClockMillis = last;
  return 0;
}

long ReaderVREXImpl::GetAvailableDataSize() const { return _source->Available(); }

long ReaderVREXImpl::GetCurrentRawOffset() const {
  return (_minCursor >= 0 && _maxCursor >= 0) ? _readCursor : -1;
}

int ReaderVREXImpl::SeekToRawOffset(long offset) {
  if (_minCursor < 0 || _maxCursor < 0 || offset < _minCursor || offset > _maxCursor) {
    LOGE << "<-# ReaderVREXImpl::SeekToRawOffset FAILED! Invalid offset provided " << offset
         << " minCursor=" << _minCursor << " maxCursor=" << _maxCursor;
    return VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_OFFSET);
  }
  _readCursor = offset;
  return 0;
}

long ReaderVREXImpl::FeedData(const unsigned char* data, unsigned long size) {
  unsigned long appended = 0;
  while (appended < size) {
    const long count = _source->AppendBufferNonBlocking(data + appended, size - appended);
    if (count <= 0) return count < 0 ? count : VREX_ERROR(ERR_MEDIAFORMATS_DATA_SOURCE_MEMORY);
    appended += static_cast<unsigned long>(count);
  }
  int err = 0;
  while (ReadFrame(err) != nullptr) {
  }
  if (err < 0) return err;
  _source->Cursor(_readCursor);
  _source->Optimize();
  _readCursor = _source->Cursor();
  return static_cast<long>(size);
}

}  // namespace internal

std::unique_ptr<ReaderVREX> ReaderVREX::Create(Observer* observer, int& err) {
  err = 0;
  if (observer == nullptr) {
    err = VREX_ERROR(ERR_MEDIAFORMATS_NULL_OBSERVER);
    return nullptr;
  }
  std::unique_ptr<internal::ReaderVREXImpl> reader(new internal::ReaderVREXImpl());
  err = reader->Initialize(observer);
  return err < 0 ? nullptr : std::move(reader);
}

std::unique_ptr<ReaderVREX> ReaderVREX::Create(Observer* observer,
                                               const std::vector<std::string>& files, bool flag,
                                               long offset, long length, bool stopAtFooter,
                                               int& err) {
  std::unique_ptr<internal::ReaderVREXImpl> reader(new internal::ReaderVREXImpl());
  err = reader->Initialize(observer, files, flag, offset, length, stopAtFooter);
  if (err < 0) return nullptr;
  return reader;
}

std::unique_ptr<ReaderVREX> ReaderVREX::Create(Observer* observer,
                                               const std::vector<std::string>& files, bool flag,
                                               long offset, long length, int& err) {
  return Create(observer, files, flag, offset, length, false, err);
}

std::unique_ptr<ReaderVREX> ReaderVREX::Create(Observer* observer, const char* file, bool flag,
                                               long offset, long length, int& err) {
  return Create(observer, std::vector<std::string>{file != nullptr ? file : ""}, flag, offset,
                length, false, err);
}

}  // namespace mediaformats
}  // namespace vrex
