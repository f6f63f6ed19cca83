// AAC codec information: sampling rate, channels, the AudioSpecificConfig that goes to esds
// and the RFC 6381 codec string, from an ADTS header or an out-of-band config.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "media/codec_info.h"

namespace vrex {
namespace media {

struct frame_t;

class codec_info_audio_aac_t : public codec_info_audio_t {
 public:
  codec_info_audio_aac_t();

  // From an AAAC frame of at least 9 bytes: its pCodecConfig when set (an AudioSpecificConfig,
  // any object type), else the ADTS header at the start of its payload (AAC LC only).
  // Returns a new object (release with FreeInstance) or null with `error` set:
  // ERR_MEDIA_INVALID_FRAME for a frame or header that cannot be used, ERR_MEDIA_NOT_IMPLEMENTED
  // for the forbidden sampling index 15 in ADTS, ERR_ABSTRACTION_RANGE_NOT_AVAILABLE for a
  // short config.
  static codec_info_audio_aac_t* GetInstance(const frame_t& frame, int& error);
  // The same from bytes: `isConfig` selects an AudioSpecificConfig, else an ADTS header.
  static codec_info_audio_aac_t* GetInstance(const uint8_t* data, size_t size, bool isConfig,
                                             int& error);

  uint32_t _samplesPerFrame = 1024;
  uint8_t _audioSpecificConfig[2] = {0, 0};  // big-endian, as it goes to esds
  std::string _rfc6381Codec;

 private:
  int InitFromAdts(const uint8_t* header);
  int InitFromConfig(const uint8_t* config, size_t size);
  void Fill(unsigned objectType, unsigned frequencyIndex, uint32_t rate, unsigned channels);
};

// The sampling rate of an ISO/IEC 14496-3 sampling frequency index; 0 for 13 to 15.
uint32_t AacSamplingRate(unsigned frequencyIndex);

}  // namespace media
}  // namespace vrex
