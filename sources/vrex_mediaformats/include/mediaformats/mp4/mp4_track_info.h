// MP4TrackInfo: what the MP4 family of writers needs to know of one track before its first
// sample. One describes audio, one video; the writers copy them at creation.
#pragma once

#include <cstdint>
#include <string>

#include "media/codec_tags.h"
#include "media/timestamp.h"

namespace vrex {
namespace mediaformats {

struct MP4TrackInfo {
  // avcC, hvcC or av1C body for video, the 2 AudioSpecificConfig bytes for audio. Not owned:
  // it must outlive the writer's Create call only (the writers keep a copy or the pointer's
  // bytes as documented by each writer).
  const unsigned char* _pCodecBytes = nullptr;
  uint64_t _codecBytesSize = 0;
  uint32_t _defaultSampleDuration = 0;  // video: ticks of one frame; audio: samples per frame
  uint32_t _timescale = 0;              // the track's clock rate
  media::timestamp_t _baseTimestamp;    // fragmented writer: where the track's timeline starts
  uint32_t _width = 0;                  // non-zero for video: that is what makes a video track
  uint32_t _height = 0;
  uint32_t _fps = 0;
  uint8_t _channels = 0;
  bool _hasSampleDurations = false;     // fragmented writer: trun entries carry durations
  bool _fragmentEveryKeyFrame = false;  // fragmented writer: a fragment per key frame
  std::string _rfc6381Codec;
  bool _extendedVideoMetadata = false;  // fragmented writer: per-fragment PTS list
  uint32_t _trackId = 0;                // assigned by the writer
  uint64_t _creationTime = 0;           // seconds since 1904-01-01, assigned by the writer
  uint64_t _codecType = media::TAG_UNK;
};

}  // namespace mediaformats
}  // namespace vrex
