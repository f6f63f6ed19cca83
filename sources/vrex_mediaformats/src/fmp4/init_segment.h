// The fragmented writer's initialisation segment:
//   ftyp (32): "dash", minor 0, compatible "iso6" "hvc1" "avc1" "mp41"
//   moov: mvhd v0 | mvex (trex video, trex audio) | trak video | trak audio
//   trak: tkhd v0 flags 7 | edts/elst (one empty edit) | mdia (mdhd, hdlr, minf with empty
//   sample tables)
// A track with id 0 adds nothing.
#pragma once

#include <cstdint>

#include "fmp4/track_context.h"
#include "mp4/box_buffer.h"

namespace vrex {
namespace mediaformats {
namespace internal {

// Appends the segment to `out`. `creationTime` is in seconds since 1970. Returns false for a
// video codec that has no sample entry. `mvhdDurationOffset` receives where the movie
// duration word stands in `out`.
bool BuildInitSegment(uint64_t creationTime, const TrackContext& video, const TrackContext& audio,
                      BoxBuffer& out, uint32_t& mvhdDurationOffset);

}  // namespace internal
}  // namespace mediaformats
}  // namespace vrex
