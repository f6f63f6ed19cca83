// frame_t: one frame on its way from a reader to a writer. It owns nothing and is valid until
// the reader's next read; the clock sync it points at belongs to the reader.
#pragma once

#include <cstdint>
#include <string>

#include "media/clock_sync.h"
#include "media/codec_tags.h"
#include "media/timestamp.h"

namespace vrex {
namespace abstraction {
class DataSource;
}  // namespace abstraction

namespace media {

struct bounds_t {
  int64_t offset = 0;
  int64_t size = 0;
  // "OFF:<offset> SZ:<size>".
  std::string ToString() const;
};

struct frame_t {
  uint16_t trackId = 0;
  uint64_t tag = TAG_UNK;
  bool keyFrame = false;                    // audio frames are always key
  const clock_sync_t* clockSync = nullptr;  // mapping in force for this frame; not owned
  dts_cts_t dtsCts;
  // Where the payload is: in memory at pData + offset when pData is set, otherwise in
  // pDataSource at offset.
  const unsigned char* pData = nullptr;
  abstraction::DataSource* pDataSource = nullptr;
  const unsigned char* pCodecConfig = nullptr;  // out-of-band configuration, e.g. an MP4's ASC
  uint64_t codecConfigSize = 0;
  int64_t offset = 0;
  int64_t size = 0;
  uint64_t lengthSize = 4;

  // The column header above ToString lines, with or without the human wall-clock column.
  static const char* ToStringHeader(bool humanReadableWc);
  // ToString(own rate when the DTS is valid else 0, -1, false).
  std::string ToString() const;
  // One listing line: kind, TID, key flag, offset, size, DTS in `clockRate` less `dtsOrigin`
  // (negative counts as 0), CTS, wall clock, rate. A zero `clockRate` means the frame's own.
  std::string ToString(unsigned clockRate, long dtsOrigin, bool humanReadableWc) const;
};

// Copies the frame's `size` payload bytes to `dst` (which holds at least that many), from
// memory or from its data source. Returns the byte count or a negative code.
long CopyFramePayload(const frame_t& frame, unsigned char* dst);

}  // namespace media
}  // namespace vrex
