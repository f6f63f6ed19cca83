// WriterFMP4Impl: fragmenting decisions, the fragment layout and its hand-over to the observer.
#include "fmp4/writer_fmp4_impl.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "abstraction/logging.h"
#include "fmp4/init_segment.h"
#include "media/aac/adts.h"
#include "media/av1/av1.h"
#include "media/codec_tags.h"
#include "mediaformats/errors.h"

namespace vrex {
namespace mediaformats {

const char* FMP4ProgressiveBufferTypeToString(FMP4ProgressiveBufferType type) {
  switch (type) {
    case FMP4_PROGRESSIVE_BEGIN: return "BEGIN";
    case FMP4_PROGRESSIVE_MOOV: return "MOOV";
    case FMP4_PROGRESSIVE_MOOF: return "MOOF";
    case FMP4_PROGRESSIVE_VIDEO_BUFFER: return "VIDEO_BUFFER";
    case FMP4_PROGRESSIVE_AUDIO_BUFFER: return "AUDIO_BUFFER";
    case FMP4_PROGRESSIVE_HEADER_MDAT: return "HEADER_MDAT";
    case FMP4_PROGRESSIVE_END: return "END";
    default: break;
  }
  static char text[5];
  snprintf(text, sizeof(text), "0x%02x", static_cast<unsigned>(type));
  return text;
}

namespace internal {

namespace {

// `fed` in `rate`, -1 when it has no time.
int64_t RescaleDts(int64_t dts, uint32_t fromRate, uint32_t toRate) {
  return dts >= 0 && fromRate != 0 ? media::rescale(dts, fromRate, toRate) : -1;
}

}  // namespace

WriterFMP4Impl::WriterFMP4Impl(const std::string& name, Observer* observer)
    : _name(name), _pObserver(observer), _creationTime(static_cast<uint64_t>(time(nullptr))) {}

int WriterFMP4Impl::Initialize(const MP4TrackInfo* audio, const MP4TrackInfo* video, bool progressive,
                               const media::timestamp_t& fragmentDuration, bool fragmentOnKf,
                               bool wallClockTimestamps) {
  if (_pObserver == nullptr) return VREX_ERROR(ERR_MEDIAFORMATS_NULL_OBSERVER);
  _progressive = progressive;
  _wallClockTimestamps = wallClockTimestamps;
  _trace = getenv("ADDON_WRITER_FMP4_TRACE") != nullptr;
  if (audio == nullptr && video == nullptr) {
    LOGE << "<-# WriterFMP4Impl::Initialize " << _name << " FAILED! No audio, no video";
    return VREX_ERROR(ERR_MEDIAFORMATS_INVALID_TRACK_INFO);
  }
  if (video != nullptr) {
    const char* problem = nullptr;
    if (video->_codecType == media::TAG_UNK) problem = "Video codec type is unknown";
    else if (video->_pCodecBytes == nullptr) problem = "pVideo->_pCodecBytes is null";
    else if (video->_defaultSampleDuration == 0) problem = "_defaultSampleDuration <= 0";
    if (problem != nullptr) {
      LOGE << "<-# WriterFMP4Impl::Initialize " << _name << " FAILED! " << problem;
      return VREX_ERROR(ERR_MEDIAFORMATS_INVALID_TRACK_INFO);
    }
    _video.Init(1, false, *video, fragmentDuration);
    _fragmentOnKf = video->_fragmentEveryKeyFrame || fragmentOnKf;
    _codecs = video->_rfc6381Codec;
  }
  if (audio != nullptr) {
    if (audio->_pCodecBytes == nullptr || audio->_codecBytesSize < 2) {
      LOGE << "<-# WriterFMP4Impl::Initialize " << _name << " FAILED! audio configuration missing";
      return VREX_ERROR(ERR_MEDIAFORMATS_INVALID_TRACK_INFO);
    }
    MP4TrackInfo two = *audio;
    two._codecBytesSize = 2;
    _audio.Init(video != nullptr ? 2 : 1, true, two, fragmentDuration);
    _codecs += (_codecs.empty() ? "" : ",") + audio->_rfc6381Codec;
  }
  return 0;
}

bool WriterFMP4Impl::CodecChanged(uint64_t trackTag, uint64_t frameTag, uint64_t unknownOfKind) const {
  auto unknown = [&](uint64_t tag) { return tag == media::TAG_UNK || tag == unknownOfKind; };
  return trackTag != frameTag && !unknown(trackTag) && !unknown(frameTag);
}

int WriterFMP4Impl::WriteVideoData(const void* data, size_t size, const media::dts_cts_t& dtsCts,
                                   bool keyFrame) {
  return WriteVideoData(data, size, dtsCts, keyFrame, media::TAG_VH264);
}

int WriterFMP4Impl::WriteVideoData(const void* data, size_t size, const media::dts_cts_t& dtsCts,
                                   bool keyFrame, unsigned long tag) {
  if (!_video.exists()) {
    LOGE << "<-# WriterFMP4Impl::WriteVideoData " << _name
         << " FAILED! Received video frame while no video track _video._id == 0";
    return 0;
  }
  if (CodecChanged(_video._codecType, tag, media::TAG_VUNK)) {
    LOGE << "<-# WriterFMP4Impl::WriteVideoData " << _name << " FAILED! Received video frame of type "
         << media::tagToString(tag) << " but video track is of type " << media::tagToString(_video._codecType);
    return VREX_ERROR(ERR_MEDIAFORMATS_WRITER_CODEC_CHANGED);
  }
  if (tag == media::TAG_VAV1) {
    if (!ms::media::av1::StripAV1(static_cast<const uint8_t*>(data), size, _strippedAv1) || _strippedAv1.empty()) {
      LOGE << "<-# WriterFMP4Impl::WriteVideoData " << _name << " FAILED! StripAV1() failed";
      return VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_PARAMETERS);
    }
    data = _strippedAv1.data();
    size = _strippedAv1.size();
  }
  if (_fragmentOnKf && !_segmentOpen && !keyFrame) return 0;
  if (!WriteData(_video, data, size, dtsCts, keyFrame)) return VREX_ERROR(ERR_MEDIAFORMATS_FMP4_WRITER_STATE);
  return 0;
}

int WriterFMP4Impl::WriteAudioData(const void* data, size_t size, const media::dts_cts_t& dtsCts) {
  return WriteAudioData(data, size, dtsCts, media::TAG_AAAC);
}

int WriterFMP4Impl::WriteAudioData(const void* data, size_t size, const media::dts_cts_t& dtsCts,
                                   unsigned long tag) {
  if (!_audio.exists()) return 0;
  if (CodecChanged(_audio._codecType, tag, media::TAG_AUNK)) {
    LOGE << "<-# WriterFMP4Impl::WriteAudioData " << _name << " FAILED! Received audio frame of type "
         << media::tagToString(tag) << " but audio track is of type " << media::tagToString(_audio._codecType);
    return VREX_ERROR(ERR_MEDIAFORMATS_WRITER_CODEC_CHANGED);
  }
  int err = 0;
  unsigned long rawSize = size;
  const unsigned char* raw = StripAdts(static_cast<const unsigned char*>(data), rawSize, err);
  if (raw == nullptr) return err;
  if (_video.exists() && !_segmentOpen) {
    std::unique_ptr<BufferedAudio> held(new BufferedAudio{std::vector<uint8_t>(raw, raw + rawSize), dtsCts});
    _bufferedAudio.push_back(std::move(held));
    return 0;
  }
  while (!_bufferedAudio.empty()) {
    const BufferedAudio& held = *_bufferedAudio.front();
    if (!WriteData(_audio, held._data.data(), held._data.size(), held.dtsCts, true)) {
      return VREX_ERROR(ERR_MEDIAFORMATS_FMP4_WRITER_STATE);
    }
    _bufferedAudio.pop_front();
  }
  if (!WriteData(_audio, raw, rawSize, dtsCts, true)) return VREX_ERROR(ERR_MEDIAFORMATS_FMP4_WRITER_STATE);
  return 0;
}

int WriterFMP4Impl::WriteClockSync(const media::clock_sync_t& clockSync) {
  _latestClockSync = clockSync;
  if (!_clockSync.IsValid()) _clockSync = clockSync;
  return 0;
}

int WriterFMP4Impl::Flush(media::timestamp_t* audioLast, media::timestamp_t* videoLast) {
  return CloseFragment(_maxPts, audioLast, videoLast) ? 0 : VREX_ERROR(ERR_MEDIAFORMATS_FMP4_WRITER_STATE);
}

bool WriterFMP4Impl::WriteData(TrackContext& track, const void* data, size_t size,
                               const media::dts_cts_t& dtsCts, bool keyFrame) {
  if (!track.exists()) return true;
  media::dts_cts_t ts(RescaleDts(dtsCts.dts, dtsCts.clockRate, track._timescale), track._timescale,
                      static_cast<uint32_t>(RescaleDts(dtsCts.cts, dtsCts.clockRate, track._timescale)));
  int64_t fed = ts.dts;
  if (track._baseTimestamp.IsValid() && ts.dts >= 0) {
    if (track._firstTimestamp.value < 0) track._firstTimestamp = media::timestamp_t(ts.dts, track._timescale);
    ts.dts = ts.dts - track._firstTimestamp.value + track._baseTimestamp.value;
  }
  if (ts.dts >= 0 && RescaleDts(ts.dts + ts.cts, ts.clockRate, _maxPts.clockRate) > _maxPts.dts + int64_t(_maxPts.cts)) {
    _maxPts = ts;
  }
  if (!_segmentOpen) {
    _firstDtsCts = ts;
    if (!OpenSegment()) {
      LOGE << "<-# WriterFMP4Impl::WriteData " << _name << " FAILED! Unable to open segment";
      return false;
    }
  }
  bool mustFragment = MustFragment(track, ts, fed, keyFrame);
  bool backward = track._lastDts > fed;
  if (backward) _audio._lastDts = _video._lastDts = -1;
  track._lastDts = fed;
  if (mustFragment) {
    media::dts_cts_t end = ts;
    if (_fragmentOnKf && _lastVideoDtsCts.dts >= 0) end = _lastVideoDtsCts;
    if (!NewFragment(end)) {
      LOGE << "<-# WriterFMP4Impl::WriteData " << _name << " FAILED! Unable to create a new fragment";
      return false;
    }
    if (backward) _clockSync = _latestClockSync;
    if (_fragmentOnKf && _video.exists() && !(&track == &_video && keyFrame)) return true;
  }
  if (&track == &_video) _lastVideoDtsCts = ts;
  if (track._sampleCount == 0) track._firstDtsCts = ts;
  if (_progressive) {
    FMP4ProgressiveBufferType type = track._isAudio ? FMP4_PROGRESSIVE_AUDIO_BUFFER : FMP4_PROGRESSIVE_VIDEO_BUFFER;
    if (!_pObserver->SignalWriteProgressiveBuffer(type, data, size)) {
      LOGE << "<-# WriterFMP4Impl::WriteData " << _name << " FAILED! Unable to write progressive buffer";
      return false;
    }
    (track._isAudio ? _audioBytes : _videoBytes) += size;
  } else {
    track._data.PutBytes(data, size);
  }
  return track.AddTrunEntry(ts, static_cast<uint32_t>(size), keyFrame);
}

bool WriterFMP4Impl::MustFragment(const TrackContext& track, const media::dts_cts_t& ts, int64_t fedDts,
                                  bool keyFrame) const {
  for (const TrackContext* t : {&_audio, &_video}) {
    if (t->exists() && t->_sampleCount == 0) return false;
  }
  if (track._lastDts > fedDts) return true;
  bool isVideo = &track == &_video;
  if (_fragmentOnKf) {
    if (!isVideo || !keyFrame) return false;
    if (track._fragmentDuration == 0) return true;
  } else if (!isVideo && _video.exists()) {
    return false;  // video alone decides
  }
  return track._fragmentDuration <= ts.dts - track._firstDtsCts.dts;
}

bool WriterFMP4Impl::OpenSegment() {
  _init.clear();
  if (!BuildInitSegment(_creationTime, _video, _audio, _init, _mvhdDurationOffset)) {
    LOGE << "<-# WriterFMP4Impl::OpenSegment " << _name << " FAILED! Unable to build MOOV/FTYP";
    return false;
  }
  bool sent;
  if (_progressive) {
    sent = (_codecs.empty() || _pObserver->SignalWriteProgressiveBuffer(FMP4_PROGRESSIVE_CODECS, _codecs.data(), _codecs.size())) &&
           _pObserver->SignalWriteProgressiveBuffer(FMP4_PROGRESSIVE_MOOV, _init.data(), _init.size());
  } else {
    sent = _pObserver->SignalBeginWriteMOOV() &&
           _pObserver->SignalWriteBuffer(FMP4_WRITE_STATE_INIT, _init.data(), _init.size()) &&
           _pObserver->SignalEndWriteMOOV(_mvhdDurationOffset, false);
  }
  if (!sent) return false;
  _segmentOpen = true;
  return OpenFragment();
}

bool WriterFMP4Impl::OpenFragment() {
  ++_fragmentSequence;
  _maxPts = media::dts_cts_t(0, 1000, 0);
  if (_moof.size() == 0) {
    _moof.BeginBox("moof");  // its size is patched at each close
    size_t mfhd = _moof.BeginFullBox("mfhd", 0, 0);
    _mfhdSequenceOffset = static_cast<uint32_t>(_moof.size());
    _moof.Put32(0);
    _moof.EndBox(mfhd);
  }
  _fragmentOpen = true;
  return !_progressive || _pObserver->SignalWriteProgressiveBuffer(FMP4_PROGRESSIVE_BEGIN, nullptr, 0);
}

bool WriterFMP4Impl::NewFragment(const media::dts_cts_t& end) {
  return CloseFragment(end, nullptr, nullptr) && OpenFragment();
}

bool WriterFMP4Impl::CloseFragment(const media::dts_cts_t& end, media::timestamp_t* audioLast,
                                   media::timestamp_t* videoLast) {
  if (!_fragmentOpen) {
    LOGW << " WriterFMP4Impl::CloseFragment " << _name << " No fragment opened first";
    return true;
  }
  _moof.Patch32(_mfhdSequenceOffset, _fragmentSequence);
  _audio.ComputeSize();
  _video.ComputeSize();
  uint32_t moofSize = static_cast<uint32_t>(_moof.size()) + _audio._trafSize + _video._trafSize;
  _moof.Patch32(0, moofSize);
  uint64_t mdatSize = (_progressive ? _videoBytes + _audioBytes : _video._data.size() + _audio._data.size()) + 8;
  for (int i = 0; i < 4; ++i) _mdatHeader[i] = static_cast<uint8_t>(mdatSize >> (24 - 8 * i));
  if (!CloseFragmentTrack(_video, end, moofSize) || !CloseFragmentTrack(_audio, end, moofSize)) {
    LOGE << "<-# WriterFMP4Impl::CloseFragment " << _name << " FAILED! Unable to close tracks";
    return false;
  }
  _fragmentOpen = false;
  if (_trace) {
    LOGD << " WriterFMP4Impl::CloseFragment " << _name << " sequence=" << _fragmentSequence << " moof=" << moofSize
         << " mdat=" << mdatSize << " video samples=" << _video._sampleCount << " audio samples=" << _audio._sampleCount;
  }
  if (!SendFragment()) return false;
  if (audioLast != nullptr && _audio.exists()) *audioLast = _audio.GetLastTimestamp();
  if (videoLast != nullptr && _video.exists()) *videoLast = _video.GetLastTimestamp();
  _audio.Reset();
  _video.Reset();
  return true;
}

bool WriterFMP4Impl::CloseFragmentTrack(TrackContext& track, const media::dts_cts_t& end, uint32_t moofSize) {
  if (!track.exists()) return true;
  // A range that ends on a key frame leaves a last fragment with video alone: that fragment
  // goes out without the empty track's traf. A fragment with no sample at all cannot.
  if (track._sampleCount == 0) {
    if (_audio.InFragment() || _video.InFragment()) return true;
    LOGE << "<-# WriterFMP4Impl::CloseFragmentTrack " << _name << " FAILED! Fragment is empty for "
         << (track._isAudio ? "audio" : "video") << " track";
    return false;
  }
  if (!track.UpdateLastTrunEntry(end)) return false;
  const media::dts_cts_t& first = track._firstDtsCts;
  uint64_t baseTime = ~0ull;
  if (first.dts >= 0) {
    baseTime = static_cast<uint64_t>(first.dts + first.cts);
    if (_wallClockTimestamps && _clockSync.IsValid() && !track._baseTimestamp.IsValid()) {
      baseTime = static_cast<uint64_t>(_clockSync.ComputeWallClock(first.dts + first.cts, track._timescale, track._timescale));
    }
  }
  uint32_t dataOffset = moofSize + 8;
  if (track._isAudio) dataOffset += static_cast<uint32_t>(_progressive ? _videoBytes : _video._data.size());
  track.PatchTraf(baseTime, dataOffset);
  return true;
}

bool WriterFMP4Impl::SendFragment() {
  int64_t startMs = -1, endMs = -1;
  for (const TrackContext* t : {&_video, &_audio}) {
    if (!t->InFragment()) continue;
    if (startMs < 0 || (t->FirstPtsMs() >= 0 && t->FirstPtsMs() < startMs)) startMs = t->FirstPtsMs();
    if (t->EndMs() > endMs) endMs = t->EndMs();
  }
  bool sent;
  if (_progressive) {
    sent = _pObserver->SignalWriteProgressiveBuffer(FMP4_PROGRESSIVE_MOOF, _moof.data(), _moof.size()) &&
           WriteTrackBuffers(_video) && WriteTrackBuffers(_audio) &&
           _pObserver->SignalWriteProgressiveBuffer(FMP4_PROGRESSIVE_HEADER_MDAT, _mdatHeader, sizeof(_mdatHeader)) &&
           _pObserver->SignalWriteProgressiveBuffer(FMP4_PROGRESSIVE_END, nullptr, 0);
    _videoBytes = _audioBytes = 0;
  } else {
    sent = _pObserver->SignalBeginWriteFragment(startMs) &&
           _pObserver->SignalWriteBuffer(FMP4_WRITE_STATE_FRAGMENT, _moof.data(), _moof.size()) &&
           WriteTrackBuffers(_video) && WriteTrackBuffers(_audio) &&
           _pObserver->SignalWriteBuffer(FMP4_WRITE_STATE_FRAGMENT, _mdatHeader, sizeof(_mdatHeader)) &&
           _pObserver->SignalWriteBuffer(FMP4_WRITE_STATE_FRAGMENT, _video._data.data(), _video._data.size()) &&
           _pObserver->SignalWriteBuffer(FMP4_WRITE_STATE_FRAGMENT, _audio._data.data(), _audio._data.size()) &&
           _pObserver->SignalEndWriteFragment(endMs);
  }
  if (!sent) LOGE << "<-# WriterFMP4Impl::SendFragment " << _name << " FAILED! the observer refused";
  return sent;
}

bool WriterFMP4Impl::WriteTrackBuffers(const TrackContext& track) {
  if (!track.InFragment()) return true;
  if (!_progressive) {
    return _pObserver->SignalWriteBuffer(FMP4_WRITE_STATE_FRAGMENT, track._traf.data(), track._traf.size()) &&
           _pObserver->SignalWriteBuffer(FMP4_WRITE_STATE_FRAGMENT, track._trunEntries.data(), track._trunEntries.size());
  }
  bool sent = _pObserver->SignalWriteProgressiveBuffer(FMP4_PROGRESSIVE_MOOF, track._traf.data(), track._traf.size()) &&
              _pObserver->SignalWriteProgressiveBuffer(FMP4_PROGRESSIVE_MOOF, track._trunEntries.data(), track._trunEntries.size());
  if (sent && !track._extendedTimestamps.empty()) {
    sent = _pObserver->SignalWriteProgressiveBuffer(FMP4_PROGRESSIVE_EXTENDED_METADATA, track._extendedTimestamps.data(),
                                                    track._extendedTimestamps.size() * sizeof(uint64_t));
  }
  return sent;
}

}  // namespace internal

WriterFMP4* WriterFMP4::Create(const std::string& name, const MP4TrackInfo* audio, const MP4TrackInfo* video,
                               bool progressive, const media::timestamp_t& fragmentDuration, bool fragmentOnKf,
                               bool wallClockTimestamps, Observer* observer, int& error) {
  if (fragmentDuration.clockRate == 0 || fragmentDuration.value < 0) {
    error = VREX_ERROR(ERR_MEDIAFORMATS_INVALID_FRAGMENT_DURATION);
    return nullptr;
  }
  std::unique_ptr<internal::WriterFMP4Impl> writer(new internal::WriterFMP4Impl(name, observer));
  error = writer->Initialize(audio, video, progressive, fragmentDuration, fragmentOnKf, wallClockTimestamps);
  if (error < 0) {
    LOGE << "WriterFMP4::Create() FAILED! " << name << " Initialize() error=" << error;
    return nullptr;
  }
  return writer.release();
}

}  // namespace mediaformats
}  // namespace vrex
