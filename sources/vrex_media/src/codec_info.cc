// The codec information base classes: frame rate and frame duration with their defaults.
#include "media/codec_info.h"

#include <cstring>

#include "abstraction/logging.h"

namespace vrex {
namespace media {

codec_info_t::codec_info_t(uint64_t tagValue) : tag(tagValue) {}
codec_info_t::~codec_info_t() = default;

uint32_t codec_info_t::GetSamplingRate() const { return samplingRate; }

void codec_info_t::FreeInstance(codec_info_t* info) { delete info; }

codec_info_video_t::codec_info_video_t(uint64_t tagValue) : codec_info_t(tagValue) {}

codec_info_video_t::codec_info_video_t(const codec_info_video_t& other)
    : codec_info_t(other),
      _width(other._width),
      _height(other._height),
      _frameRateNominator(other._frameRateNominator),
      _frameRateDenominator(other._frameRateDenominator),
      _trace(other._trace) {}

codec_info_video_t::~codec_info_video_t() { delete[] _pISO14496; }

const uint8_t* codec_info_video_t::GetISO14496CodecBuffer() const { return _pISO14496; }

uint64_t codec_info_video_t::GetISO14496CodecBufferLength() const { return _iso14496Size; }

double codec_info_video_t::GetFPS() const {
  if (_frameRateNominator != 0 && _frameRateDenominator != 0)
    return static_cast<double>(_frameRateNominator) / _frameRateDenominator;
  LOGW << "codec_info_video_t::GetFPS Invalid _frameRateNominator=" << _frameRateNominator
       << " or _frameRateDenominator=" << _frameRateDenominator
       << " values, using default frame rate " << kDefaultFrameRate;
  return kDefaultFrameRate;
}

double codec_info_video_t::GetLogicalDuration() const {
  const double fps = GetFPS();
  if (fps > 0) return samplingRate / fps;
  LOGW << "codec_info_video_t::GetLogicalDuration Invalid FPS value, using default value "
       << kDefaultFrameRate << " for duration calculation";
  return static_cast<double>(samplingRate / kDefaultFrameRate);
}

void codec_info_video_t::SetISO14496(const uint8_t* data, uint64_t size) {
  delete[] _pISO14496;
  _pISO14496 = nullptr;
  _iso14496Size = 0;
  if (size == 0) return;
  _pISO14496 = new uint8_t[size];
  std::memcpy(_pISO14496, data, size);
  _iso14496Size = size;
}

}  // namespace media
}  // namespace vrex
