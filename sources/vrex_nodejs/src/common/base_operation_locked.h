// The scope of BaseOperation's mutex, shared by its source files.
#pragma once

#include <pthread.h>

#include "common/base_operation.h"

namespace vrex {
namespace nodejs {
namespace common {

class BaseOperation::Locked {
 public:
  explicit Locked(pthread_mutex_t& mutex) : _mutex(mutex) { pthread_mutex_lock(&_mutex); }
  ~Locked() { pthread_mutex_unlock(&_mutex); }
  Locked(const Locked&) = delete;
  Locked& operator=(const Locked&) = delete;

 private:
  pthread_mutex_t& _mutex;
};

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
