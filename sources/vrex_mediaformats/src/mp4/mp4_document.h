// Mp4Document: the layout of one plain MP4 file while it is being written: ftyp and the mdat
// header first, the samples as they come, the moov at Flush.
//
// File layout:
//   0   ftyp, 32 bytes: "mp42", minor 1, compatible "mp41" "mp42" "isom" "av01"
//   32  mdat header, 16 bytes: 00 00 00 01 "mdat" | 64-bit size of the whole box (at 40)
//   48  samples, in arrival order
//   end moov: mvhd, audio trak, video trak
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "mediaformats/mp4/writer_mp4.h"
#include "mp4/mp4_boxes.h"

namespace vrex {
namespace mediaformats {
namespace internal {

// The run of consecutive samples of one track being written; track id 0: none.
struct mp4_chunk_t {
  uint32_t trackId = 0;
  uint64_t offset = 0;
  uint32_t sampleCount = 0;
};

class Mp4Document {
 public:
  // `audio`, `video`: null when the track is absent; they must outlive the document.
  Mp4Document(const std::string& name, const MP4TrackInfo* audio, const MP4TrackInfo* video,
              WriterMP4::Observer* observer);

  // Builds the tracks and writes ftyp and the mdat header with `mdatSize` (0: patched at
  // Flush).
  int Init(unsigned long mdatSize);
  // Returns 0 or a negative code; a frame with no picture in it is skipped with success.
  int WriteVideoData(const void* data, size_t size, const media::dts_cts_t& dtsCts, bool keyFrame,
                     uint64_t tag);
  int WriteAudioData(const void* data, size_t size, const media::dts_cts_t& dtsCts, uint64_t tag);
  int Flush();
  unsigned long MdatSize() const { return _mdatSize; }

 private:
  static constexpr uint64_t kMdatStart = 32;
  static constexpr uint64_t kMdatSizeOffset = 40;

  int WriteMoov();
  int SaveSample(trak_t* trak, const media::dts_cts_t& dtsCts, uint32_t size, bool keyFrame);
  int PushChunk();
  int WriteSample(trak_t* trak, const unsigned char* data, size_t size,
                  const media::dts_cts_t& dtsCts, bool keyFrame, const char* what);

  std::string _name;
  const MP4TrackInfo* _audioInfo;
  const MP4TrackInfo* _videoInfo;
  WriterMP4::Observer* _pObserver;
  std::unique_ptr<trak_t> _audio;
  std::unique_ptr<trak_t> _video;
  uint32_t _nextTrackId = 1;
  unsigned long _mdatSize = 0;
  uint64_t _writeOffset = 0;
  mp4_chunk_t _chunk;
  BoxBuffer _raw;                    // header boxes being assembled
  std::vector<unsigned char> _kept;  // the picture NAL units of the current frame
};

}  // namespace internal
}  // namespace mediaformats
}  // namespace vrex
