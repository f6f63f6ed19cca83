// interval_t: validity, size and intersection of closed intervals.
#include "abstraction/interval.h"

#include <gtest/gtest.h>

namespace vrex {
namespace abstraction {
namespace {

TEST(IntervalTest, ValidityAndSize) {
  const struct {
    interval_t interval;
    bool valid;
    long size;
  } rows[] = {
      {{0, 0}, true, 1}, {{4, 19}, true, 16}, {{5, 4}, false, -1}, {{-1, 3}, false, -1},
      {{-1, -1}, false, -1}, {{}, false, -1}, {{0, 0x7FFFFFFFFFFFFFFEL}, true, 0x7FFFFFFFFFFFFFFFL},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(row.interval.IsValid(), row.valid) << row.interval.ToString();
    EXPECT_EQ(row.interval.Size(), row.size) << row.interval.ToString();
  }
}

TEST(IntervalTest, IntersectionIsWhatBothHold) {
  const struct {
    interval_t a, b, common;
  } rows[] = {
      {{0, 9}, {5, 20}, {5, 9}},   {{5, 20}, {0, 9}, {5, 9}},    {{0, 9}, {9, 9}, {9, 9}},
      {{0, 9}, {10, 20}, {-1, -1}}, {{3, 4}, {0, 100}, {3, 4}},   {{0, 9}, {-1, -1}, {-1, -1}},
      {{8, 2}, {0, 9}, {-1, -1}},  {{100, 200}, {150, 150}, {150, 150}},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(row.a.Intersect(row.b), row.common) << row.a.ToString() << " & " << row.b.ToString();
  }
  EXPECT_EQ(interval_t(3, 17).ToString(), "[3, 17]");
}

}  // namespace
}  // namespace abstraction
}  // namespace vrex
