// WriterVREXImpl: frames, clock syncs and descriptors as .vrx packets, one observer call each.
#include "writer_vrex_impl.h"

#include <algorithm>
#include <cassert>
#include <cstring>

#include "abstraction/byte_order.h"
#include "abstraction/logging.h"
#include "media/codec_tags.h"
#include "mediaformats/errors.h"

namespace vrex {
namespace mediaformats {

using abstraction::StoreBE16;
using abstraction::StoreBE32;
using abstraction::StoreBE64;
using media::dts_cts_t;

namespace internal {

constexpr uint64_t kMaxDts32 = 0xFFFFFFFFull;
constexpr unsigned long kMaxFrameSize = 0x7FFF0000ul;

inline unsigned long Padding(unsigned long size) { return (4 - size % 4) % 4; }

namespace {

bool HasTime(const dts_cts_t& ts) { return ts.dts >= 0 && ts.clockRate != 0; }

// The timestamp bits of the flags: DTS, its width, CTS and the clock code; 0 without a time.
uint16_t TimestampFlags(const dts_cts_t& ts) {
  if (!HasTime(ts)) return 0;
  uint16_t flags = VRX_FLAG_DTS | static_cast<uint16_t>(GetClockCode(ts.clockRate));
  if (static_cast<uint64_t>(ts.dts) > kMaxDts32) flags |= VRX_FLAG_DTS_64;
  if (ts.cts != 0) flags |= VRX_FLAG_CTS;
  return flags;
}

uint16_t DescriptorFlags(const dts_cts_t& ts) { return VRX_FLAGS_DESCRIPTOR | TimestampFlags(ts); }
}  // namespace

void vrex_protocol_track_t::PutHeader16(uint16_t value) {
  StoreBE16(header + headerLength, value);
  headerLength += 2;
}

void vrex_protocol_track_t::PutHeader32(uint32_t value) {
  StoreBE32(header + headerLength, value);
  headerLength += 4;
}

void vrex_protocol_track_t::PutHeader64(uint64_t value) {
  StoreBE64(header + headerLength, value);
  headerLength += 8;
}

void vrex_protocol_track_t::Add(const void* data, unsigned long size) {
  assert(count < kMaxPieces);
  if (size == 0) return;
  pieces[count].iov_base = const_cast<void*>(data);
  pieces[count].iov_len = size;
  ++count;
  total += size;
}

void vrex_protocol_track_t::AddPadAndTrailer(unsigned long payloadSize) {
  Add(pad, Padding(payloadSize));
  StoreBE32(trailer, static_cast<uint32_t>(total));
  Add(trailer, 4);
}

WriterVREXImpl::WriterVREXImpl(unsigned int maxPacketPayload, Observer* observer)
    : _observer(observer), _maxPacketPayload(maxPacketPayload) {
  const uint16_t tids[COUNT] = {VRX_TID_AAC_ADTS,   VRX_TID_OPUS,       VRX_TID_H264_AVCC,
                                VRX_TID_H265_AVCC,  VRX_TID_AV1,        VRX_TID_SC_TO_WC,
                                VRX_TID_IMAGE_JPEG, VRX_TID_SNAPSHOT_META,
                                VRX_TID_PARTITION_HEADER, VRX_TID_PARTITION_FOOTER};
  _tracks.reserve(COUNT);
  for (uint16_t tid : tids) _tracks.emplace_back(tid);
}

WriterVREXImpl::~WriterVREXImpl() = default;

void WriterVREXImpl::BeginPacket(vrex_protocol_track_t& track, uint16_t flags,
                                 const dts_cts_t* ts) {
  track.count = 0;
  track.total = 0;
  track.headerLength = 0;
  track.PutHeader32(MakePacketWord(track.tid));
  track.PutHeader16(flags);
  track.PutHeader16(track.sequence);
  if (ts == nullptr || !(flags & VRX_FLAG_DTS)) return;
  if ((flags & VRX_FLAG_CLOCK_CODE_MASK) == VRX_CLOCK_CODE_EXPLICIT) track.PutHeader32(ts->clockRate);
  if (flags & VRX_FLAG_DTS_64) {
    track.PutHeader64(static_cast<uint64_t>(ts->dts));
  } else {
    track.PutHeader32(static_cast<uint32_t>(ts->dts));
  }
  if (flags & VRX_FLAG_CTS) track.PutHeader32(ts->cts);
}

void WriterVREXImpl::BeginDescriptor(vrex_protocol_track_t& track, const dts_cts_t& ts,
                                     unsigned long payloadSize, long contentsLength) {
  BeginPacket(track, DescriptorFlags(ts), &ts);
  track.PutHeader32(static_cast<uint32_t>(payloadSize));
  track.PutHeader64(static_cast<uint64_t>(contentsLength));
}

long WriterVREXImpl::EmitDescriptor(vrex_protocol_track_t& track) {
  const long before = _bytesWritten;
  VREX_CHECK(Emit(track));
  return _bytesWritten - before;
}

int WriterVREXImpl::Emit(vrex_protocol_track_t& track) {
  message_t message;
  message.pieces = track.pieces;
  message.count = track.count;
  message.total = track.total;
  if (!_observer->WriteVREXData(message)) {
    LOGE << "<-# WriterVREXImpl::Emit FAILED! observer refused " << track.total
         << " bytes on TID " << track.tid;
    return VREX_ERROR(ERR_MEDIAFORMATS_WRITER_OBSERVER_FAILED);
  }
  _bytesWritten += static_cast<long>(track.total);
  return 0;
}

int WriterVREXImpl::WriteFrameData(vrex_protocol_track_t& track, const unsigned char* data,
                                   unsigned long size, const dts_cts_t& ts, bool key,
                                   bool standAlone) {
  unsigned long done = 0;
  while (done < size) {
    ++track.sequence;
    const unsigned long take = std::min(size - done, _maxPacketPayload);
    const bool first = done == 0;
    const bool last = done + take == size;
    uint16_t flags = last ? VRX_FLAG_FRAME_END : 0;
    if (first) {
      flags |= VRX_FLAG_FRAME_START | VRX_FLAG_TRAILER | TimestampFlags(ts);
      if (key) flags |= VRX_FLAG_KEY;
      if (standAlone) flags |= VRX_FLAG_STAND_ALONE;
    }
    BeginPacket(track, flags, first ? &ts : nullptr);
    if (first && !last) track.PutHeader32(static_cast<uint32_t>(size));
    track.PutHeader32(static_cast<uint32_t>(take));
    track.AddHeader();
    track.Add(data + done, take);
    // Continuation packets end with a trailer word too, though their flags do not say so.
    track.AddPadAndTrailer(take);
    VREX_CHECK(Emit(track));
    done += take;
  }
  return 0;
}

int WriterVREXImpl::OpenPartitionInternal(const dts_cts_t& ts) {
  if (!_partition || _partition->contentsOffset != 0) return 0;
  const long headerOffset = _bytesWritten;
  const long written = WritePartitionDescriptorStart(
      ts, 0, _partition->fixedMetadata, _partition->dynamicMetadata.data(),
      _partition->dynamicMetadata.size());
  if (written < 0) return static_cast<int>(written);
  _partition->headerOffset = headerOffset;
  _partition->contentsOffset = _bytesWritten;
  return 0;
}

int WriterVREXImpl::WriteFrame(vrex_protocol_track_t& track, const void* data,
                               unsigned long size, const dts_cts_t& ts, bool key,
                               bool standAlone) {
  if (size == 0) return 0;
  // The result counts the bytes emitted as an int: a frame stays well below 2 GiB.
  if (data == nullptr || size > kMaxFrameSize) {
    return VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_PARAMETERS);
  }
  const long before = _bytesWritten;
  VREX_CHECK(OpenPartitionInternal(ts));
  VREX_CHECK(WriteFrameData(track, static_cast<const unsigned char*>(data), size, ts, key,
                            standAlone));
  return static_cast<int>(_bytesWritten - before);
}

int WriterVREXImpl::WriteSeekPoint(long frameOffset, const dts_cts_t& ts) {
  if (!_partition || _partition->contentsOffset == 0 || !_partition->clockSync.IsValid()) {
    return 0;
  }
  // A reader landing on the entry should meet the sync node first.
  const long entry =
      frameOffset == _partition->clockSyncEnd ? _partition->clockSyncStart : frameOffset;
  unsigned char bytes[kSeekPointSize];
  StoreBE64(bytes, static_cast<uint64_t>(entry - _partition->headerOffset));
  StoreBE64(bytes + 8, static_cast<uint64_t>(_partition->clockSync.ComputeWallClock(ts.Dts(), 1000)));
  abstraction::DataSource* table = _partition->seekTable;
  const long first = table->AppendBufferNonBlocking(bytes, 8);
  if (first < 0) return static_cast<int>(first);
  const long second = table->AppendBufferNonBlocking(bytes + 8, 8);
  if (second < 0) {
    table->Cursor(table->Cursor() - 8);
    return static_cast<int>(second);
  }
  return 0;
}

int WriterVREXImpl::WriteVideoData(const void* data, size_t size, const dts_cts_t& ts,
                                   bool key) {
  return WriteVideoData(data, size, ts, key, media::TAG_VH264);
}

int WriterVREXImpl::WriteVideoData(const void* data, size_t size, const dts_cts_t& ts,
                                   bool key, unsigned long codecTag) {
  vrex_protocol_track_t& track = codecTag == media::TAG_VH265 ? _tracks[H265]
                                 : codecTag == media::TAG_VAV1 ? _tracks[AV1]
                                                               : _tracks[H264];
  const long frameOffset = _bytesWritten;
  const int written = WriteFrame(track, data, size, ts, key, false);
  if (written <= 0 || !key) return written;
  VREX_CHECK(WriteSeekPoint(frameOffset, ts));
  return written;
}

int WriterVREXImpl::WriteAudioData(const void* data, size_t size, const dts_cts_t& ts) {
  return WriteAudioData(data, size, ts, media::TAG_AAAC);
}

int WriterVREXImpl::WriteAudioData(const void* data, size_t size, const dts_cts_t& ts,
                                   unsigned long codecTag) {
  vrex_protocol_track_t& track = codecTag == media::TAG_AOPUS ? _tracks[OPUS] : _tracks[AAC];
  return WriteFrame(track, data, size, ts, true, true);
}

int WriterVREXImpl::WriteImageData(const char* data, size_t size, const dts_cts_t& ts,
                                   unsigned long) {
  return WriteImageData(data, size, ts);
}

int WriterVREXImpl::WriteImageData(const char* data, size_t size, const dts_cts_t& ts) {
  const unsigned char* bytes = reinterpret_cast<const unsigned char*>(data);
  if (bytes == nullptr || size <= 2 || bytes[0] != 0xFF || bytes[1] != 0xD8 || bytes[2] != 0xFF) {
    return VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_PARAMETERS);
  }
  const long frameOffset = _bytesWritten;
  const int written = WriteFrame(_tracks[JPEG], data, size, ts, true, true);
  if (written <= 0) return written;
  VREX_CHECK(WriteSeekPoint(frameOffset, ts));
  return written;
}

int WriterVREXImpl::WriteSnapshotMeta(const dts_cts_t& ts, unsigned long refTag) {
  unsigned char payload[kSnapshotMetaPayloadSize];
  StoreBE16(payload, 1);
  StoreBE16(payload + 2, 8);
  StoreBE64(payload + 4, refTag);
  LOGD << "#-> WriterVREXImpl::WriteSnapshotMeta dtsCts=" << ts.ToString() << " reftag=" << refTag
       << " size=" << sizeof(payload) << "\n" << abstraction::dump_s(payload, sizeof(payload));
  return WriteFrame(_tracks[SNAPSHOT], payload, sizeof(payload), ts, true, true);
}

int WriterVREXImpl::WriteClockSync(const media::clock_sync_t& sync) {
  const dts_cts_t ts(sync.sc.value, sync.sc.clockRate, 0);
  const long before = _bytesWritten;
  VREX_CHECK(OpenPartitionInternal(ts));
  if (_partition) {
    _partition->clockSyncStart = _bytesWritten;
    _partition->clockSync = sync;
  }
  // Seconds and nanoseconds of the wall clock; nanoseconds are 0xFFFFFFFF without a rate.
  const long wcRate = sync.wc.clockRate;
  uint32_t seconds = 0;
  uint32_t nanos = 0xFFFFFFFFu;
  if (wcRate != 0) {
    seconds = static_cast<uint32_t>(sync.wc.value / wcRate);
    const long remainder = sync.wc.value % wcRate;
    nanos = wcRate == 1000000000L
                ? static_cast<uint32_t>(remainder)
                : static_cast<uint32_t>((wcRate / 2 + remainder * 1000000000L) / wcRate);
  }
  vrex_protocol_track_t& track = _tracks[CLOCK_SYNC];
  BeginPacket(track, DescriptorFlags(ts), &ts);
  track.PutHeader32(kClockSyncPayloadSize);
  track.AddHeader();
  const unsigned long headerBytes = track.total;
  VREX_CHECK(Emit(track));

  unsigned char payload[kClockSyncPayloadSize];
  StoreBE32(payload, seconds);
  StoreBE32(payload + 4, nanos);
  track.count = 0;
  track.total = 0;
  track.Add(payload, sizeof(payload));
  StoreBE32(track.trailer, static_cast<uint32_t>(headerBytes + sizeof(payload)));
  track.Add(track.trailer, 4);
  VREX_CHECK(Emit(track));
  if (_partition) _partition->clockSyncEnd = _bytesWritten;
  return static_cast<int>(_bytesWritten - before);
}

long WriterVREXImpl::WritePartitionDescriptorStart(const dts_cts_t& ts, long contentsLength,
                                                   const unsigned char* fixedMetadata,
                                                   const void* dynamicMetadata,
                                                   unsigned long dynamicLength) {
  if (fixedMetadata == nullptr || (dynamicMetadata == nullptr && dynamicLength > 0) ||
      dynamicLength > 0xFFFFFFFFul - kPartitionHeaderFixedPayload) {
    return VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_PARAMETERS);
  }
  vrex_protocol_track_t& track = _tracks[HEADER];
  const unsigned long payload = dynamicLength + kPartitionHeaderFixedPayload;
  BeginDescriptor(track, ts, payload, contentsLength);
  memcpy(track.header + track.headerLength, fixedMetadata, kFixedMetadataSize);
  track.headerLength += kFixedMetadataSize;
  track.AddHeader();
  track.Add(dynamicMetadata, dynamicLength);
  track.AddPadAndTrailer(payload);
  return EmitDescriptor(track);
}

long WriterVREXImpl::WritePartitionDescriptorEnd(const dts_cts_t& ts, long contentsLength,
                                                 const void* seekTable,
                                                 unsigned int seekTableLength) {
  if ((seekTable == nullptr && seekTableLength > 0) ||
      seekTableLength > 0xFFFFFFFFu - kPartitionFooterFixedPayload) {
    return VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_PARAMETERS);
  }
  vrex_protocol_track_t& track = _tracks[FOOTER];
  const unsigned long payload = seekTableLength + kPartitionFooterFixedPayload;
  BeginDescriptor(track, ts, payload, contentsLength);
  track.AddHeader();
  track.Add(seekTable, seekTableLength);
  unsigned char tableLength[4];
  StoreBE32(tableLength, seekTableLength);
  track.Add(tableLength, 4);
  track.AddPadAndTrailer(payload);
  return EmitDescriptor(track);
}

int WriterVREXImpl::ComputeSkipPacketHeaderAndFooter(unsigned int payloadLength,
                                                     unsigned char* header,
                                                     unsigned char* trailer) {
  if (static_cast<unsigned long>(payloadLength) + kEmptySkipPacketSize > _maxPacketPayload ||
      header == nullptr || trailer == nullptr) {
    return VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_PARAMETERS);
  }
  memcpy(header, kSkipPacketHeader, sizeof(kSkipPacketHeader));
  StoreBE32(header + 8, payloadLength);
  StoreBE32(trailer, payloadLength + 12);
  return 0;
}

int WriterVREXImpl::OpenPartition(const partition_info_t* info) {
  if (info == nullptr || (info->dynamicMetadata == nullptr && info->dynamicLength > 0)) {
    return VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_PARAMETERS);
  }
  if (_partition) return VREX_ERROR(ERR_MEDIAFORMATS_PARTITION_ALREADY_OPEN);
  std::unique_ptr<open_partition_t> partition(new open_partition_t());
  memcpy(partition->fixedMetadata, info->fixedMetadata, kFixedMetadataSize);
  const unsigned char* dynamic = static_cast<const unsigned char*>(info->dynamicMetadata);
  partition->dynamicMetadata.assign(dynamic, dynamic + info->dynamicLength);
  partition->seekTable = abstraction::DataSource::GetInstance(0L);
  _partition = std::move(partition);
  return 0;
}

long WriterVREXImpl::ClosePartitionInternal() {
  if (!_partition || _partition->contentsOffset == 0) return 0;
  abstraction::DataSource* table = _partition->seekTable;
  if (table->Available() > 0x7FFFFFFEL) return VREX_ERROR(ERR_MEDIAFORMATS_PARTITION_TABLE_FULL);
  int err = 0;
  const unsigned char* entries = table->PeekBuffer(nullptr, 0, table->Size(), err);
  if (err < 0) return err;
  return WritePartitionDescriptorEnd(_partition->footerTs,
                                     _bytesWritten - _partition->contentsOffset, entries,
                                     static_cast<unsigned int>(table->Size()));
}

long WriterVREXImpl::ClosePartition() {
  const long result = ClosePartitionInternal();
  _partition.reset();
  return result;
}

}  // namespace internal

long WriterVREX::ComputeRequiredSpace(const media::timestamp_t* ts, unsigned int cts,
                                      unsigned long payloadLength) {
  long header = 12;
  if (ts != nullptr && ts->clockRate != 0 && ts->value >= 0) {
    header = 16;
    if (GetClockCode(ts->clockRate) == VRX_CLOCK_CODE_EXPLICIT) header += 4;
    if (static_cast<uint64_t>(ts->value) > internal::kMaxDts32) header += 4;
    if (cts != 0) header += 4;
  }
  return header + static_cast<long>(payloadLength + internal::Padding(payloadLength)) + 4;
}

std::unique_ptr<WriterVREX> WriterVREX::Create(unsigned int maxPacketPayload,
                                               Observer* observer, int& err) {
  err = 0;
  if (observer == nullptr) {
    err = VREX_ERROR(ERR_MEDIAFORMATS_NULL_OBSERVER);
    return nullptr;
  }
  if (maxPacketPayload == 0) {
    err = VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_PARAMETERS);
    return nullptr;
  }
  return std::unique_ptr<WriterVREX>(new internal::WriterVREXImpl(maxPacketPayload, observer));
}

}  // namespace mediaformats
}  // namespace vrex
