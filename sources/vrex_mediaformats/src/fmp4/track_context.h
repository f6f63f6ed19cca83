// TrackContext: one track of the fragmented writer: its fixed traf head, the trun entries and
// (plain mode) the sample bytes of the open fragment.
//
// traf head, built once and patched at each close:
//   traf | tfhd (track id, default duration[, default flags]) | tfdt v1 (64-bit time) |
//   trun head: size | "trun" | version+flags | sample count | data offset   (20 bytes)
// trun entry: [duration (4)] size (4) [flags (4) composition offset (4) for video]
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "media/timestamp.h"
#include "mediaformats/mp4/mp4_track_info.h"
#include "mp4/box_buffer.h"

namespace vrex {
namespace mediaformats {
namespace internal {

class TrackContext {
 public:
  // Takes the track's fixed values from `info` and builds the traf head. `fragmentDuration`
  // is rescaled to the track's clock.
  void Init(uint32_t id, bool isAudio, const MP4TrackInfo& info,
            const media::timestamp_t& fragmentDuration);
  bool exists() const { return _id != 0; }
  // Has samples in the open fragment: only such a track has a traf in it.
  bool InFragment() const { return _id != 0 && _sampleCount > 0; }

  // Gives the last entry its duration from `ts` (in this track's clock) when entries carry
  // durations. False without a track.
  bool UpdateLastTrunEntry(const media::dts_cts_t& ts);
  bool AddTrunEntry(const media::dts_cts_t& ts, uint32_t size, bool keyFrame);
  // trun and traf sizes for the entries now held.
  void ComputeSize();
  // Patches the traf head for closing: base time, data offset, counts and sizes.
  void PatchTraf(uint64_t baseTime, uint32_t dataOffset);
  // Where the track's timeline ends: the last DTS plus one default duration.
  media::timestamp_t GetLastTimestamp() const;
  // First PTS of the fragment in ms, -1 when none.
  int64_t FirstPtsMs() const;
  // First PTS plus the samples' default durations, in ms.
  int64_t EndMs() const;
  // Forgets the fragment's samples; the head stays.
  void Reset();

  uint32_t _id = 0;
  bool _isAudio = false;
  bool _hasSampleDurations = false;
  bool _fragmentEveryKeyFrame = false;
  int64_t _lastSampleDts = -1;
  uint32_t _trunEntrySize = 0;
  uint32_t _width = 0, _height = 0;
  uint32_t _timescale = 0;
  uint32_t _defaultSampleDuration = 0;
  uint32_t _sampleCount = 0;
  int64_t _fragmentDuration = 0;
  uint32_t _trafSize = 0, _trunSize = 0;
  media::dts_cts_t _firstDtsCts;
  media::timestamp_t _baseTimestamp;
  media::timestamp_t _firstTimestamp;
  int64_t _lastDts = -1;
  uint32_t _tfdtOffset = 0, _trunOffset = 0;
  std::vector<uint8_t> _codecBytes;
  BoxBuffer _traf;
  BoxBuffer _trunEntries;
  BoxBuffer _data;  // plain mode only
  uint64_t _codecType = media::TAG_UNK;
  bool _extendedVideoMetadata = false;
  std::vector<uint64_t> _extendedTimestamps;  // big-endian ms values

 private:
  void BuildTraf();
};

}  // namespace internal
}  // namespace mediaformats
}  // namespace vrex
