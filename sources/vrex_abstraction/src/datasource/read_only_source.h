// What the three read-only kinds answer alike: no queue to clear or compact, no appends, and
// (but for the file kinds, which override it) nothing read ahead.
#pragma once

#include "abstraction/datasource.h"
#include "abstraction/errors.h"

namespace vrex {
namespace abstraction {
namespace internal {

class ReadOnlyDataSource : public DataSource {
 public:
  long MultifileBaseOffset() const override { return 0; }
  void Clear() override {}
  long Optimize() override { return 0; }
  int DropReadAhead() override { return 0; }
  long AppendBufferNonBlocking(const void*, unsigned long) override {
    return VREX_ERROR(ERR_ABSTRACTION_PUT_NOT_SUPPORTED);
  }
  long AppendDataSourceNonBlocking(DataSource*, unsigned long) override {
    return VREX_ERROR(ERR_ABSTRACTION_PUT_NOT_SUPPORTED);
  }
};

}  // namespace internal
}  // namespace abstraction
}  // namespace vrex
