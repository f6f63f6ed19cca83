// What is known of a stream from one key frame or one audio frame: the base classes of the
// per-codec information objects that readers build and MP4 writers consume.
//
// Ownership: objects come from the subclasses' GetInstance and are released with
// codec_info_t::FreeInstance. Threads: plain data without locks; one thread at a time.
#pragma once

#include <cstdint>
#include <string>

#include "media/codec_tags.h"

namespace vrex {
namespace abstraction {
class DataSource;
}  // namespace abstraction

namespace media {

// The codec subclasses are built from frames and read from data sources.
struct frame_t;

// The frame rate assumed when a stream does not state one.
constexpr unsigned kDefaultFrameRate = 30;

class codec_info_t {
 public:
  explicit codec_info_t(uint64_t tagValue = TAG_UNK);
  virtual ~codec_info_t();
  // For video the clock rate of the stream, for audio the sampling rate in Hz.
  virtual uint32_t GetSamplingRate() const;
  // Deletes through the virtual destructor; accepts null.
  static void FreeInstance(codec_info_t* info);

  uint64_t tag;
  uint32_t samplingRate = 0;
};

class codec_info_video_t : public codec_info_t {
 public:
  explicit codec_info_video_t(uint64_t tagValue);
  // Copies the four numbers only: the configuration record and the codec string stay empty,
  // and a subclass copies what it owns.
  codec_info_video_t(const codec_info_video_t& other);
  codec_info_video_t& operator=(const codec_info_video_t&) = delete;
  ~codec_info_video_t() override;

  // The ISO/IEC 14496-15 configuration record body (avcC, hvcC or av1C); owned by this
  // object, valid for its life.
  virtual const uint8_t* GetISO14496CodecBuffer() const;
  virtual uint64_t GetISO14496CodecBufferLength() const;
  // nominator / denominator, or kDefaultFrameRate (logged) when either is 0.
  virtual double GetFPS() const;
  // The nominal duration of one frame in ticks of samplingRate.
  virtual double GetLogicalDuration() const;

  uint32_t _width = 0;
  uint32_t _height = 0;
  uint32_t _frameRateNominator = 0;
  uint32_t _frameRateDenominator = 0;
  uint8_t* _pISO14496 = nullptr;  // array new, owned
  uint64_t _iso14496Size = 0;
  std::string _rfc6381Codec;
  bool _trace = false;  // extra debug logging of the parsed bytes

 protected:
  // Replaces the configuration record with a copy of `size` bytes at `data`.
  void SetISO14496(const uint8_t* data, uint64_t size);
};

class codec_info_audio_t : public codec_info_t {
 public:
  explicit codec_info_audio_t(uint64_t tagValue) : codec_info_t(tagValue) {}

  uint8_t _channels = 0;
  uint8_t _bitsPerSample = 0;
};

}  // namespace media
}  // namespace vrex
