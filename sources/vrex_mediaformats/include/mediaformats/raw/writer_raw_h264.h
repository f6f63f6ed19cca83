// WriterRawH264: video frames handed to an observer as they are, or converted between 4-byte
// length prefixes and start codes. No container, no timing.
//
// Threads: one thread at a time; the observer runs on it, and the bytes it receives are valid
// only during the call.
#pragma once

#include <cstddef>

#include "mediaformats/base_writer.h"

namespace vrex {
namespace mediaformats {

class WriterRawH264 : public BaseWriter {
 public:
  class Observer {
   public:
    virtual ~Observer() = default;
    virtual bool WriteH264Data(const void* data, size_t size) = 0;
  };

  // `inputIsAvcc`/`outputIsAvcc`: length-prefixed when true, start codes when false. Returns
  // an owning pointer, or null with ERR_MEDIAFORMATS_NULL_OBSERVER. The observer must outlive
  // the writer.
  static WriterRawH264* Create(bool inputIsAvcc, bool outputIsAvcc, Observer* observer, int& error);

  // WriteVideoData returns the byte count handed on (0 for an empty frame), the converter's
  // code (ERR_MEDIA_INVALID_NALU for a length past the frame; nothing reaches the observer
  // then) or ERR_MEDIAFORMATS_WRITER_OBSERVER_FAILED; its tagged form does the same whatever
  // the tag (H.265 units are framed alike). The other calls accept and ignore.
  using BaseWriter::WriteAudioData;
  using BaseWriter::WriteVideoData;
};

}  // namespace mediaformats
}  // namespace vrex
