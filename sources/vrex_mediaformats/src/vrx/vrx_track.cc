// vrx_track_t: one packet at a time: sequence check, fragment reassembly, and the dispatch of
// complete payloads to the observer.
#include "vrx_track.h"

#include <cstring>

#include "abstraction/byte_order.h"
#include "abstraction/logging.h"
#include "media/codec_tags.h"
#include "mediaformats/errors.h"

namespace vrex {
namespace mediaformats {
namespace internal {

using abstraction::DataSource;
using abstraction::LoadBE16;
using abstraction::LoadBE32;
using abstraction::LoadBE64;

namespace {
constexpr int64_t kNanosPerSecond = 1000000000;

uint64_t TagOfType(VREXPayloadType type) {
  switch (type) {
    case VRX_PAYLOAD_AUDIO_AAC_ADTS: return media::TAG_AAAC;
    case VRX_PAYLOAD_AUDIO_OPUS: return media::TAG_AOPUS;
    case VRX_PAYLOAD_VIDEO_H264_NALU_B:
    case VRX_PAYLOAD_VIDEO_H264_NALU_AVCC: return media::TAG_VH264;
    case VRX_PAYLOAD_VIDEO_H265_NALU_AVCC: return media::TAG_VH265;
    case VRX_PAYLOAD_VIDEO_AV1: return media::TAG_VAV1;
    case VRX_PAYLOAD_IMAGE_JPEG: return media::TAG_IJPEG;
    default: return media::TAG_UNK;
  }
}

}  // namespace

// Copies `count` bytes of a payload that lies in memory, in the header bytes already read, or
// in the source.
int vrx_track_t::FetchPayload(DataSource* source, long offset, const unsigned char* memory,
                              long count, unsigned char* dst) const {
  if (memory != nullptr) {
    memcpy(dst, memory, static_cast<size_t>(count));
    return 0;
  }
  if (source == _headerSource && offset >= _packet.offset &&
      offset + count <= _packet.offset + static_cast<long>(_headerCount)) {
    memcpy(dst, _headerBytes + (offset - _packet.offset), static_cast<size_t>(count));
    return 0;
  }
  int err = 0;
  if (source->PeekBuffer(dst, offset, static_cast<unsigned long>(count), err) == nullptr) {
    return err < 0 ? err : VREX_ERROR(ERR_MEDIAFORMATS_DATA_SOURCE_IO);
  }
  return 0;
}

vrx_track_t::vrx_track_t() = default;

vrx_track_t::~vrx_track_t() = default;

void vrx_track_t::Initialize(uint16_t tid, ReaderVREX::Observer* observer,
                             media::clock_sync_t* clockSync) {
  _tid = tid;
  _type = PayloadTypeOfTid(tid);
  _observer = observer;
  _clockSync = clockSync;
  Reset();
}

void vrx_track_t::Reset() {
  _lastSequence = 0;
  _reassembly.clear();
  _frameComplete = false;
}

int vrx_track_t::AppendPayload(DataSource* source, long size) {
  const size_t held = _reassembly.size();
  _reassembly.resize(held + static_cast<size_t>(size));
  const long read = source->ReadBuffer(_reassembly.data() + held, static_cast<unsigned long>(size));
  if (read < 0) {
    _reassembly.resize(held);
    return static_cast<int>(read);
  }
  return 0;
}

int vrx_track_t::DropFragments() {
  _reassembly.clear();
  if (_observer != nullptr && _observer->SignalMalformedPacketsDetected(_packet.Tid(), _type)) {
    return VREX_ERROR(ERR_MEDIAFORMATS_READER_OBSERVER_FAILED);
  }
  return 0;
}

int vrx_track_t::Read(DataSource* source, const unsigned char* bytes, unsigned long count) {
  _frameComplete = false;
  _headerSource = source;
  _headerBytes = bytes;
  _headerCount = count;
  const int parsed = _packet.Read(source, bytes, count);
  if (parsed < 0) {
    _reassembly.clear();
    return parsed;
  }
  if (parsed == 0) return 0;
  const uint16_t tid = _packet.Tid();
  const long payloadOffset = _packet.PayloadOffset();
  const long payloadSize = _packet.payloadSize;

  if (_observer != nullptr) {
    const int refused = _observer->SignalPacket(tid, _type, source, _packet.offset,
                                                _packet.packetSize, _packet.IsStart(),
                                                _packet.IsEnd());
    source->Cursor(payloadOffset);
    if (refused) return VREX_ERROR(ERR_MEDIAFORMATS_READER_OBSERVER_FAILED);
  }

  const uint16_t previousSequence = _lastSequence;
  if (_lastSequence != 0 && _packet.sequence != static_cast<uint16_t>(_lastSequence + 1)) {
    _reassembly.clear();
    if (_observer != nullptr &&
        _observer->SignalPacketsLoss(tid, _type, _packet.offset, _lastSequence,
                                     static_cast<uint16_t>(_lastSequence + 1), _packet.sequence)) {
      return VREX_ERROR(ERR_MEDIAFORMATS_READER_OBSERVER_FAILED);
    }
  }
  _lastSequence = _packet.sequence;

  int result = 0;
  if (_packet.IsStart()) {
    _reassembly.clear();
    _keyFrame = _packet.IsKey();
    _frameTs = media::dts_cts_t(_packet.dts, _packet.clockRate, _packet.cts);
    if (_packet.IsEnd()) {
      _frameComplete = true;
      result = SignalPayload(source, payloadOffset, nullptr, payloadSize);
    } else {
      _frameSize = _packet.frameSize;
      result = AppendPayload(source, payloadSize);
    }
  } else if (!_reassembly.empty() || _packet.IsEnd()) {
    // A continuation is kept only behind a first fragment, and only while it fits the size
    // that fragment announced.
    const long held = static_cast<long>(_reassembly.size());
    const long expected = static_cast<long>(_frameSize) - held;
    if (held == 0 || payloadSize > expected || (_packet.IsEnd() && payloadSize != expected)) {
      result = DropFragments();
    } else {
      result = AppendPayload(source, payloadSize);
      if (result >= 0 && _packet.IsEnd()) {
        _frameComplete = true;
        result = SignalPayload(nullptr, 0, _reassembly.data(), held + payloadSize);
      }
      // A retry of this packet must find the fragments as they were before it.
      if (result < 0) _reassembly.resize(held);
    }
  }
  if (result < 0) {
    _lastSequence = previousSequence;
    return result;
  }
  source->Cursor(_packet.offset + _packet.packetSize);
  return 1;
}

int vrx_track_t::SignalFrame(DataSource* source, long offset, const unsigned char* memory,
                             long size) {
  const bool audio = _type == VRX_PAYLOAD_AUDIO_AAC_ADTS || _type == VRX_PAYLOAD_AUDIO_OPUS;
  _frame = media::frame_t();
  _frame.trackId = _packet.Tid();
  _frame.tag = TagOfType(_type);
  _frame.keyFrame = audio || _keyFrame;
  _frame.clockSync = _clockSync;
  _frame.dtsCts = _frameTs;
  _frame.pData = memory;
  _frame.pDataSource = source;
  _frame.offset = memory != nullptr ? 0 : offset;
  _frame.size = size;
  if (_observer == nullptr) return 0;
  const uint16_t tid = _frame.trackId;
  switch (_type) {
    case VRX_PAYLOAD_AUDIO_AAC_ADTS: return _observer->SignalPayloadAudioAacAdts(tid, _frame);
    case VRX_PAYLOAD_AUDIO_OPUS: return _observer->SignalPayloadAudioOpus(tid, _frame);
    case VRX_PAYLOAD_VIDEO_H264_NALU_B: return _observer->SignalPayloadVideoH264NaluB(tid, _frame);
    case VRX_PAYLOAD_VIDEO_H264_NALU_AVCC:
      return _observer->SignalPayloadVideoH264NaluAvcc(tid, _frame);
    case VRX_PAYLOAD_VIDEO_H265_NALU_AVCC:
      return _observer->SignalPayloadVideoH265NaluAvcc(tid, _frame);
    case VRX_PAYLOAD_VIDEO_AV1: return _observer->SignalPayloadVideoAV1(tid, _frame);
    default: return _observer->SignalPayloadImageJpeg(tid, _frame);
  }
}

int vrx_track_t::SignalPayload(DataSource* source, long offset, const unsigned char* memory,
                               long size) {
  int refused = 0;
  const uint16_t tid = _packet.Tid();
  switch (_type) {
    case VRX_PAYLOAD_TID_MAP:
      LOGE << "<-# vrx_track_t::SignalPayload FAILED! TID map packets are not supported";
      return VREX_ERROR(ERR_MEDIAFORMATS_NOT_IMPLEMENTED);
    case VRX_PAYLOAD_AUDIO_AAC_ADTS:
    case VRX_PAYLOAD_AUDIO_OPUS:
    case VRX_PAYLOAD_VIDEO_H264_NALU_B:
    case VRX_PAYLOAD_VIDEO_H264_NALU_AVCC:
    case VRX_PAYLOAD_VIDEO_H265_NALU_AVCC:
    case VRX_PAYLOAD_VIDEO_AV1:
    case VRX_PAYLOAD_IMAGE_JPEG:
      refused = SignalFrame(source, offset, memory, size);
      break;
    case VRX_PAYLOAD_SC_TO_WC: {
      VREX_CHECK(ReadClockSync(source, offset, memory, size));
      if (_observer != nullptr) refused = _observer->SignalPayloadScToWc(*_clockSync);
      break;
    }
    case VRX_PAYLOAD_MILESTONE:
      if (_observer != nullptr) refused = _observer->SignalPayloadMilestone(tid);
      break;
    case VRX_PAYLOAD_SKIP:
      if (_observer != nullptr) refused = _observer->SignalPayloadSkip(tid);
      break;
    case VRX_PAYLOAD_PARTITION_HEADER:
      VREX_CHECK(ReadPartitionHeader(source, offset, memory, size));
      if (_observer != nullptr) refused = _observer->SignalPartitionHeader(tid);
      break;
    case VRX_PAYLOAD_PARTITION_FOOTER:
      if (memory != nullptr || size < static_cast<long>(kPartitionFooterFixedPayload)) {
        LOGE << "<-# vrx_track_t::SignalPayload FAILED! footer payload of " << size
             << " bytes at offset " << _packet.offset;
        return VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT);
      }
      _footer.packetOffset = _packet.offset;
      _footer.packetSize = _packet.packetSize;
      _footer.tableOffset = offset + 8;
      _footer.tableLength = size - kPartitionFooterFixedPayload;
      if (_observer != nullptr) refused = _observer->SignalPartitionFooter(tid);
      break;
    case VRX_PAYLOAD_SNAPSHOT_META:
      VREX_CHECK(ReadSnapshotMeta(source, offset, memory, size));
      break;
    default:
      if (_observer != nullptr) {
        refused = _observer->SignalPayloadRaw(tid, _type, source, offset, memory, size);
      }
      break;
  }
  return refused ? VREX_ERROR(ERR_MEDIAFORMATS_READER_OBSERVER_FAILED) : 0;
}

int vrx_track_t::ReadClockSync(DataSource* source, long offset, const unsigned char* memory,
                               long size) {
  if (size < static_cast<long>(kClockSyncPayloadSize)) {
    LOGE << "<-# vrx_track_t::ReadClockSync FAILED! payload of " << size << " bytes at offset "
         << _packet.offset;
    return VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT);
  }
  unsigned char payload[kClockSyncPayloadSize];
  VREX_CHECK(FetchPayload(source, offset, memory, sizeof(payload), payload));
  const uint64_t seconds = LoadBE32(payload);
  const uint64_t nanos = LoadBE32(payload + 4);
  const int64_t sc = _frameTs.dts;
  const uint64_t rate = _frameTs.clockRate;
  int64_t wc = -2;
  if (sc >= 0 && rate != 0) {
    const unsigned __int128 fraction =
        rate == kNanosPerSecond
            ? nanos
            : (500000000u + static_cast<unsigned __int128>(rate) * nanos) / kNanosPerSecond;
    const unsigned __int128 value = static_cast<unsigned __int128>(seconds) * rate + fraction;
    if (value <= static_cast<unsigned __int128>(INT64_MAX)) wc = static_cast<int64_t>(value);
  }
  _clockSync->sc = media::timestamp_t(sc, _frameTs.clockRate);
  _clockSync->wc = media::timestamp_t(wc, _frameTs.clockRate);
  _clockSync->offset = _packet.offset;
  return 0;
}

int vrx_track_t::ReadPartitionHeader(DataSource* source, long offset, const unsigned char* memory,
                                     long size) {
  if (memory != nullptr) {
    LOGE << "<-# vrx_track_t::ReadPartitionHeader FAILED! fragmented partition header at offset "
         << _packet.offset;
    return VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT);
  }
  _header = partition_header_record_t();
  _header.packetOffset = _packet.offset;
  _header.packetSize = _packet.packetSize;
  _header.payloadOffset = offset;
  if (size < 8) {
    LOGE << "<-# vrx_track_t::ReadPartitionHeader FAILED! Could not read partition header at "
            "cursor=" << offset << " available=" << size;
    return VREX_ERROR(ERR_MEDIAFORMATS_SEEK_FAILED);
  }
  if (size < static_cast<long>(kPartitionHeaderFixedPayload)) {
    LOGE << "<-# vrx_track_t::ReadPartitionHeader FAILED! Could not read partition header at "
            "cursor=" << offset + 8 << " available=" << size - 8;
    return VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT);
  }
  unsigned char fixed[kPartitionHeaderFixedPayload];
  VREX_CHECK(FetchPayload(source, offset, nullptr, sizeof(fixed), fixed));
  _header.contentsLength = static_cast<long>(LoadBE64(fixed));
  memcpy(_header.fixedMetadata, fixed + 8, kFixedMetadataSize);
  _header.dynamicOffset = offset + kPartitionHeaderFixedPayload;
  _header.dynamicSize = size - kPartitionHeaderFixedPayload;
  return 0;
}

int vrx_track_t::ReadSnapshotMeta(DataSource* source, long offset, const unsigned char* memory,
                                  long size) {
  unsigned char payload[kSnapshotMetaPayloadSize] = {0};
  if (size >= static_cast<long>(sizeof(payload))) {
    VREX_CHECK(FetchPayload(source, offset, memory, sizeof(payload), payload));
  }
  const uint16_t type = LoadBE16(payload);
  const uint16_t length = LoadBE16(payload + 2);
  if (type != 1 || length != 8) {
    LOGW << "<-# vrx_track_t::ReadSnapshotMeta Type or Len mismatch in snapshot meta type="
         << type << " len=" << length;
    return 0;
  }
  if (_observer != nullptr &&
      _observer->SignalPayloadSnapshotMeta(_packet.Tid(), _frameTs, LoadBE64(payload + 4))) {
    return VREX_ERROR(ERR_MEDIAFORMATS_READER_OBSERVER_FAILED);
  }
  return 0;
}

}  // namespace internal
}  // namespace mediaformats
}  // namespace vrex
