// ReaderMp4Impl: the top-level boxes of an MP4 file, its moov in memory, and a cursor over the
// moov's frame list.
#include <memory>

#include "abstraction/logging.h"
#include "mediaformats/errors.h"
#include "mediaformats/mp4/reader_mp4.h"
#include "mp4box/mp4box.h"

namespace vrex {
namespace mediaformats {
namespace internal {

class ReaderMp4Impl : public ReaderMp4 {
 public:
  explicit ReaderMp4Impl(Observer* observer) : _pObserver(observer) {}
  ~ReaderMp4Impl() override {
    _moov.reset();  // its frames point at the source
    abstraction::DataSource::FreeInstance(_pSource);
  }

  // Takes ownership of `source`.
  int Initialize(abstraction::DataSource* source) {
    _pSource = source;
    while (_pSource->Available() >= 8) {
      int err = 0;
      std::unique_ptr<mp4box::box_t> box = mp4box::box_t::ReadBox(_pSource, err);
      if (!box) return err;
      if (box->type == mp4box::Fourcc("mdat") || box->type == mp4box::Fourcc("moov")) {
        bool isMoov = box->type == mp4box::Fourcc("moov");
        if (isMoov ? _moov != nullptr : _mdat != nullptr) {
          LOGE << "<-# ReaderMp4Impl::Initialize FAILED! a second " << mp4box::type2str(box->type)
               << " at " << box->start;
          return VREX_ERROR(ERR_MEDIAFORMATS_INTERNAL_STATE);
        }
        if (isMoov) {
          _moov.reset(static_cast<mp4box::moov_t*>(box.release()));
        } else {
          _mdat = std::move(box);
        }
      } else if (box->type != mp4box::Fourcc("free") && box->type != mp4box::Fourcc("skip") &&
                 box->type != mp4box::Fourcc("ftyp")) {
        LOGW << " ReaderMp4Impl::Initialize dropped box " << mp4box::type2str(box->type) << " at "
             << box->start;
      }
    }
    if (!_moov || !_mdat) {
      LOGE << "<-# ReaderMp4Impl::Initialize FAILED! moov or mdat missing";
      return VREX_ERROR(ERR_MEDIAFORMATS_INTERNAL_STATE);
    }
    if (!_moov->frames.empty()) {
      _start = _moov->frames.front().dtsCts;
      _end = _moov->frames.back().dtsCts;
    }
    return 0;
  }

  media::dts_cts_t GetStartTimestamp() const override { return _start; }
  media::dts_cts_t GetEndTimestamp() const override { return _end; }

  media::frame_t* ReadFrame(int& error) override {
    error = 0;
    if (!_moov || _next >= _moov->frames.size()) return nullptr;
    return &_moov->frames[_next++];
  }

  std::pair<long, int> SeekToWallClock(long, snap_to_idr_t) override {
    _next = 0;
    return {-1, 0};
  }

  int SeekToRawOffset(long) override { return VREX_ERROR(ERR_MEDIAFORMATS_NOT_IMPLEMENTED); }
  const partition_t* ReadPartition(PartitionLastTimestampType, int& err) override {
    err = VREX_ERROR(ERR_MEDIAFORMATS_NOT_IMPLEMENTED);
    return nullptr;
  }
  int ListFragments(long, long, std::vector<fragment_t>&) override {
    return VREX_ERROR(ERR_MEDIAFORMATS_NOT_IMPLEMENTED);
  }
  int GetStartStopTimestamp(long&, long&) override { return VREX_ERROR(ERR_MEDIAFORMATS_NOT_IMPLEMENTED); }

 private:
  [[maybe_unused]] Observer* _pObserver;  // kept for the reader's life; nothing reports to it yet
  abstraction::DataSource* _pSource = nullptr;
  media::dts_cts_t _start;
  media::dts_cts_t _end;
  std::unique_ptr<mp4box::moov_t> _moov;
  std::unique_ptr<mp4box::box_t> _mdat;
  size_t _next = 0;
};

}  // namespace internal

ReaderMp4* ReaderMp4::Create(Observer* observer, abstraction::DataSource* source, int& error) {
  if (observer == nullptr) {
    abstraction::DataSource::FreeInstance(source);
    error = VREX_ERROR(ERR_MEDIAFORMATS_NULL_OBSERVER);
    return nullptr;
  }
  std::unique_ptr<internal::ReaderMp4Impl> reader(new internal::ReaderMp4Impl(observer));
  error = reader->Initialize(source);
  return error < 0 ? nullptr : reader.release();
}

ReaderMp4* ReaderMp4::Create(Observer* observer, const std::string& path, bool flag, int& error) {
  if (observer == nullptr) {
    error = VREX_ERROR(ERR_MEDIAFORMATS_NULL_OBSERVER);
    return nullptr;
  }
  abstraction::DataSource* source = abstraction::DataSource::GetInstance(path.c_str(), flag, error);
  if (source == nullptr) {
    LOGE << "<-# ReaderMp4::Create FAILED! cannot open " << path << " err=" << error;
    return nullptr;
  }
  return Create(observer, source, error);
}

ReaderMp4* ReaderMp4::Create(Observer* observer, int& error) {
  if (observer == nullptr) {
    error = VREX_ERROR(ERR_MEDIAFORMATS_NULL_OBSERVER);
    return nullptr;
  }
  error = 0;
  return new internal::ReaderMp4Impl(observer);
}

}  // namespace mediaformats
}  // namespace vrex
