// H.264 codec information: finds SPS and PPS in a length-prefixed key frame and builds what
// the MP4 writers need from them.
#include "media/h264/codec_info_h264.h"

#include <cstdio>
#include <cstring>
#include <vector>

#include "abstraction/byte_order.h"
#include "abstraction/logging.h"
#include "frame_bytes.h"
#include "media/errors.h"
#include "media/frame.h"
#include "media/h264/h264.h"

namespace vrex {
namespace media {

namespace {
constexpr uint32_t kMaxParameterSetSize = 65535;  // the avcC length field is 16 bits

uint8_t* Duplicate(const uint8_t* data, uint64_t size) {
  if (data == nullptr) return nullptr;
  uint8_t* copy = new uint8_t[size];
  std::memcpy(copy, data, size);
  return copy;
}
}  // namespace

codec_info_video_h264_t::codec_info_video_h264_t() : codec_info_video_t(TAG_VH264) {}

codec_info_video_h264_t::codec_info_video_h264_t(const codec_info_video_h264_t& other)
    : codec_info_video_t(other),
      _pSPS(Duplicate(other._pSPS, other._spsSize)),
      _spsSize(other._spsSize),
      _pPPS(Duplicate(other._pPPS, other._ppsSize)),
      _ppsSize(other._ppsSize) {
  SetISO14496(other._pISO14496, other._iso14496Size);
  _rfc6381Codec = other._rfc6381Codec;
}

codec_info_video_h264_t::~codec_info_video_h264_t() {
  delete[] _pSPS;
  delete[] _pPPS;
}

codec_info_video_h264_t* codec_info_video_h264_t::GetInstance(const frame_t& frame, int& error) {
  if (!frame.keyFrame || frame.size < static_cast<int64_t>(internal::kMinVideoFrameSize) ||
      (frame.pData == nullptr && frame.pDataSource == nullptr && frame.pCodecConfig == nullptr)) {
    LOGE << "<-# codec_info_video_h264_t::GetInstance FAILED! Invalid H264 frame data";
    error = VREX_ERROR(ERR_MEDIA_INVALID_FRAME);
    return nullptr;
  }
  return internal::BuildVideoInfo<codec_info_video_h264_t>(frame, "codec_info_video_h264_t", error);
}

codec_info_video_h264_t* codec_info_video_h264_t::GetInstance(const unsigned char* data,
                                                              size_t size, unsigned clockRate,
                                                              int& error) {
  return internal::BuildVideoInfo<codec_info_video_h264_t>(data, size, clockRate,
                                                           "codec_info_video_h264_t", error);
}

int codec_info_video_h264_t::Init(abstraction::DataSource* source, unsigned clockRate) {
  std::vector<uint8_t> bytes;
  VREX_CHECK(internal::ReadFromSource(source, -1, bytes));
  return Init(bytes.data(), bytes.size(), clockRate);
}

int codec_info_video_h264_t::Init(const uint8_t* data, size_t size, unsigned clockRate) {
  if (size < 4) {
    LOGE << "<-# codec_info_video_h264_t::Init FAILED! Not enough data to read the size or marker";
    return VREX_ERROR(ERR_MEDIA_INVALID_FRAME);
  }
  // A first word of 1 is a start code: start-code input is not supported.
  if (abstraction::LoadBE32(data) == 1) return VREX_ERROR(ERR_MEDIA_NOT_IMPLEMENTED);
  int err = DetectSPSPPSBoundsSizedNal(data, size);
  if (err < 0) {
    LOGE << "<-# codec_info_video_h264_t::Init FAILED! DetectSPSPPSBoundsSizedNal() FAILED! "
            "errorCode="
         << err;
    return err;
  }
  if ((err = ParseSPSPPS()) < 0) {
    LOGE << "<-# codec_info_video_h264_t::Init FAILED! Failed to parse SPS/PPS errorCode=" << err;
    return err;
  }
  samplingRate = clockRate;
  char codec[16];
  std::snprintf(codec, sizeof(codec), "avc1.%02x%02x%02x", _pSPS[1], _pSPS[2], _pSPS[3]);
  _rfc6381Codec = codec;
  return 0;
}

int codec_info_video_h264_t::DetectSPSPPSBoundsSizedNal(const uint8_t* data, size_t size) {
  const uint8_t* sps = nullptr;
  uint32_t spsSize = 0;
  size_t cursor = 0;
  for (;;) {
    if (size - cursor < 6) {
      LOGE << "<-# codec_info_video_h264_t::DetectSPSPPSBoundsSizedNal FAILED! No SPS/PPS "
              "encountered";
      return VREX_ERROR(ERR_MEDIA_INVALID_FRAME);
    }
    const uint32_t nalSize = abstraction::LoadBE32(data + cursor);
    cursor += 4;
    if (nalSize > kMaxParameterSetSize) {
      LOGE << "<-# codec_info_video_h264_t::DetectSPSPPSBoundsSizedNal FAILED! Invalid NALU size="
           << nalSize;
      return VREX_ERROR(ERR_MEDIA_INVALID_FRAME);
    }
    if (nalSize > size - cursor) return VREX_ERROR(ERR_MEDIA_INVALID_FRAME);
    const uint8_t* nal = data + cursor;
    const unsigned type = nal[0] & 0x1F;
    cursor += nalSize;
    // A NAL unit of size 0 has no header byte: it is stepped over like any other.
    if (nalSize == 0) continue;
    // The codec string and the record need the three bytes behind the header.
    if (type == ms::media::h264::NAL_SPS && nalSize >= 4) {
      sps = nal;
      spsSize = nalSize;
    } else if (type == ms::media::h264::NAL_PPS && sps != nullptr) {
      delete[] _pSPS;
      delete[] _pPPS;
      _pSPS = Duplicate(sps, spsSize);
      _spsSize = spsSize;
      _pPPS = Duplicate(nal, nalSize);
      _ppsSize = nalSize;
      // The configuration record carries the units as stored; the parser wants them without
      // emulation prevention.
      ComputeISO14496();
      _spsSize = ms::media::h264::StripEmulationPrevention(_pSPS, _spsSize);
      _ppsSize = ms::media::h264::StripEmulationPrevention(_pPPS, _ppsSize);
      return 0;
    }
  }
}

int codec_info_video_h264_t::ParseSPSPPS() {
  LOGD << "codec_info_video_h264_t::ParseSPSPPS SPS/PPS parsing not yet implemented";
  int err = ParseSPS();
  if (err < 0) {
    LOGE << "<-# codec_info_video_h264_t::ParseSPSPPS FAILED! ParseSPS() FAILED! errorCode=" << err;
    return err;
  }
  if ((err = ParsePPS()) < 0) {
    LOGE << "<-# codec_info_video_h264_t::ParseSPSPPS FAILED! ParsePPS() FAILED! errorCode=" << err;
    return err;
  }
  return 0;
}

int codec_info_video_h264_t::ParseSPS() {
  ms::media::h264::sps_t sps;
  int err = ms::media::h264::ParseSPS(_pSPS, _spsSize, sps);
  if (err < 0) {
    LOGE << "<-# codec_info_video_h264_t::ParseSPS FAILED! ParseSPS() FAILED! errorCode=" << err;
    return err;
  }
  if (_trace) LOGD << sps.str();
  _width = static_cast<uint32_t>(sps.width);
  _height = static_cast<uint32_t>(sps.height);
  const bool timing = sps.vui_parameters_present_flag && sps.vui.timing_info_present_flag;
  if (timing) {
    // Two fields per frame: time_scale / (2 * num_units_in_tick) frames per second.
    _frameRateNominator = static_cast<uint32_t>(sps.vui.time_scale);
    _frameRateDenominator = static_cast<uint32_t>(2 * sps.vui.num_units_in_tick);
  } else {
    LOGD << "codec_info_video_h264_t::ParseSPS SPS does not have vui.timing_info_present_flag "
            "set. FPS defaulted to 30";
    _frameRateNominator = kDefaultFrameRate;
    _frameRateDenominator = 1;
  }
  if (_width == 0 || _height == 0) {
    LOGE << "<-# codec_info_video_h264_t::ParseSPS FAILED! Invalid resolution width=" << _width
         << " height=" << _height;
    return VREX_ERROR(ERR_MEDIA_CODEC_PARAMETERS);
  }
  if (timing && (_frameRateNominator == 0 || _frameRateDenominator == 0)) {
    LOGE << "<-# codec_info_video_h264_t::ParseSPS FAILED! Invalid FPS nominator="
         << _frameRateNominator << " or denominator=" << _frameRateDenominator;
    return VREX_ERROR(ERR_MEDIA_CODEC_PARAMETERS);
  }
  if (timing && _frameRateNominator < _frameRateDenominator) {
    LOGE << "<-# codec_info_video_h264_t::ParseSPS FAILED! FPS nominator=" << _frameRateNominator
         << " is less than denominator=" << _frameRateDenominator;
    return VREX_ERROR(ERR_MEDIA_CODEC_PARAMETERS);
  }
  return 0;
}

int codec_info_video_h264_t::ParsePPS() { return 0; }

// AVCDecoderConfigurationRecord (ISO/IEC 14496-15 5.3.3.1), one SPS and one PPS:
// 01 | profile compat level | FF (lengthSizeMinusOne 3) | E1 (one SPS) | len16 SPS | 01 | len16 PPS
void codec_info_video_h264_t::ComputeISO14496() {
  std::vector<uint8_t> record(_spsSize + _ppsSize + 11);
  record[0] = 1;
  std::memcpy(&record[1], _pSPS + 1, 3);
  record[4] = 0xFF;
  record[5] = 0xE1;
  abstraction::StoreBE16(&record[6], static_cast<uint16_t>(_spsSize));
  std::memcpy(&record[8], _pSPS, _spsSize);
  record[8 + _spsSize] = 1;
  abstraction::StoreBE16(&record[9 + _spsSize], static_cast<uint16_t>(_ppsSize));
  std::memcpy(&record[11 + _spsSize], _pPPS, _ppsSize);
  SetISO14496(record.data(), record.size());
}

}  // namespace media
}  // namespace vrex
