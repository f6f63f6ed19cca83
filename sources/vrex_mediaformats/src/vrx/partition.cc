// partition_t: deep copies of the seek table, and the listing text.
#include "mediaformats/vrx/partition.h"

#include <cstdio>
#include <cstring>

#include "abstraction/logging.h"
#include "media/timestamp.h"

namespace vrex {
namespace mediaformats {

namespace {
std::string WallClockText(long millis, bool human) {
  return human ? media::FormatWallClockMillis(millis) : std::to_string(millis);
}
}  // namespace

partition_t::partition_t(const partition_t& other) { *this = other; }

partition_t& partition_t::operator=(const partition_t& other) {
  if (this == &other) return *this;
  _offset = other._offset;
  _size = other._size;
  memcpy(_fixedMetadata, other._fixedMetadata, sizeof(_fixedMetadata));
  _dynamicMetadata = other._dynamicMetadata;
  _contents = other._contents;
  _lastWallClockMillis = other._lastWallClockMillis;
  SetSeekpoints(other._pSeekPoints, other._seekPointsCount);
  return *this;
}

partition_t::~partition_t() { delete[] _pSeekPoints; }

void partition_t::AllocateSeekPoints(unsigned long count, bool zero) {
  delete[] _pSeekPoints;
  _pSeekPoints = nullptr;
  _seekPointsCount = count;
  if (count == 0) return;
  _pSeekPoints = zero ? new seek_point_t[count]() : new seek_point_t[count];
}

void partition_t::SetSeekpoints(const seek_point_t* points, unsigned long count) {
  AllocateSeekPoints(points != nullptr ? count : 0, false);
  if (_seekPointsCount > 0) memcpy(_pSeekPoints, points, count * sizeof(seek_point_t));
}

void partition_t::Clear() { *this = partition_t(); }

std::string partition_t::ToString(bool humanTimes) const {
  std::string text = "\n  fixed metadata: " + abstraction::dump_s(_fixedMetadata, kFixedMetadataSize);
  char line[160];
  snprintf(line, sizeof(line), "\ndynamic metadata: %ld/%ld", _dynamicMetadata._offset,
           _dynamicMetadata._size);
  text += line;
  snprintf(line, sizeof(line), "\n        contents: %ld/%ld", _contents._offset, _contents._size);
  text += line;
  snprintf(line, sizeof(line), "\n     seek points: %zu", static_cast<size_t>(_seekPointsCount));
  text += line;
  for (size_t i = 0; i < _seekPointsCount; ++i) {
    snprintf(line, sizeof(line), "\n    %4zu. OFF: %ld; WC: %s", i, _pSeekPoints[i]._offset,
             WallClockText(_pSeekPoints[i]._wallClockMillis, humanTimes).c_str());
    text += line;
  }
  if (_lastWallClockMillis > 0) {
    snprintf(line, sizeof(line), "\n     END. OFF: %ld; WC: %s",
             _contents._offset + _contents._size,
             WallClockText(_lastWallClockMillis, humanTimes).c_str());
    text += line;
  }
  return text;
}

}  // namespace mediaformats
}  // namespace vrex
