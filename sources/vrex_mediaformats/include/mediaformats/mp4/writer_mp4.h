// WriterMP4: one plain MP4 file (ftyp, one mdat, moov last) pushed through an observer as the
// samples arrive. Only the sample tables are held in memory until Flush. When the mdat size is
// announced with MdatSize(size) before the first frame, the output is written strictly in
// order (no seek); otherwise Flush seeks back once to patch the mdat size at offset 40.
//
// Threads: one thread at a time; the observer is called on that thread, synchronously, and a
// pointer it receives is valid only during the call.
#pragma once

#include <cstddef>
#include <string>

#include "mediaformats/base_writer.h"
#include "mediaformats/mp4/mp4_track_info.h"

namespace vrex {
namespace mediaformats {

class WriterMP4 : public BaseWriter {
 public:
  class Observer {
   public:
    virtual ~Observer() = default;
    virtual bool WriteMP4Data(const unsigned char* data, size_t size) = 0;
    // The writer only passes whence 0 (from the start of the file).
    virtual bool SeekIntoMP4Data(long offset, long whence) = 0;
    // Part of the interface for the caller's use; the writer never calls it.
    virtual void WriteMP4Complete() = 0;
  };

  // Returns an owning pointer, or null with `error` set: ERR_MEDIAFORMATS_INVALID_TRACK_INFO
  // when both infos are null or the observer is. Either info may be null (no such track); the
  // infos are copied. `name` identifies the output in logs. The observer must outlive the
  // writer.
  static WriterMP4* Create(const std::string& name, const MP4TrackInfo* audio,
                           const MP4TrackInfo* video, Observer* observer, int& error);

  // The write calls return the input size (also for a frame skipped because it carries no
  // picture) or a negative code: ERR_MEDIAFORMATS_INVALID_TRACK_INFO (track info refused at
  // the first frame), ERR_MEDIAFORMATS_INCORRECT_PARAMETERS (unsupported codec, bad ADTS),
  // ERR_MEDIAFORMATS_DATA_SOURCE_IO (the observer failed).
  using BaseWriter::WriteAudioData;
  using BaseWriter::WriteVideoData;

  // Completes the file: mdat size, then moov. Without any frame written it writes nothing and
  // returns 0. ERR_MEDIAFORMATS_INCORRECT_PARAMETERS when an announced mdat size was wrong (no
  // moov is written), ERR_MEDIAFORMATS_DATA_SOURCE_IO when the observer failed.
  virtual int Flush() = 0;
  // The mdat size announced at creation, or, once Flush has patched it, the real one; 0 before
  // the first frame and until then.
  virtual unsigned long MdatSize() = 0;
  // Announces the whole mdat box size, its 16 header bytes included. Counts only before the
  // first frame.
  virtual void MdatSize(unsigned long size) = 0;
};

}  // namespace mediaformats
}  // namespace vrex
