// WriterRawH264Impl: pass-through or framing conversion of H.264 frames.
#include <memory>

#include "abstraction/logging.h"
#include "media/nalu.h"
#include "mediaformats/errors.h"
#include "mediaformats/raw/writer_raw_h264.h"

namespace vrex {
namespace mediaformats {
namespace internal {

class WriterRawH264Impl : public WriterRawH264 {
 public:
  WriterRawH264Impl(bool inputIsAvcc, bool outputIsAvcc, Observer* observer)
      : _inputIsAvcc(inputIsAvcc), _outputIsAvcc(outputIsAvcc), _pObserver(observer) {}

  int WriteVideoData(const void* data, size_t size, const media::dts_cts_t&, bool) override {
    if (data == nullptr || size == 0) return 0;
    const void* out = data;
    size_t outSize = size;
    if (_inputIsAvcc != _outputIsAvcc) {
      media::resizing_buffer_t* converted;
      int err;
      if (_inputIsAvcc) {
        err = _avccToB.Work(static_cast<const uint8_t*>(data), size);
        converted = &_avccToB;
      } else {
        err = _bToAvcc.Work(static_cast<const uint8_t*>(data), size);
        converted = &_bToAvcc;
      }
      if (err < 0) {
        LOGE << "<-# WriterRawH264Impl::WriteVideoData FAILED! conversion of " << size
             << " bytes err=" << err;
        return err;
      }
      out = converted->pData;
      outSize = converted->used;
    }
    if (!_pObserver->WriteH264Data(out, outSize)) {
      LOGE << "<-# WriterRawH264Impl::WriteVideoData FAILED! WriteH264Data() of " << outSize << " bytes";
      return VREX_ERROR(ERR_MEDIAFORMATS_WRITER_OBSERVER_FAILED);
    }
    return static_cast<int>(outSize);
  }

  // The framing is the same for every codec of length-prefixed units: the tag changes nothing.
  int WriteVideoData(const void* data, size_t size, const media::dts_cts_t& ts, bool key,
                     unsigned long) override {
    return WriteVideoData(data, size, ts, key);
  }

  int WriteAudioData(const void*, size_t, const media::dts_cts_t&) override { return 0; }
  int WriteClockSync(const media::clock_sync_t&) override { return 0; }
  int WriteImageData(const char*, size_t, const media::dts_cts_t&, unsigned long) override { return 0; }
  int WriteSnapshotMeta(const media::dts_cts_t&, unsigned long) override { return 0; }

 private:
  bool _inputIsAvcc;
  bool _outputIsAvcc;
  Observer* _pObserver;
  media::nalu_avcc_to_b_t _avccToB;
  media::nalu_b_to_avcc_t _bToAvcc;
};

}  // namespace internal

WriterRawH264* WriterRawH264::Create(bool inputIsAvcc, bool outputIsAvcc, Observer* observer, int& error) {
  if (observer == nullptr) {
    error = VREX_ERROR(ERR_MEDIAFORMATS_NULL_OBSERVER);
    return nullptr;
  }
  error = 0;
  return new internal::WriterRawH264Impl(inputIsAvcc, outputIsAvcc, observer);
}

}  // namespace mediaformats
}  // namespace vrex
