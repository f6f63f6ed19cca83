// AAC codec information from an ADTS header or an AudioSpecificConfig.
#include "media/aac/codec_info_aac.h"

#include <cstdio>

#include "abstraction/logging.h"
#include "frame_bytes.h"
#include "media/bitsreaderstate.h"
#include "media/errors.h"

namespace vrex {
namespace media {

namespace {
constexpr unsigned kAacLc = 2;
constexpr unsigned kExplicitFrequency = 15;
constexpr size_t kMinFrameSize = 9;  // an ADTS header with CRC
}  // namespace

uint32_t AacSamplingRate(unsigned frequencyIndex) {
  static const uint32_t kRates[16] = {96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050,
                                      16000, 12000, 11025, 8000,  7350,  0,     0,     0};
  return kRates[frequencyIndex & 15];
}

codec_info_audio_aac_t::codec_info_audio_aac_t() : codec_info_audio_t(TAG_AAAC) {}

codec_info_audio_aac_t* codec_info_audio_aac_t::GetInstance(const frame_t& frame, int& error) {
  if (frame.tag != TAG_AAAC || frame.size < static_cast<int64_t>(kMinFrameSize)) {
    error = VREX_ERROR(ERR_MEDIA_INVALID_FRAME);
    return nullptr;
  }
  internal::frame_bytes_t bytes;
  error = internal::GetFrameBytes(frame, bytes);
  if (error < 0) return nullptr;
  return GetInstance(bytes.data, bytes.size, frame.pCodecConfig != nullptr, error);
}

codec_info_audio_aac_t* codec_info_audio_aac_t::GetInstance(const uint8_t* data, size_t size,
                                                            bool isConfig, int& error) {
  codec_info_audio_aac_t* info = new codec_info_audio_aac_t();
  if (isConfig) {
    error = info->InitFromConfig(data, size);
  } else {
    error = size < kMinFrameSize ? VREX_ERROR(ERR_MEDIA_INVALID_FRAME) : info->InitFromAdts(data);
  }
  if (error < 0) {
    delete info;
    return nullptr;
  }
  return info;
}

// ADTS bytes 2-3: profile (2) | sampling_frequency_index (4) | private (1) |
// channel_configuration (3, across the byte boundary).
int codec_info_audio_aac_t::InitFromAdts(const uint8_t* header) {
  const unsigned frequencyIndex = (header[2] >> 2) & 15;
  if (frequencyIndex == kExplicitFrequency) return VREX_ERROR(ERR_MEDIA_NOT_IMPLEMENTED);
  if (frequencyIndex > 12) return VREX_ERROR(ERR_MEDIA_INVALID_FRAME);
  const unsigned objectType = (header[2] >> 6) + 1;
  if (objectType != kAacLc) {
    LOGE << "codec_info_audio_aac_t::GetInstance FAILED! Unsupported AudioObjectType: "
         << objectType;
    return VREX_ERROR(ERR_MEDIA_INVALID_FRAME);
  }
  const unsigned channels = ((header[2] & 1) << 2) | (header[3] >> 6);
  Fill(objectType, frequencyIndex, AacSamplingRate(frequencyIndex), channels);
  return 0;
}

// AudioSpecificConfig: audioObjectType (5, escape 31 -> 6 more + 32) |
// samplingFrequencyIndex (4, escape 15 -> 24-bit rate) | channelConfiguration (4).
int codec_info_audio_aac_t::InitFromConfig(const uint8_t* config, size_t size) {
  ms::media::BitsReaderState bits(config, size);
  unsigned objectType = 0;
  VREX_CHECK(bits.ReadBits(5, objectType));
  if (objectType == 31) {
    unsigned extension = 0;
    VREX_CHECK(bits.ReadBits(6, extension));
    objectType = 32 + extension;
  }
  unsigned frequencyIndex = 0;
  VREX_CHECK(bits.ReadBits(4, frequencyIndex));
  uint32_t rate = AacSamplingRate(frequencyIndex);
  if (frequencyIndex == kExplicitFrequency) VREX_CHECK(bits.ReadBits(24, rate));
  unsigned channels = 0;
  VREX_CHECK(bits.ReadBits(4, channels));
  Fill(objectType, frequencyIndex, rate, channels);
  return 0;
}

void codec_info_audio_aac_t::Fill(unsigned objectType, unsigned frequencyIndex, uint32_t rate,
                                  unsigned channels) {
  samplingRate = rate;
  _channels = static_cast<uint8_t>(channels);
  _bitsPerSample = 16;
  _samplesPerFrame = 1024;
  // Cut to 16 bits: an escaped object type loses its high bits, an explicit rate is not kept.
  const uint16_t config =
      static_cast<uint16_t>(objectType << 11 | frequencyIndex << 7 | channels << 3);
  _audioSpecificConfig[0] = static_cast<uint8_t>(config >> 8);
  _audioSpecificConfig[1] = static_cast<uint8_t>(config);
  char codec[24];
  std::snprintf(codec, sizeof(codec), "mp4a.40.%u", static_cast<unsigned>(config >> 11));
  _rfc6381Codec = codec;
}

}  // namespace media
}  // namespace vrex
