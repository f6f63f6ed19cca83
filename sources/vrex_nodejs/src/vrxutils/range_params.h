// The wall-clock range of the functions that cut or copy: wallClockStart and wallClockEnd in
// ms, both required, 0 <= wallClockStart <= wallClockEnd. A reversed range would take from
// the partitions around it rather than from none.
#pragma once

#include "common/property_reader.h"

namespace vrex {
namespace nodejs {
namespace vrxutils {

struct wall_clock_range_t {
  long wallClockStart = 0;
  long wallClockEnd = 0;

  bool ReadRange(common::PropertyReader& reader) {
    return reader.ReadInteger("wallClockStart", &wallClockStart) != nullptr &&
           reader.ReadInteger("wallClockEnd", &wallClockEnd) != nullptr && wallClockStart >= 0 &&
           wallClockStart <= wallClockEnd;
  }
};

}  // namespace vrxutils
}  // namespace nodejs
}  // namespace vrex
