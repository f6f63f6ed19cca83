// The process-wide set of Work threads: made all at once at the first request, never
// destroyed, handed out one per running task.
#pragma once

#include <memory>

#include "common/work.h"

namespace vrex {
namespace nodejs {
namespace common {

// Sets how many threads the first GetWorkInstance makes; a value outside 1..1023 selects
// std::thread::hardware_concurrency(). Once the threads exist this changes nothing. Returns
// the size in force (-1 while neither a size nor a first request has fixed it). Any thread.
int SetWorkPoolMaxSize(int size);

// The oldest free Work, or an empty pointer when all are in use. Any thread.
std::shared_ptr<Work> GetWorkInstance();

// Gives a Work back to the free list. Any thread.
void ReleaseWork(std::shared_ptr<Work> work);

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
