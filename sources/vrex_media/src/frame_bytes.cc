// Locating a frame's bytes for the codec parsers.
#include "frame_bytes.h"

#include "abstraction/datasource.h"
#include "media/errors.h"

namespace vrex {
namespace media {
namespace internal {

int GetFrameBytes(const frame_t& frame, frame_bytes_t& out) {
  if (frame.pCodecConfig != nullptr) {
    out.data = frame.pCodecConfig;
    out.size = static_cast<size_t>(frame.codecConfigSize);
    return 0;
  }
  if (frame.offset < 0 || frame.size < 0) return VREX_ERROR(ERR_MEDIA_INVALID_FRAME);
  if (frame.pData != nullptr) {
    out.data = frame.pData + frame.offset;
    out.size = static_cast<size_t>(frame.size);
    return 0;
  }
  if (frame.pDataSource == nullptr) return VREX_ERROR(ERR_MEDIA_INVALID_FRAME);
  out.copy.resize(static_cast<size_t>(frame.size));
  const long copied = CopyFramePayload(frame, out.copy.data());
  if (copied != frame.size) return VREX_ERROR(ERR_MEDIA_INVALID_FRAME);
  out.data = out.copy.data();
  out.size = out.copy.size();
  return 0;
}

int ReadFromSource(abstraction::DataSource* source, long size, std::vector<uint8_t>& out) {
  const long available = source->Size() - source->Cursor();
  if (size < 0) size = available;
  if (available < size) return VREX_ERROR(ERR_MEDIA_INVALID_FRAME);
  out.resize(static_cast<size_t>(size));
  if (size == 0) return 0;
  const long read = source->ReadBuffer(out.data(), out.size());
  return read < 0 ? static_cast<int>(read) : 0;
}

}  // namespace internal
}  // namespace media
}  // namespace vrex
