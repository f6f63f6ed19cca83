// AV1 codec information from the sequence and frame headers of a key frame.
#include "media/av1/codec_info_av1.h"

#include <cstdio>
#include <vector>

#include "abstraction/logging.h"
#include "frame_bytes.h"
#include "media/errors.h"
#include "media/frame.h"

namespace vrex {
namespace media {

codec_info_video_av1_t::codec_info_video_av1_t() : codec_info_video_t(TAG_VAV1) {}

codec_info_video_av1_t::codec_info_video_av1_t(const codec_info_video_av1_t& other)
    : codec_info_video_t(other), _state(other._state) {
  _state.obus.clear();  // they pointed into the other object's input
  SetISO14496(other._pISO14496, other._iso14496Size);
  _rfc6381Codec = other._rfc6381Codec;
}

codec_info_video_av1_t* codec_info_video_av1_t::GetInstance(const frame_t& frame, int& error) {
  if (!frame.keyFrame || frame.size < static_cast<int64_t>(internal::kMinVideoFrameSize)) {
    LOGE << "<-# codec_info_video_av1_t::GetInstance #1 FAILED! Not a key frame or not enough data";
    error = VREX_ERROR(ERR_MEDIA_INVALID_FRAME);
    return nullptr;
  }
  if (frame.pData == nullptr && frame.pDataSource == nullptr && frame.pCodecConfig == nullptr) {
    LOGE << "<-# codec_info_video_av1_t::GetInstance FAILED! data_source == NULL";
    error = VREX_ERROR(ERR_MEDIA_INVALID_FRAME);
    return nullptr;
  }
  return internal::BuildVideoInfo<codec_info_video_av1_t>(frame, "codec_info_video_av1_t", error);
}

codec_info_video_av1_t* codec_info_video_av1_t::GetInstance(const unsigned char* data, size_t size,
                                                            unsigned clockRate, int& error) {
  return internal::BuildVideoInfo<codec_info_video_av1_t>(data, size, clockRate,
                                                          "codec_info_video_av1_t", error);
}

int codec_info_video_av1_t::Init(abstraction::DataSource* source, unsigned clockRate, size_t size) {
  std::vector<uint8_t> bytes;
  const int err = internal::ReadFromSource(source, static_cast<long>(size), bytes);
  if (err < 0) {
    LOGE << "<-# codec_info_video_av1_t::ParseObus not enough data to read frame. data_size="
         << size;
    return err;
  }
  return Init(bytes.data(), bytes.size(), clockRate);
}

int codec_info_video_av1_t::Init(const uint8_t* data, size_t size, unsigned clockRate) {
  samplingRate = clockRate;
  _rfc6381Codec = "unk";
  const int err = ParseObus(data, size);
  if (err < 0) {
    LOGE << "<-# codec_info_video_av1_t::Init FAILED! ParseObu failed";
    return err;
  }
  // av01.<profile>.<level><tier>.<depth>, the depth in two hex digits as this system has
  // always written it: 8 -> "08", 10 -> "0a".
  const ms::media::av1::OBPSequenceHeader& sh = _state.sequenceHeader;
  char codec[32];
  std::snprintf(codec, sizeof(codec), "av01.%u.%02u%c.%02x", sh.seq_profile, sh.seq_level_idx[0],
                sh.seq_tier[0] ? 'H' : 'M', sh.color_config.BitDepth);
  _rfc6381Codec = codec;
  return 0;
}

int codec_info_video_av1_t::ParseObus(const uint8_t* data, size_t size) {
  _state.ClearHeaders();
  // State keeps pointers into the buffer it parsed; they must not outlive this call.
  const bool parsed = _state.Parse(data, size);
  _state.obus.clear();
  if (!parsed) {
    LOGE << "<-# codec_info_video_av1_t::ParseObus Unable to parse AV1 codec OBU-s. data_size="
         << size;
    return VREX_ERROR(ERR_MEDIA_INVALID_FRAME);
  }
  if (!_state.hasFrameHeader) {
    LOGE << "<-# codec_info_video_av1_t::ParseObus FAILED! Width not found";
    return VREX_ERROR(ERR_MEDIA_INVALID_FRAME);
  }
  _width = _state.frameHeader.frame_width_minus_1 + 1;
  _height = _state.frameHeader.frame_height_minus_1 + 1;
  const ms::media::av1::OBPSequenceHeader& sh = _state.sequenceHeader;
  if (sh.timing_info_present_flag) {
    _frameRateNominator = sh.timing_info.time_scale;
    _frameRateDenominator = sh.timing_info.num_units_in_display_tick;
  } else {
    _frameRateNominator = kDefaultFrameRate;
    _frameRateDenominator = 1;
    LOGD << "codec_info_video_av1_t::ParseObus FrameRateNominator or FrameRateDenominator not "
            "found. Using default values nominator="
         << _frameRateNominator << " denominator=" << _frameRateDenominator;
  }
  ComputeISO14496();
  return 0;
}

// AV1CodecConfigurationRecord without configOBUs:
// 81 (marker, version 1) | profile(3) level(5) | tier hbd 12bit mono ssx ssy csp(2) |
// 000 delay_present(1) delay_minus_1(4)
void codec_info_video_av1_t::ComputeISO14496() {
  const ms::media::av1::OBPSequenceHeader& sh = _state.sequenceHeader;
  const auto& cc = sh.color_config;
  uint8_t record[4];
  record[0] = 0x81;
  record[1] = static_cast<uint8_t>(sh.seq_profile << 5 | (sh.seq_level_idx[0] & 31));
  record[2] =
      static_cast<uint8_t>(sh.seq_tier[0] << 7 | cc.high_bitdepth << 6 | cc.twelve_bit << 5);
  if (cc.mono_chrome)
    record[2] |= 0x10;
  else
    record[2] |= static_cast<uint8_t>(cc.subsampling_x << 3 | cc.subsampling_y << 2 |
                                      (cc.chroma_sample_position & 3));
  record[3] = static_cast<uint8_t>(sh.initial_display_delay_present_flag << 4 |
                                   (sh.initial_display_delay_minus_1[0] & 15));
  SetISO14496(record, sizeof(record));
}

}  // namespace media
}  // namespace vrex
