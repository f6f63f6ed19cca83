// The bit reader: values against bit patterns worked out by hand, and its two error codes.
#include "media/bitsreaderstate.h"

#include <gtest/gtest.h>

#include <vector>

#include "abstraction/errors.h"

namespace {

using ms::media::BitsReaderState;
using vrex::abstraction::ERR_ABSTRACTION_INVALID_PARAMETERS;
using vrex::abstraction::ERR_ABSTRACTION_RANGE_NOT_AVAILABLE;

TEST(BitsReaderStateTest, ReadsBitsMostSignificantFirst) {
  const uint8_t data[] = {0xA5, 0x3C, 0xFF, 0x01, 0x80, 0x00, 0x00, 0x00, 0x01};
  struct Case {
    size_t n;
    uint64_t value;
  } cases[] = {{1, 1}, {3, 0b010}, {4, 0b0101}, {12, 0x3CF}, {12, 0xF01}, {1, 1}, {39, 1}};
  BitsReaderState bits(data, sizeof(data));
  uint64_t cursor = 0;
  for (const Case& c : cases) {
    uint64_t value = 0;
    ASSERT_EQ(0, bits.ReadBits(c.n, value)) << c.n;
    EXPECT_EQ(c.value, value) << "after bit " << cursor;
    cursor += c.n;
    EXPECT_EQ(cursor, bits.cursorBits);
  }
  uint8_t none = 0;
  EXPECT_EQ(ERR_ABSTRACTION_RANGE_NOT_AVAILABLE, bits.ReadBits(1, none));
}

TEST(BitsReaderStateTest, RefusesMoreBitsThanTheTypeHoldsAndKeepsTheCursor) {
  const uint8_t data[] = {0xFF, 0xFF, 0xFF};
  BitsReaderState bits(data, sizeof(data));
  uint8_t small = 0;
  EXPECT_EQ(ERR_ABSTRACTION_INVALID_PARAMETERS, bits.ReadBits(9, small));
  EXPECT_EQ(0u, bits.cursorBits);
  uint32_t wide = 0;
  EXPECT_EQ(ERR_ABSTRACTION_RANGE_NOT_AVAILABLE, bits.ReadBits(25, wide));
  EXPECT_EQ(0u, bits.cursorBits);
  EXPECT_EQ(0, bits.ReadBits(24, wide));
  EXPECT_EQ(0xFFFFFFu, wide);
}

// ue(v) and se(v) codewords from the table of ITU-T H.264 9.1.
TEST(BitsReaderStateTest, ExpGolombCodewords) {
  struct Case {
    std::vector<uint8_t> bytes;
    unsigned long ue;
    long se;
    uint64_t bitsUsed;
  } cases[] = {
      {{0x80}, 0, 0, 1},                                // 1
      {{0x40}, 1, 1, 3},                                // 010
      {{0x60}, 2, -1, 3},                               // 011
      {{0x20}, 3, 2, 5},                                // 00100
      {{0x38}, 6, -3, 5},                               // 00111
      {{0x08, 0x80}, 16, -8, 9},                        // 000010001
      {{0x00, 0x01, 0xFF, 0xFF}, 0xFFFE, -0x7FFF, 31},  // 15 zeros, 1, 15 ones
  };
  for (const Case& c : cases) {
    BitsReaderState ue(c.bytes.data(), c.bytes.size());
    unsigned long u = 0;
    ASSERT_EQ(0, ue.ReadUEG(u));
    EXPECT_EQ(c.ue, u);
    EXPECT_EQ(c.bitsUsed, ue.cursorBits);
    BitsReaderState se(c.bytes.data(), c.bytes.size());
    long s = 0;
    ASSERT_EQ(0, se.ReadSEG(s));
    EXPECT_EQ(c.se, s);
  }
}

TEST(BitsReaderStateTest, ExpGolombLimits) {
  // 63 zeros then a one and 63 ones: the largest accepted code, 2^64 - 2.
  std::vector<uint8_t> longest(16, 0);
  longest[7] = 0x01;
  for (size_t i = 8; i < 16; ++i) longest[i] = 0xFF;
  BitsReaderState bits(longest.data(), longest.size());
  unsigned long value = 0;
  ASSERT_EQ(0, bits.ReadUEG(value));
  EXPECT_EQ(~0ul - 1, value);

  std::vector<uint8_t> zeros(9, 0);
  BitsReaderState tooLong(zeros.data(), zeros.size());
  EXPECT_EQ(ERR_ABSTRACTION_INVALID_PARAMETERS, tooLong.ReadUEG(value));
  EXPECT_EQ(63u, tooLong.cursorBits);

  const uint8_t truncated[] = {0x00, 0x10};  // 11 zeros, a one, then only 4 bits
  BitsReaderState shortCode(truncated, sizeof(truncated));
  EXPECT_EQ(ERR_ABSTRACTION_RANGE_NOT_AVAILABLE, shortCode.ReadUEG(value));
  BitsReaderState allZero(zeros.data(), 2);
  EXPECT_EQ(ERR_ABSTRACTION_RANGE_NOT_AVAILABLE, allZero.ReadUEG(value));
}

}  // namespace
