// WriterFMP4Impl: the state of a fragmented MP4 being written: the segment and fragment
// flags, the two tracks and the audio held until the first video frame.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "fmp4/track_context.h"
#include "media/clock_sync.h"
#include "mediaformats/mp4/writer_fmp4.h"
#include "mp4/box_buffer.h"

namespace vrex {
namespace mediaformats {
namespace internal {

// An audio frame that came before the segment was open: a copy of its bytes and its time.
struct BufferedAudio {
  std::vector<uint8_t> _data;
  media::dts_cts_t dtsCts;
};

class WriterFMP4Impl : public WriterFMP4 {
 public:
  WriterFMP4Impl(const std::string& name, Observer* observer);

  int Initialize(const MP4TrackInfo* audio, const MP4TrackInfo* video, bool progressive,
                 const media::timestamp_t& fragmentDuration, bool fragmentOnKf,
                 bool wallClockTimestamps);

  int WriteVideoData(const void* data, size_t size, const media::dts_cts_t& dtsCts,
                     bool keyFrame) override;
  int WriteVideoData(const void* data, size_t size, const media::dts_cts_t& dtsCts, bool keyFrame,
                     unsigned long tag) override;
  int WriteAudioData(const void* data, size_t size, const media::dts_cts_t& dtsCts) override;
  int WriteAudioData(const void* data, size_t size, const media::dts_cts_t& dtsCts,
                     unsigned long tag) override;
  int WriteClockSync(const media::clock_sync_t& clockSync) override;
  int WriteImageData(const char*, size_t, const media::dts_cts_t&, unsigned long) override { return 0; }
  int WriteSnapshotMeta(const media::dts_cts_t&, unsigned long) override { return 0; }
  int Flush(media::timestamp_t* audioLast, media::timestamp_t* videoLast) override;

 private:
  bool WriteData(TrackContext& track, const void* data, size_t size, const media::dts_cts_t& dtsCts,
                 bool keyFrame);
  bool MustFragment(const TrackContext& track, const media::dts_cts_t& ts, int64_t fedDts,
                    bool keyFrame) const;
  bool OpenSegment();
  bool OpenFragment();
  bool NewFragment(const media::dts_cts_t& end);
  bool CloseFragment(const media::dts_cts_t& end, media::timestamp_t* audioLast,
                     media::timestamp_t* videoLast);
  bool CloseFragmentTrack(TrackContext& track, const media::dts_cts_t& end, uint32_t moofSize);
  bool WriteTrackBuffers(const TrackContext& track);
  bool SendFragment();
  // A codec change between a track and a frame; unknown codecs never count.
  bool CodecChanged(uint64_t trackTag, uint64_t frameTag, uint64_t unknownOfKind) const;

  std::string _name;
  Observer* _pObserver;
  uint64_t _creationTime;
  std::string _codecs;
  BoxBuffer _init;
  BoxBuffer _moof;
  uint32_t _fragmentSequence = 0;
  uint32_t _mfhdSequenceOffset = 0;
  uint32_t _mvhdDurationOffset = 0;
  uint8_t _mdatHeader[8] = {0, 0, 0, 0, 'm', 'd', 'a', 't'};
  bool _segmentOpen = false;
  bool _fragmentOpen = false;
  media::dts_cts_t _firstDtsCts;
  TrackContext _audio;
  TrackContext _video;
  bool _progressive = false;
  uint64_t _audioBytes = 0;
  uint64_t _videoBytes = 0;
  media::dts_cts_t _maxPts;
  media::dts_cts_t _lastVideoDtsCts;
  std::deque<std::unique_ptr<BufferedAudio>> _bufferedAudio;
  bool _fragmentOnKf = false;
  media::clock_sync_t _clockSync;
  media::clock_sync_t _latestClockSync;
  bool _wallClockTimestamps = false;
  bool _trace = false;  // ADDON_WRITER_FMP4_TRACE is set: a debug line per fragment
  std::vector<uint8_t> _strippedAv1;
};

}  // namespace internal
}  // namespace mediaformats
}  // namespace vrex
