// BaseWriter: what every writer (MP4, fragmented MP4, raw H.264, VRX) takes from a reader.
//
// Threads: a writer is used from one thread at a time; its observer runs on that thread.
// Results: the write calls return 0 or a positive count on success, a negative code on failure.
#pragma once

#include <cstddef>

#include "media/clock_sync.h"
#include "media/timestamp.h"

namespace vrex {
namespace mediaformats {

class BaseWriter {
 public:
  virtual ~BaseWriter() = default;
  // The untagged forms take the frame as H.264 (video) or AAC (audio).
  virtual int WriteVideoData(const void* data, size_t size, const media::dts_cts_t& dtsCts,
                             bool keyFrame) = 0;
  // `tag` is a codec tag of media/codec_tags.h. Returns 0 unless a writer overrides it.
  virtual int WriteVideoData(const void* data, size_t size, const media::dts_cts_t& dtsCts,
                             bool keyFrame, unsigned long tag);
  virtual int WriteAudioData(const void* data, size_t size, const media::dts_cts_t& dtsCts) = 0;
  virtual int WriteAudioData(const void* data, size_t size, const media::dts_cts_t& dtsCts,
                             unsigned long tag);
  virtual int WriteClockSync(const media::clock_sync_t& clockSync) = 0;
  virtual int WriteImageData(const char* data, size_t size, const media::dts_cts_t& dtsCts,
                             unsigned long tag) = 0;
  virtual int WriteSnapshotMeta(const media::dts_cts_t& dtsCts, unsigned long tag) = 0;
};

}  // namespace mediaformats
}  // namespace vrex
