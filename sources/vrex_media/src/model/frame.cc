// frame_t and bounds_t text forms, and fetching a frame's payload wherever it lies.
#include "media/frame.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "abstraction/datasource.h"
#include "abstraction/errors.h"
#include "errors/errors.h"

namespace vrex {
namespace media {

std::string bounds_t::ToString() const {
  return "OFF:" + std::to_string(offset) + " SZ:" + std::to_string(size);
}

const char* frame_t::ToStringHeader(bool humanReadableWc) {
  return humanReadableWc ? "Type   TID  KF           OFFSET     SIZE          DTS   CTS       "
                           "                      WC(UTC)     CR"
                         : "Type   TID  KF           OFFSET     SIZE          DTS   CTS       "
                           "       WC     CR";
}

std::string frame_t::ToString() const {
  return ToString(dtsCts.dts >= 0 ? dtsCts.clockRate : 0, -1, false);
}

std::string frame_t::ToString(unsigned clockRate, long dtsOrigin, bool humanReadableWc) const {
  if (clockRate == 0 && dtsCts.dts >= 0) clockRate = dtsCts.clockRate;
  const long origin = dtsOrigin < 0 ? 0 : dtsOrigin;
  const long dts = static_cast<long>(rescale(dtsCts.dts, dtsCts.clockRate, clockRate)) - origin;
  const timestamp_t ts = dtsCts.Dts();
  char text[256];
  if (humanReadableWc) {
    const long wc = clockSync != nullptr ? clockSync->ComputeWallClock(ts, 1000) : 0;
    const unsigned cts = static_cast<unsigned>(rescale(dtsCts.cts, dtsCts.clockRate, clockRate));
    snprintf(text, sizeof(text), "   %c %5u   %d %16ld %8ld %12ld %5u %s %6u", tagKind(tag),
             trackId, keyFrame ? 1 : 0, static_cast<long>(offset), static_cast<long>(size), dts,
             cts, FormatWallClockMillis(wc).c_str(), clockRate);
  } else {
    const long wc = clockSync != nullptr ? clockSync->ComputeWallClock(ts, clockRate) : -1;
    const unsigned cts = static_cast<unsigned>(rescale(dtsCts.cts, dtsCts.clockRate, 1000));
    snprintf(text, sizeof(text), "   %c %5u   %d %16ld %8ld %12ld %5u %15ld %6u", tagKind(tag),
             trackId, keyFrame ? 1 : 0, static_cast<long>(offset), static_cast<long>(size), dts,
             cts, wc, clockRate);
  }
  return text;
}

long CopyFramePayload(const frame_t& frame, unsigned char* dst) {
  if (frame.size < 0 || frame.offset < 0) {
    return VREX_ERROR(abstraction::ERR_ABSTRACTION_INVALID_PARAMETERS);
  }
  if (frame.pData != nullptr) {
    memcpy(dst, frame.pData + frame.offset, static_cast<size_t>(frame.size));
    return static_cast<long>(frame.size);
  }
  if (frame.pDataSource == nullptr) {
    return VREX_ERROR(abstraction::ERR_ABSTRACTION_INVALID_PARAMETERS);
  }
  int err = 0;
  if (frame.pDataSource->PeekBuffer(dst, frame.offset, static_cast<unsigned long>(frame.size),
                                    err) == nullptr) {
    return err;
  }
  return static_cast<long>(frame.size);
}

}  // namespace media
}  // namespace vrex
