// Mp4Document: samples go to the observer at once; only the tables wait for Flush.
#include "mp4/mp4_document.h"

#include <cstring>

#include "abstraction/logging.h"
#include "media/aac/adts.h"
#include "media/codec_tags.h"
#include "mediaformats/errors.h"
#include "mp4/picture_units.h"

namespace vrex {
namespace mediaformats {
namespace internal {

Mp4Document::Mp4Document(const std::string& name, const MP4TrackInfo* audio,
                         const MP4TrackInfo* video, WriterMP4::Observer* observer)
    : _name(name), _audioInfo(audio), _videoInfo(video), _pObserver(observer) {}

int Mp4Document::Init(unsigned long mdatSize) {
  int err = 0;
  if (_audioInfo != nullptr && !(_audio = trak_t::Create(*_audioInfo, err))) return err;
  if (_videoInfo != nullptr && !(_video = trak_t::Create(*_videoInfo, err))) return err;
  _nextTrackId = 1 + (_audio ? 1 : 0) + (_video ? 1 : 0);

  _mdatSize = mdatSize;
  size_t ftyp = _raw.BeginBox("ftyp");
  _raw.PutFourcc("mp42");
  _raw.Put32(1);
  for (const char* brand : {"mp41", "mp42", "isom", "av01"}) _raw.PutFourcc(brand);
  _raw.EndBox(ftyp);
  _raw.Put32(1);  // the 64-bit size follows the type
  _raw.PutFourcc("mdat");
  _raw.Put64(mdatSize);

  if (!_pObserver->SeekIntoMP4Data(0, 0)) {
    LOGE << "<-# Mp4Document::Init " << _name << " FAILED! _pObserver->SeekIntoMP4Data() failed";
    return VREX_ERROR(ERR_MEDIAFORMATS_DATA_SOURCE_IO);
  }
  if (!_pObserver->WriteMP4Data(_raw.data(), _raw.size())) {
    LOGE << "<-# Mp4Document::Init " << _name
         << " FAILED! _pObserver->WriteMP4Data() while writing FTYPE and MDAT header";
    return VREX_ERROR(ERR_MEDIAFORMATS_DATA_SOURCE_IO);
  }
  _writeOffset = _raw.size();
  _raw.clear();
  return 0;
}

int Mp4Document::WriteVideoData(const void* data, size_t size, const media::dts_cts_t& dtsCts,
                                bool keyFrame, uint64_t tag) {
  const unsigned char* bytes = static_cast<const unsigned char*>(data);
  int err = KeepPictureUnits(bytes, size, tag, _kept);
  if (err < 0) {
    LOGE << "<-# Mp4Document::WriteVideoData " << _name
         << " FAILED! Unsupported video codec type " << media::tagToString(tag);
    return err;
  }
  if (_kept.empty()) {
    LOGD << "<-# Mp4Document::WriteVideoData " << _name << " No frame units in the "
         << media::tagToString(tag) << " video frame dtsCts=" << dtsCts.Dts().Millis()
         << " size=" << size << ". Skipping the frame.";
    return 0;
  }
  return WriteSample(_video.get(), _kept.data(), _kept.size(), dtsCts, keyFrame, "video");
}

int Mp4Document::WriteAudioData(const void* data, size_t size, const media::dts_cts_t& dtsCts,
                                uint64_t tag) {
  if (tag != media::TAG_AAAC) {
    LOGE << "<-# Mp4Document::WriteAudioData " << _name
         << " FAILED! Unsupported audio codec type " << media::tagToString(tag);
    return VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_PARAMETERS);
  }
  int err = 0;
  unsigned long rawSize = size;
  const unsigned char* raw = StripAdts(static_cast<const unsigned char*>(data), rawSize, err);
  if (raw == nullptr) {
    LOGE << "<-# Mp4Document::WriteAudioData " << _name << " FAILED! StripAdts() failed err=" << err;
    return err;
  }
  return WriteSample(_audio.get(), raw, rawSize, dtsCts, true, "audio");
}

int Mp4Document::WriteSample(trak_t* trak, const unsigned char* data, size_t size,
                             const media::dts_cts_t& dtsCts, bool keyFrame, const char* what) {
  if (!_pObserver->WriteMP4Data(data, size)) {
    LOGE << "<-# Mp4Document::WriteSample " << _name
         << " FAILED! _pObserver->WriteMP4Data() failed while writing " << what << " frame";
    return VREX_ERROR(ERR_MEDIAFORMATS_DATA_SOURCE_IO);
  }
  int err = SaveSample(trak, dtsCts, static_cast<uint32_t>(size), keyFrame);
  if (err < 0) {
    LOGE << "<-# Mp4Document::WriteSample " << _name << " FAILED! _moov.SaveSample() of " << what
         << " failed err=" << err;
    return err;
  }
  _writeOffset += size;
  return 0;
}

int Mp4Document::SaveSample(trak_t* trak, const media::dts_cts_t& dtsCts, uint32_t size,
                            bool keyFrame) {
  trak->SaveSample(dtsCts, size, keyFrame);
  if (_chunk.trackId == trak->trackId()) {
    ++_chunk.sampleCount;
    return 0;
  }
  int err = PushChunk();
  if (err < 0) return err;
  _chunk.trackId = trak->trackId();
  _chunk.offset = _writeOffset;
  _chunk.sampleCount = 1;
  return 0;
}

int Mp4Document::PushChunk() {
  if (_chunk.trackId == 0) return 0;
  trak_t* owner = nullptr;
  if (_audio && _audio->trackId() == _chunk.trackId) owner = _audio.get();
  if (_video && _video->trackId() == _chunk.trackId) owner = _video.get();
  if (owner == nullptr) return VREX_ERROR(ERR_MEDIAFORMATS_INVALID_TRACK_INFO);
  owner->PushChunk(_chunk.offset, _chunk.sampleCount);
  _chunk = mp4_chunk_t();
  return 0;
}

int Mp4Document::Flush() {
  int err = PushChunk();
  if (err < 0) {
    LOGE << "<-# Mp4Document::Flush " << _name << " FAILED! _moov.PushChunk() failed err=" << err;
    return err;
  }
  uint64_t actual = _writeOffset - kMdatStart;
  if (_mdatSize != 0 && _mdatSize != actual) {
    LOGE << "<-# Mp4Document::Flush " << _name << " FAILED! _mdatSize " << _mdatSize
         << " is not equal to MDAT actual size " << actual;
    return VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_PARAMETERS);
  }
  if (_mdatSize == 0) {
    unsigned char sizeBytes[8];
    for (int i = 0; i < 8; ++i) sizeBytes[i] = static_cast<unsigned char>(actual >> (56 - 8 * i));
    if (!_pObserver->SeekIntoMP4Data(kMdatSizeOffset, 0) ||
        !_pObserver->WriteMP4Data(sizeBytes, sizeof(sizeBytes)) ||
        !_pObserver->SeekIntoMP4Data(static_cast<long>(_writeOffset), 0)) {
      LOGE << "<-# Mp4Document::Flush " << _name
           << " FAILED! _pObserver->WriteMP4Data() failed while writing MDAT size";
      return VREX_ERROR(ERR_MEDIAFORMATS_DATA_SOURCE_IO);
    }
    // Known now: a second writing of the same frames can announce it and go without seeking.
    _mdatSize = actual;
  }
  return WriteMoov();
}

int Mp4Document::WriteMoov() {
  int64_t longest = -1;
  for (trak_t* trak : {_audio.get(), _video.get()}) {
    if (trak == nullptr) continue;
    trak->ComputeDurations();
    if (trak->tkhdDuration() > longest) longest = trak->tkhdDuration();
  }
  const MP4TrackInfo* any = _audioInfo != nullptr ? _audioInfo : _videoInfo;
  uint64_t creation = any->_creationTime & 0xffffffffu;

  size_t moov = _raw.BeginBox("moov");
  size_t mvhd = _raw.BeginFullBox("mvhd", 1, 0);
  _raw.Put64(creation);
  _raw.Put64(creation);
  _raw.Put32(1000);
  _raw.Put64(static_cast<uint64_t>(longest));
  _raw.Put32(0x00010000);  // rate 1.0
  _raw.Put16(0x0100);      // volume 1.0
  _raw.PutZeros(2 + 8);
  PutUnityMatrix(_raw);
  _raw.PutZeros(24);
  _raw.Put32(_nextTrackId);
  _raw.EndBox(mvhd);
  if (_audio) _audio->Write(_raw);
  if (_video) _video->Write(_raw);
  _raw.EndBox(moov);

  bool written = _pObserver->WriteMP4Data(_raw.data(), _raw.size());
  _raw.clear();
  if (!written) {
    LOGE << "<-# Mp4Document::Flush " << _name
         << " FAILED! _pObserver->WriteMP4Data() failed while writing MOOV";
    return VREX_ERROR(ERR_MEDIAFORMATS_DATA_SOURCE_IO);
  }
  LOGI << "<-# Mp4Document::Flush " << _name << " SUCCESS!";
  return 0;
}

}  // namespace internal
}  // namespace mediaformats
}  // namespace vrex
