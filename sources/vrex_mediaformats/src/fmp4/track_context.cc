// TrackContext: trun entries and the traf head of one track of the fragmented writer.
#include "fmp4/track_context.h"

#include "abstraction/logging.h"

namespace vrex {
namespace mediaformats {
namespace internal {

namespace {

constexpr uint32_t kTfhdVideoFlags = 0x020008;  // default-base-is-moof, default duration
constexpr uint32_t kTfhdAudioFlags = 0x020028;  // and default flags
constexpr uint32_t kAudioDefaultFlags = 0x02000000;
constexpr uint32_t kKeySampleFlags = 0x02600000;
constexpr uint32_t kOtherSampleFlags = 0x00010000;
constexpr uint32_t kTrunHeadSize = 20;

uint64_t ToBigEndian(uint64_t v) {
  uint64_t out = 0;
  for (int i = 0; i < 8; ++i) out = (out << 8) | ((v >> (8 * i)) & 0xff);
  return out;
}

}  // namespace

void TrackContext::Init(uint32_t id, bool isAudio, const MP4TrackInfo& info,
                        const media::timestamp_t& fragmentDuration) {
  _id = id;
  _isAudio = isAudio;
  _hasSampleDurations = info._hasSampleDurations;
  _fragmentEveryKeyFrame = info._fragmentEveryKeyFrame;
  _width = info._width;
  _height = info._height;
  _timescale = info._timescale;
  _defaultSampleDuration = isAudio ? 1024 : info._defaultSampleDuration;
  _trunEntrySize = (isAudio ? 4 : 12) + (_hasSampleDurations ? 4 : 0);
  _codecType = info._codecType;
  _extendedVideoMetadata = info._extendedVideoMetadata;
  _codecBytes.assign(info._pCodecBytes, info._pCodecBytes + info._codecBytesSize);
  if (!isAudio && _fragmentEveryKeyFrame) {
    _fragmentDuration = 0;
  } else {
    _fragmentDuration = _timescale != 0 ? media::rescale(fragmentDuration.value, fragmentDuration.clockRate, _timescale) : -1;
  }
  if (info._baseTimestamp.IsValid()) {
    _baseTimestamp = media::timestamp_t(
        media::rescale(info._baseTimestamp.value, info._baseTimestamp.clockRate, _timescale), _timescale);
  }
  BuildTraf();
}

void TrackContext::BuildTraf() {
  _traf.clear();
  _traf.BeginBox("traf");
  size_t tfhd = _traf.BeginFullBox("tfhd", 0, _isAudio ? kTfhdAudioFlags : kTfhdVideoFlags);
  _traf.Put32(_id);
  _traf.Put32(_defaultSampleDuration);
  if (_isAudio) _traf.Put32(kAudioDefaultFlags);
  _traf.EndBox(tfhd);
  size_t tfdt = _traf.BeginFullBox("tfdt", 1, 0);
  _tfdtOffset = static_cast<uint32_t>(_traf.size());
  _traf.Put64(0);
  _traf.EndBox(tfdt);
  _trunOffset = static_cast<uint32_t>(_traf.size());
  uint32_t trunFlags = (_isAudio ? 0x000201 : 0x000E01) | (_hasSampleDurations ? 0x000100 : 0);
  _traf.BeginFullBox("trun", 0, trunFlags);
  _traf.Put32(0);  // sample count
  _traf.Put32(0);  // data offset
}

bool TrackContext::UpdateLastTrunEntry(const media::dts_cts_t& ts) {
  if (_id == 0) {
    LOGE << "<-# TrackContext::UpdateLastTrunEntry FAILED! Track not initialized";
    return false;
  }
  if (!_hasSampleDurations) return true;
  int64_t dts = ts.dts >= 0 && ts.clockRate != 0 ? media::rescale(ts.dts, ts.clockRate, _timescale) : -1;
  uint32_t delta = _defaultSampleDuration;
  if (dts >= 0 && _lastSampleDts >= 0 && dts - _lastSampleDts >= 1) delta = static_cast<uint32_t>(dts - _lastSampleDts);
  _lastSampleDts = dts;
  if (_sampleCount > 0) _trunEntries.Patch32(_trunEntries.size() - _trunEntrySize, delta);
  return true;
}

bool TrackContext::AddTrunEntry(const media::dts_cts_t& ts, uint32_t size, bool keyFrame) {
  if (!UpdateLastTrunEntry(ts)) return false;
  if (_extendedVideoMetadata) {
    int64_t ptsMs = ts.dts >= 0 ? media::rescale(ts.dts + ts.cts, ts.clockRate, 1000) : -1;
    uint64_t p = ptsMs >= 0 ? ToBigEndian(static_cast<uint64_t>(ptsMs)) : ~0ull;
    if (_extendedTimestamps.empty()) {
      _extendedTimestamps = {p, p};
    } else {
      _extendedTimestamps[1] = p;
    }
    if (keyFrame) _extendedTimestamps.push_back(p);
  }
  if (_hasSampleDurations) _trunEntries.Put32(_defaultSampleDuration);
  _trunEntries.Put32(size);
  if (!_isAudio) {
    _trunEntries.Put32(keyFrame ? kKeySampleFlags : kOtherSampleFlags);
    _trunEntries.Put32(ts.dts >= 0 ? ts.cts : 0);
  }
  ++_sampleCount;
  return true;
}

void TrackContext::ComputeSize() {
  if (!InFragment()) {
    _trunSize = _trafSize = 0;
    return;
  }
  _trunSize = _sampleCount * _trunEntrySize + kTrunHeadSize;
  _trafSize = _trunSize + _trunOffset;
}

void TrackContext::PatchTraf(uint64_t baseTime, uint32_t dataOffset) {
  _traf.Patch32(0, _trafSize);
  _traf.Patch64(_tfdtOffset, baseTime);
  _traf.Patch32(_trunOffset, _trunSize);
  _traf.Patch32(_trunOffset + 12, _sampleCount);
  _traf.Patch32(_trunOffset + 16, dataOffset);
}

media::timestamp_t TrackContext::GetLastTimestamp() const {
  if (_hasSampleDurations) return media::timestamp_t(_lastSampleDts + _defaultSampleDuration, _timescale);
  return media::timestamp_t(_firstDtsCts.dts + int64_t(_sampleCount) * _defaultSampleDuration, _timescale);
}

int64_t TrackContext::FirstPtsMs() const {
  if (_firstDtsCts.dts < 0) return -1;
  return media::rescale(_firstDtsCts.dts + _firstDtsCts.cts, _timescale, 1000);
}

int64_t TrackContext::EndMs() const {
  if (_firstDtsCts.dts < 0) return -1;
  return media::rescale(_firstDtsCts.dts + _firstDtsCts.cts + int64_t(_sampleCount) * _defaultSampleDuration,
                        _timescale, 1000);
}

void TrackContext::Reset() {
  _sampleCount = 0;
  _firstDtsCts = media::dts_cts_t();
  _trunEntries.clear();
  _data.clear();
  _extendedTimestamps.clear();
}

}  // namespace internal
}  // namespace mediaformats
}  // namespace vrex
