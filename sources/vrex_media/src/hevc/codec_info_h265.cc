// H.265 codec information: VPS, SPS and PPS of a length-prefixed key frame, and what the MP4
// writers need from them.
#include "media/hevc/codec_info_h265.h"

#include <cstdio>
#include <string>

#include "abstraction/byte_order.h"
#include "abstraction/logging.h"
#include "frame_bytes.h"
#include "media/errors.h"
#include "media/frame.h"
#include "media/hevc/parser.h"

namespace vrex {
namespace media {

namespace {
constexpr unsigned kMaxUnitsBeforeVps = 10;
constexpr uint32_t kMaxParameterSetSize = 65535;  // the hvcC length field is 16 bits

// Copies one length-prefixed unit at `cursor` into `unit` and moves past it.
int TakeUnit(const uint8_t* data, size_t size, size_t& cursor, const char* name,
             std::vector<uint8_t>& unit) {
  if (size - cursor < 4) {
    LOGE << "<-# codec_info_video_h265_t::ParseVpsSpsPps not enough data to read the " << name
         << " NALU size";
    return VREX_ERROR(ERR_MEDIA_INVALID_FRAME);
  }
  const uint32_t length = abstraction::LoadBE32(data + cursor);
  cursor += 4;
  if (length > size - cursor || length > kMaxParameterSetSize) {
    LOGE << "<-# codec_info_video_h265_t::ParseVpsSpsPps not enough data to read the " << name
         << " NALU";
    return VREX_ERROR(ERR_MEDIA_INVALID_FRAME);
  }
  unit.assign(data + cursor, data + cursor + length);
  cursor += length;
  return 0;
}

// Runs a fresh parser over one unit; a unit that does not parse leaves the map empty.
template <typename Map>
typename Map::mapped_type ParseUnit(const std::vector<uint8_t>& unit, Map HEVC::Parser::*map) {
  HEVC::Parser parser;
  parser.processNALUnit(unit.data(), unit.size(), HEVC::Parser::Info());
  const Map& parsed = parser.*map;
  return parsed.empty() ? nullptr : parsed.begin()->second;
}
}  // namespace

codec_info_video_h265_t::codec_info_video_h265_t() : codec_info_video_t(TAG_VH265) {}

codec_info_video_h265_t::codec_info_video_h265_t(const codec_info_video_h265_t& other)
    : codec_info_video_t(other),
      _vps(other._vps),
      _sps(other._sps),
      _pps(other._pps),
      _pVPS(other._pVPS ? std::make_shared<HEVC::VPS>(*other._pVPS) : nullptr),
      _pSPS(other._pSPS ? std::make_shared<HEVC::SPS>(*other._pSPS) : nullptr),
      _pPPS(other._pPPS ? std::make_shared<HEVC::PPS>(*other._pPPS) : nullptr) {
  SetISO14496(other._pISO14496, other._iso14496Size);
  _rfc6381Codec = other._rfc6381Codec;
}

codec_info_video_h265_t* codec_info_video_h265_t::GetInstance(const frame_t& frame, int& error) {
  if (!frame.keyFrame ||
      (frame.pData == nullptr && frame.pDataSource == nullptr && frame.pCodecConfig == nullptr)) {
    LOGE << "<-# codec_info_video_h265_t::GetInstance #1 FAILED! Not a key frame or not enough "
            "data";
    error = VREX_ERROR(ERR_MEDIA_INVALID_FRAME);
    return nullptr;
  }
  return internal::BuildVideoInfo<codec_info_video_h265_t>(frame, "codec_info_video_h265_t", error);
}

codec_info_video_h265_t* codec_info_video_h265_t::GetInstance(const unsigned char* data,
                                                              size_t size, unsigned clockRate,
                                                              int& error) {
  return internal::BuildVideoInfo<codec_info_video_h265_t>(data, size, clockRate,
                                                           "codec_info_video_h265_t", error);
}

int codec_info_video_h265_t::Init(abstraction::DataSource* source, unsigned clockRate) {
  std::vector<uint8_t> bytes;
  VREX_CHECK(internal::ReadFromSource(source, -1, bytes));
  return Init(bytes.data(), bytes.size(), clockRate);
}

int codec_info_video_h265_t::Init(const uint8_t* data, size_t size, unsigned clockRate) {
  const long vpsOffset = JumpToVps(data, size);
  if (vpsOffset < 0) return static_cast<int>(vpsOffset);
  VREX_CHECK(ParseVpsSpsPps(data + vpsOffset, size - static_cast<size_t>(vpsOffset)));
  samplingRate = clockRate;
  _rfc6381Codec = "unk";
  if (_pVPS && _pSPS && _pPPS) {
    // RFC 6381 / ISO/IEC 14496-15 E.3: the compatibility flags in reverse bit order, in hex.
    const HEVC::ProfileTierLevel& ptl = _pVPS->profile_tier_level;
    uint32_t compatibility = 0;
    for (unsigned i = 0; i < 32; ++i)
      if (ptl.general_profile_compatibility_flag[i]) compatibility |= 1u << i;
    char text[48];
    std::snprintf(text, sizeof(text), "hev1.%u.%x.%c%u", ptl.general_profile_idc, compatibility,
                  ptl.general_tier_flag ? 'H' : 'L', ptl.general_level_idc);
    _rfc6381Codec = text;
  }
  return 0;
}

long codec_info_video_h265_t::JumpToVps(const uint8_t* data, size_t size) {
  size_t cursor = 0;
  for (unsigned skipped = 0; size - cursor > 5 && skipped <= kMaxUnitsBeforeVps; ++skipped) {
    const uint32_t length = abstraction::LoadBE32(data + cursor);
    const unsigned type = (data[cursor + 4] >> 1) & 63;
    if (type == HEVC::NAL_VPS) {
      LOGD << "codec_info_video_h265_t::JumpToVps found VPS NALU at offset=" << cursor
           << ", skipped " << skipped << " NALU(s)";
      return static_cast<long>(cursor);
    }
    if (static_cast<uint64_t>(length) + 4 > size - cursor) {
      LOGE << "<-# codec_info_video_h265_t::JumpToVps Invalid NAL size: nalu_length=" << length
           << ", available=" << size - cursor;
      return VREX_ERROR(ERR_MEDIA_INVALID_FRAME);
    }
    cursor += 4 + static_cast<size_t>(length);
  }
  LOGE << "<-# codec_info_video_h265_t::JumpToVps FAILED! Unable to find VPS";
  return VREX_ERROR(ERR_MEDIA_INVALID_FRAME);
}

int codec_info_video_h265_t::ParseVpsSpsPps(const uint8_t* data, size_t size) {
  size_t cursor = 0;
  VREX_CHECK(TakeUnit(data, size, cursor, "VPS", _vps));
  VREX_CHECK(TakeUnit(data, size, cursor, "SPS", _sps));
  VREX_CHECK(TakeUnit(data, size, cursor, "PPS", _pps));
  _pVPS = ParseUnit(_vps, &HEVC::Parser::m_vpsMap);
  if (!_pVPS) {
    LOGE << "<-# codec_info_video_h265_t::ParseVpsSpsPps Could not parse VPS";
    return VREX_ERROR(ERR_MEDIA_INVALID_FRAME);
  }
  _pSPS = ParseUnit(_sps, &HEVC::Parser::m_spsMap);
  if (!_pSPS) {
    LOGE << "<-# codec_info_video_h265_t::ParseVpsSpsPps Could not parse SPS";
    return VREX_ERROR(ERR_MEDIA_INVALID_FRAME);
  }
  _pPPS = ParseUnit(_pps, &HEVC::Parser::m_ppsMap);
  if (!_pPPS) {
    LOGE << "<-# codec_info_video_h265_t::ParseVpsSpsPps Could not parse PPS";
    return VREX_ERROR(ERR_MEDIA_INVALID_FRAME);
  }
  // The coded size: the conformance window is not applied.
  _width = _pSPS->pic_width_in_luma_samples;
  _height = _pSPS->pic_height_in_luma_samples;
  _frameRateNominator = _pVPS->vps_time_scale;
  _frameRateDenominator = _pVPS->vps_num_units_in_tick;
  const HEVC::VuiParameters& vui = _pSPS->vui_parameters;
  if (_pSPS->vui_parameters_present_flag && vui.vui_timing_info_present_flag) {
    _frameRateNominator = vui.vui_time_scale;
    _frameRateDenominator = vui.vui_num_units_in_tick;
  }
  ComputeISO14496();
  return 0;
}

// HEVCDecoderConfigurationRecord (ISO/IEC 14496-15 8.3.3.1) as this system writes it: the
// constraint flags, chroma format and bit depths are fixed, one VPS, SPS and PPS.
// 01 | space tier profile | compat (4) | FF x6 | level | F000 | FC | FD | F8 | F8 | 0000 | 03 | 03
// then per array: A0+type | 0001 | len16 | unit
void codec_info_video_h265_t::ComputeISO14496() {
  const HEVC::ProfileTierLevel& ptl = _pVPS->profile_tier_level;
  std::vector<uint8_t> record = {
      1, static_cast<uint8_t>(ptl.general_profile_space << 6 | ptl.general_tier_flag << 5 |
                              ptl.general_profile_idc)};
  uint32_t compatibility = 0;
  for (unsigned i = 0; i < 32; ++i)
    if (ptl.general_profile_compatibility_flag[i]) compatibility |= 0x80000000u >> i;
  for (int shift = 24; shift >= 0; shift -= 8)
    record.push_back(static_cast<uint8_t>(compatibility >> shift));
  record.insert(record.end(), 6, 0xFF);
  record.push_back(static_cast<uint8_t>(ptl.general_level_idc));
  const uint8_t fixed[] = {0xF0, 0x00, 0xFC, 0xFD, 0xF8, 0xF8, 0x00, 0x00, 0x03, 0x03};
  record.insert(record.end(), fixed, fixed + sizeof(fixed));
  const std::vector<uint8_t>* units[] = {&_vps, &_sps, &_pps};
  for (unsigned i = 0; i < 3; ++i) {
    const std::vector<uint8_t>& unit = *units[i];
    const uint8_t head[] = {static_cast<uint8_t>(0x80 | (HEVC::NAL_VPS + i)), 0, 1,
                            static_cast<uint8_t>(unit.size() >> 8),
                            static_cast<uint8_t>(unit.size())};
    record.insert(record.end(), head, head + sizeof(head));
    record.insert(record.end(), unit.begin(), unit.end());
  }
  SetISO14496(record.data(), record.size());
}

}  // namespace media
}  // namespace vrex
