// The wall-clock range of the functions that cut or copy: wallClockStart and wallClockEnd in
// ms, both required, 0 <= wallClockStart <= wallClockEnd. A reversed range would take from
// the partitions around it rather than from none.
#pragma once

#include "common/property_reader.h"

namespace vrex {
namespace nodejs {
namespace vrxutils {

inline bool ReadWallClockRange(common::PropertyReader& reader, long& start, long& end) {
  return reader.ReadInteger("wallClockStart", &start) != nullptr &&
         reader.ReadInteger("wallClockEnd", &end) != nullptr && start >= 0 && start <= end;
}

}  // namespace vrxutils
}  // namespace nodejs
}  // namespace vrex
