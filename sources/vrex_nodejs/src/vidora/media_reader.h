// MediaReader: a recording as the media pump reads it, a VRX file (one or several read as one)
// or an MP4 file, behind the calls the pump makes. Owned by its operation; one thread.
#pragma once

#include <memory>
#include <type_traits>
#include <utility>

#include "media/frame.h"
#include "mediaformats/mp4/reader_mp4.h"
#include "mediaformats/vrx/partition.h"

namespace vrex {
namespace nodejs {
namespace vidora {

class MediaReader {
 public:
  virtual ~MediaReader() = default;
  virtual media::frame_t* ReadFrame(int& error) = 0;
  virtual std::pair<long, int> SeekToWallClock(long millis, mediaformats::snap_to_idr_t mode) = 0;
  virtual int SeekToRawOffset(long offset) = 0;
  virtual const mediaformats::partition_t* ReadPartition(mediaformats::PartitionLastTimestampType type,
                                                         int& error) = 0;
  // Back to the first frame of the reader's range.
  virtual int Rewind() = 0;
  // Forgets what the reader read ahead: called whenever the files were locked again, since
  // others may have changed them while they were unlocked. 0 or the reader's code.
  virtual int DropReadAhead() = 0;
};

// The one implementation: every reader kind has these calls under the same names. `start` is
// the raw offset where the reader's range begins.
template <class Reader>
class MediaReaderOf : public MediaReader {
 public:
  MediaReaderOf(Reader* reader, long start) : _reader(reader), _start(start) {}
  media::frame_t* ReadFrame(int& error) override { return _reader->ReadFrame(error); }
  std::pair<long, int> SeekToWallClock(long millis, mediaformats::snap_to_idr_t mode) override {
    return _reader->SeekToWallClock(millis, mode);
  }
  int SeekToRawOffset(long offset) override { return _reader->SeekToRawOffset(offset); }
  const mediaformats::partition_t* ReadPartition(mediaformats::PartitionLastTimestampType type,
                                                 int& error) override {
    return _reader->ReadPartition(type, error);
  }
  int Rewind() override {
    // An MP4 reader goes back to its first frame whatever it is asked.
    if constexpr (std::is_same_v<Reader, mediaformats::ReaderMp4>) {
      return _reader->SeekToWallClock(0, mediaformats::SNAP_TO_IDR_BEFORE).second == 0 ? 0 : -1;
    } else {
      return _reader->SeekToRawOffset(_start);
    }
  }
  int DropReadAhead() override {
    // An MP4 file is complete when it is served: nobody changes it under the reader.
    if constexpr (std::is_same_v<Reader, mediaformats::ReaderMp4>) {
      return 0;
    } else {
      return _reader->DropReadAhead();
    }
  }

 private:
  std::unique_ptr<Reader> _reader;
  const long _start;
};

}  // namespace vidora
}  // namespace nodejs
}  // namespace vrex
