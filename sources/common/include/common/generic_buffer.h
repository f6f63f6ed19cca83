// generic_buffer_t: a small byte queue over a memory block, which remembers where the pushed
// messages end (boundary marks), so a reader can pop whole messages.
//
//     block: 0 .... read ====== write .... capacity
//     marks: offsets of message ends, counted from `read`, ascending
//
// No lock: a buffer belongs to one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "abstraction/logging.h"

namespace vrex {
namespace common {

// An owned block of bytes that can grow, keeping its contents.
struct memory_block_t {
  memory_block_t() = default;
  virtual ~memory_block_t() { delete[] _block; }
  memory_block_t(const memory_block_t&) = delete;
  memory_block_t& operator=(const memory_block_t&) = delete;

  size_t capacity() const { return _capacity; }
  uint8_t* block() const { return _block; }

  // Grows to at least `capacity` bytes, keeping the first `keep` bytes.
  void grow(size_t capacity, size_t keep) {
    if (capacity <= _capacity) return;
    uint8_t* grown = new uint8_t[capacity];
    if (keep > 0) memcpy(grown, _block, keep);
    delete[] _block;
    _block = grown;
    _capacity = capacity;
  }

 protected:
  size_t _capacity = 0;
  uint8_t* _block = nullptr;  // owned, new[]
};

template <typename Block>
class generic_buffer_t : public Block {
 public:
  // Bytes pushed and not yet popped.
  size_t available() const { return _writePosition - _readPosition; }
  // The first unread byte; valid until the next push or pop.
  const uint8_t* data() const { return this->block() + _readPosition; }
  // Ends of the messages still in the buffer, as offsets from data().
  const std::vector<unsigned long>& boundaries() const { return _boundaries; }

  // Appends `count` bytes; with `markBoundary` their end becomes a message boundary.
  void push(const void* src, size_t count, bool markBoundary) {
    if (count > 0) {
      makeRoom(count);
      memcpy(this->block() + _writePosition, src, count);
      _writePosition += count;
    }
    if (markBoundary) _boundaries.push_back(available());
  }

  // Copies `count` bytes to `dst` and drops them, with the boundaries they covered; true when
  // it did. A null `dst` or a count of 0 does nothing; more than available() logs a fatal
  // line and does nothing.
  bool pop(void* dst, size_t count) {
    if (dst == nullptr || count == 0) return false;
    if (count > available()) {
      LOGF << "Invalid pop size."
           << " available(): " << available() << "; requested pop size: " << count;
      return false;
    }
    memcpy(dst, data(), count);
    _readPosition += count;
    if (_readPosition == _writePosition) _readPosition = _writePosition = 0;
    size_t passed = 0;
    while (passed < _boundaries.size() && _boundaries[passed] <= count) ++passed;
    _boundaries.erase(_boundaries.begin(), _boundaries.begin() + passed);
    for (unsigned long& mark : _boundaries) mark -= count;
    return true;
  }

  void clear() {
    _boundaries.clear();
    _readPosition = _writePosition = 0;
  }

 private:
  // Frees `count` bytes behind the write position: first by moving the data to the front,
  // then by doubling the block.
  void makeRoom(size_t count) {
    if (this->capacity() - _writePosition >= count) return;
    const size_t used = available();
    if (_readPosition > 0) {
      memmove(this->block(), data(), used);
      _readPosition = 0;
      _writePosition = used;
      if (this->capacity() - used >= count) return;
    }
    size_t capacity = this->capacity() > 0 ? this->capacity() : 256;
    while (capacity - used < count) capacity *= 2;
    this->grow(capacity, used);
  }

  std::vector<unsigned long> _boundaries;
  size_t _writePosition = 0;
  size_t _readPosition = 0;
};

}  // namespace common
}  // namespace vrex
