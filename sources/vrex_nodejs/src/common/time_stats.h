// time_stats_t: what a task's run cost, and what a pool adds up per task name.
#pragma once

#include <cstdint>

namespace vrex {
namespace nodejs {
namespace common {

class time_stats_t {
 public:
  virtual ~time_stats_t() = default;

  // Adds `other`, field by field.
  void Add(const time_stats_t& other) {
    userUs += other.userUs;
    cpuUs += other.cpuUs;
    count += other.count;
  }

  uint64_t userUs = 0;  // elapsed microseconds of SignalWork
  uint64_t cpuUs = 0;   // CPU microseconds of the worker thread in that time
  uint64_t count = 0;
};

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
