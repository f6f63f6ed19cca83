// WriterMp4VrexImpl: the public WriterMP4 over an Mp4Document made at the first frame.
#include <ctime>
#include <memory>

#include "abstraction/logging.h"
#include "media/codec_tags.h"
#include "mediaformats/errors.h"
#include "mediaformats/mp4/writer_mp4.h"
#include "mp4/mp4_document.h"

namespace vrex {
namespace mediaformats {
namespace internal {

namespace {
// Seconds between 1904-01-01 (the MP4 epoch) and 1970-01-01.
constexpr uint64_t kMp4EpochOffset = 2082844800;
}  // namespace

class WriterMp4VrexImpl : public WriterMP4 {
 public:
  WriterMp4VrexImpl(const std::string& name, Observer* observer) : _name(name), _pObserver(observer) {}

  int Initialize(const MP4TrackInfo* audio, const MP4TrackInfo* video) {
    if ((audio == nullptr && video == nullptr) || _pObserver == nullptr) {
      LOGE << "<-# WriterMp4VrexImpl::Initialize " << _name
           << " FAILED! MEDIAFORMATS_ERR_INVALID_TRACK_INFO";
      return VREX_ERROR(ERR_MEDIAFORMATS_INVALID_TRACK_INFO);
    }
    uint64_t now = static_cast<uint64_t>(time(nullptr)) + kMp4EpochOffset;
    uint32_t nextId = 1;
    for (auto pair : {std::make_pair(audio, &_audio), std::make_pair(video, &_video)}) {
      if (pair.first == nullptr) continue;
      *pair.second = *pair.first;
      pair.second->_creationTime = now;
      pair.second->_trackId = nextId++;
    }
    return 0;
  }

  int WriteVideoData(const void* data, size_t size, const media::dts_cts_t& dtsCts,
                     bool keyFrame) override {
    return WriteVideoData(data, size, dtsCts, keyFrame, media::TAG_VH264);
  }

  int WriteVideoData(const void* data, size_t size, const media::dts_cts_t& dtsCts, bool keyFrame,
                     unsigned long tag) override {
    if (_video._creationTime == 0) return static_cast<int>(size);
    int err = InitDocument();
    if (err == 0) err = _pDocument->WriteVideoData(data, size, dtsCts, keyFrame, tag);
    return err < 0 ? err : static_cast<int>(size);
  }

  int WriteAudioData(const void* data, size_t size, const media::dts_cts_t& dtsCts) override {
    return WriteAudioData(data, size, dtsCts, media::TAG_AAAC);
  }

  int WriteAudioData(const void* data, size_t size, const media::dts_cts_t& dtsCts,
                     unsigned long tag) override {
    if (_audio._creationTime == 0) return static_cast<int>(size);
    int err = InitDocument();
    if (err == 0) err = _pDocument->WriteAudioData(data, size, dtsCts, tag);
    return err < 0 ? err : static_cast<int>(size);
  }

  int WriteClockSync(const media::clock_sync_t&) override { return 0; }
  int WriteImageData(const char*, size_t, const media::dts_cts_t&, unsigned long) override { return 0; }
  int WriteSnapshotMeta(const media::dts_cts_t&, unsigned long) override { return 0; }

  int Flush() override { return _pDocument ? _pDocument->Flush() : 0; }

  unsigned long MdatSize() override {
    if (!_pDocument) {
      LOGE << "<-# WriterMp4VrexImpl::MdatSize " << _name << " FAILED! _pDocument == NULL";
      return 0;
    }
    return _pDocument->MdatSize();
  }

  void MdatSize(unsigned long size) override { _pendingMdatSize = size; }

 private:
  int InitDocument() {
    if (_pDocument) return 0;
    const MP4TrackInfo* audio = _audio._creationTime != 0 ? &_audio : nullptr;
    const MP4TrackInfo* video = _video._creationTime != 0 ? &_video : nullptr;
    auto document = std::make_shared<Mp4Document>(_name, audio, video, _pObserver);
    int err = document->Init(_pendingMdatSize);
    if (err < 0) {
      LOGE << "<-# WriterMp4VrexImpl::InitDocument " << _name
           << " FAILED! _pDocument->Init() failed err=" << err;
      return err;
    }
    _pDocument = document;
    return 0;
  }

  std::string _name;
  MP4TrackInfo _audio;
  MP4TrackInfo _video;
  unsigned long _pendingMdatSize = 0;
  Observer* _pObserver;
  std::shared_ptr<Mp4Document> _pDocument;
};

}  // namespace internal

WriterMP4* WriterMP4::Create(const std::string& name, const MP4TrackInfo* audio,
                             const MP4TrackInfo* video, Observer* observer, int& error) {
  std::unique_ptr<internal::WriterMp4VrexImpl> writer(new internal::WriterMp4VrexImpl(name, observer));
  error = writer->Initialize(audio, video);
  return error < 0 ? nullptr : writer.release();
}

}  // namespace mediaformats
}  // namespace vrex
