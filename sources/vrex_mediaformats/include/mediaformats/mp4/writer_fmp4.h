// WriterFMP4: frames as a fragmented MP4: one initialisation segment (ftyp, moov) and then
// moof+mdat fragments, through an observer, with no seek.
//
// Plain mode: the observer gets the segment (state 1) and each complete fragment (state 2)
// between Begin/End calls; a fragment's samples are held until it closes.
// Progressive mode: every piece goes out tagged as soon as it exists, samples included, so a
// fragment's moof comes after its samples: per fragment BEGIN, then VIDEO_BUFFER and
// AUDIO_BUFFER per sample, then MOOF pieces (moof head, then per track the traf head and its
// entries), the 0xF7 metadata when asked for, HEADER_MDAT, END. The consumer lays the fragment
// out as moof, mdat header, all video samples, all audio samples.
//
// Fragments close on duration (video decides when there is video) or, in key-frame mode, on
// each video key frame; audio that comes before the first video frame is held and written
// after it. Each track's base decode time (tfdt) is the PTS of its first sample in the
// fragment, or that instant on the wall clock with wallClockTimestamps and a valid clock sync.
//
// Threads: one thread at a time; observers run on it, and the bytes they receive are valid
// only during the call.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "errors/errors.h"
#include "mediaformats/base_writer.h"
#include "mediaformats/mp4/mp4_track_info.h"

namespace vrex {
namespace mediaformats {

// The track's codec differs from the frame's: the caller starts a new writer. One past the
// table row that describes it, as callers have always compared it.
constexpr int ERR_MEDIAFORMATS_WRITER_CODEC_CHANGED = ::vrex::errors::MakeError(12, 40);

enum FMP4ProgressiveBufferType : uint8_t {
  FMP4_PROGRESSIVE_EXTENDED_METADATA = 0xF7,  // big-endian 64-bit PTS in ms: first, last, keys
  FMP4_PROGRESSIVE_CODECS = 0xF8,             // the codecs string, e.g. avc1.640028,mp4a.40.2
  FMP4_PROGRESSIVE_BEGIN = 0xF9,              // empty: a fragment starts
  FMP4_PROGRESSIVE_MOOV = 0xFA,               // ftyp and moov
  FMP4_PROGRESSIVE_MOOF = 0xFB,               // a piece of moof
  FMP4_PROGRESSIVE_VIDEO_BUFFER = 0xFC,       // one video sample
  FMP4_PROGRESSIVE_AUDIO_BUFFER = 0xFD,       // one audio sample
  FMP4_PROGRESSIVE_HEADER_MDAT = 0xFE,        // the 8-byte mdat header
  FMP4_PROGRESSIVE_END = 0xFF,                // empty: the fragment is complete
};

// "BEGIN", "MOOV", "MOOF", "VIDEO_BUFFER", "AUDIO_BUFFER", "HEADER_MDAT", "END"; other values
// as "0x%02x" in a static buffer.
const char* FMP4ProgressiveBufferTypeToString(FMP4ProgressiveBufferType type);

enum FMP4WriteState {
  FMP4_WRITE_STATE_INIT = 1,      // the initialisation segment
  FMP4_WRITE_STATE_FRAGMENT = 2,  // a fragment
};

class WriterFMP4 : public BaseWriter {
 public:
  // Every call returns true to go on; false aborts the fragment being written.
  class Observer {
   public:
    virtual ~Observer() = default;
    virtual bool SignalBeginWriteMOOV() = 0;
    // `mvhdDurationOffset`: where the movie duration word stands in the segment. The second
    // argument is always false.
    virtual bool SignalEndWriteMOOV(unsigned int mvhdDurationOffset, bool) = 0;
    virtual bool SignalBeginWriteFragment(long startMs) = 0;
    virtual bool SignalEndWriteFragment(long endMs) = 0;
    virtual bool SignalWriteProgressiveBuffer(FMP4ProgressiveBufferType type, const void* data,
                                              size_t size) = 0;
    virtual bool SignalWriteBuffer(FMP4WriteState state, const void* data, size_t size) = 0;
  };

  // Video is track 1 and audio 2 (1 without video). `fragmentDuration` applies unless a track
  // asks for a fragment per key frame; `fragmentOnKf` cuts only on video key frames. Returns
  // an owning pointer, or null with `error`: ERR_MEDIAFORMATS_INVALID_FRAGMENT_DURATION (rate
  // 0 or negative value), ERR_MEDIAFORMATS_NULL_OBSERVER, ERR_MEDIAFORMATS_INVALID_TRACK_INFO.
  // The infos are copied.
  static WriterFMP4* Create(const std::string& name, const MP4TrackInfo* audio,
                            const MP4TrackInfo* video, bool progressive,
                            const media::timestamp_t& fragmentDuration, bool fragmentOnKf,
                            bool wallClockTimestamps, Observer* observer, int& error);

  // The write calls return 0 or: ERR_MEDIAFORMATS_WRITER_CODEC_CHANGED,
  // ERR_MEDIAFORMATS_INCORRECT_PARAMETERS (AV1 frame without OBUs), the ADTS code, or
  // ERR_MEDIAFORMATS_FMP4_WRITER_STATE (the observer refused or the state is broken).
  using BaseWriter::WriteAudioData;
  using BaseWriter::WriteVideoData;

  // Closes the open fragment. `audioLast`/`videoLast` (may be null) receive where each
  // track's timeline ends, in its timescale. ERR_MEDIAFORMATS_FMP4_WRITER_STATE when a track
  // has no sample in the fragment or the observer refused.
  virtual int Flush(media::timestamp_t* audioLast, media::timestamp_t* videoLast) = 0;
};

}  // namespace mediaformats
}  // namespace vrex
