// ReaderMp4: an MP4 file as one list of frames sorted by decoding time across its tracks, so
// that it can be served by the same pump as a VRX file. The whole moov is read at Create; the
// samples stay in the file and are read by the caller through each frame's data source.
//
// Recognised sample entries: avc1 (H.264), hev1 (H.265), mp4a (AAC), ac-3; other tracks give
// frames tagged UNK. Timing comes from stts and ctts; edit lists are ignored.
// Threads: one thread at a time.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "media/frame.h"
#include "media/timestamp.h"
#include "mediaformats/vrx/partition.h"

namespace vrex {
namespace mediaformats {

class ReaderMp4 {
 public:
  // Given at creation and kept for the reader's life; no path calls it yet.
  class Observer {
   public:
    virtual ~Observer() = default;
  };

  // Opens `path` (`flag` is handed to the data source as it stands) and reads its structure.
  // Returns an owning pointer or null with `error`: ERR_MEDIAFORMATS_NULL_OBSERVER, the data
  // source's code, ERR_MEDIAFORMATS_MP4_PARSING (a box header that does not fit the file) or
  // ERR_MEDIAFORMATS_INTERNAL_STATE (a box whose content is not what it should be).
  static ReaderMp4* Create(Observer* observer, const std::string& path, bool flag, int& error);
  // The same over any data source, which the reader then owns (freed with it, also on
  // failure).
  static ReaderMp4* Create(Observer* observer, abstraction::DataSource* source, int& error);
  // An unopened reader: no frames.
  static ReaderMp4* Create(Observer* observer, int& error);

  virtual ~ReaderMp4() = default;

  // The first and last frame's timing; dts -1 when there are no frames.
  virtual media::dts_cts_t GetStartTimestamp() const = 0;
  virtual media::dts_cts_t GetEndTimestamp() const = 0;
  // The next frame, valid until the reader is destroyed (the list lives as long as the
  // reader); null with `error` 0 at the end. Its payload is `size` bytes at `offset` in its
  // `pDataSource`.
  virtual media::frame_t* ReadFrame(int& error) = 0;
  // Rewinds to the first frame whatever the arguments; returns {-1, 0}.
  virtual std::pair<long, int> SeekToWallClock(long millis, snap_to_idr_t mode) = 0;
  // Not available on MP4 files: ERR_MEDIAFORMATS_NOT_IMPLEMENTED (ReadPartition: null with
  // `err` set).
  virtual int SeekToRawOffset(long offset) = 0;
  virtual const partition_t* ReadPartition(PartitionLastTimestampType type, int& err) = 0;
  virtual int ListFragments(long startMillis, long endMillis, std::vector<fragment_t>& out) = 0;
  virtual int GetStartStopTimestamp(long& start, long& stop) = 0;
};

}  // namespace mediaformats
}  // namespace vrex
