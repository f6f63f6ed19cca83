#include "common/generic_buffer.h"

#include <gtest/gtest.h>

#include <deque>
#include <random>
#include <string>
#include <vector>

#include "log_capture.h"

namespace vrex {
namespace common {
namespace {

using Buffer = generic_buffer_t<memory_block_t>;
using Marks = std::vector<unsigned long>;
using vidora_testing::LogCapture;

std::string Pop(Buffer& buffer, size_t count) {
  std::string out(count, '\0');
  if (!buffer.pop(&out[0], count)) return "<refused>";
  return out;
}

TEST(GenericBuffer, PopCarriesTheBoundaryMarks) {
  struct {
    const char* name;
    size_t count;
    std::string popped;
    Marks marks;
  } cases[] = {
      {"within the first message", 2, "aa", {1, 4, 8}},
      {"exactly the first message", 3, "aaa", {3, 7}},
      {"across two marks", 7, "aaabbbc", {3}},
      {"everything", 11, "aaabbbcccc!", {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Buffer buffer;
    buffer.push("aaa", 3, true);
    buffer.push("bbb", 3, true);
    buffer.push("cc", 2, false);  // one message in two pushes
    buffer.push("cc", 2, true);
    buffer.push("!", 1, false);  // not finished yet
    ASSERT_EQ((Marks{3, 6, 10}), buffer.boundaries());

    EXPECT_EQ(c.popped, Pop(buffer, c.count));
    EXPECT_EQ(c.marks, buffer.boundaries());
    EXPECT_EQ(11 - c.count, buffer.available());
  }
}

TEST(GenericBuffer, RefusedPops) {
  Buffer buffer;
  buffer.push("abcd", 4, true);
  char out[8];
  LogCapture log;
  EXPECT_FALSE(buffer.pop(nullptr, 2));
  EXPECT_FALSE(buffer.pop(out, 0));
  EXPECT_EQ(0u, log.Count());

  EXPECT_FALSE(buffer.pop(out, 5));
  EXPECT_TRUE(log.Contains(" F ")) << log.All();
  EXPECT_TRUE(log.Contains("Invalid pop size. available(): 4; requested pop size: 5")) << log.All();
  EXPECT_EQ(4u, buffer.available());
  EXPECT_EQ(Marks{4}, buffer.boundaries());
  EXPECT_EQ("abcd", Pop(buffer, 4));
}

// Random pushes and pops against a std::deque: the bytes survive every move and growth.
TEST(GenericBuffer, MatchesAQueueModel) {
  std::mt19937 random(7);
  Buffer buffer;
  std::deque<char> model;
  std::vector<unsigned long> modelMarks;
  char next = 0;
  for (int round = 0; round < 2000; ++round) {
    if (random() % 2 == 0) {
      std::string bytes(random() % 700, '\0');
      for (char& b : bytes) b = next++;
      const bool mark = random() % 3 == 0;
      buffer.push(bytes.data(), bytes.size(), mark);
      model.insert(model.end(), bytes.begin(), bytes.end());
      if (mark) modelMarks.push_back(model.size());
    } else if (!model.empty()) {
      const size_t count = 1 + random() % model.size();
      ASSERT_EQ(std::string(model.begin(), model.begin() + count), Pop(buffer, count));
      model.erase(model.begin(), model.begin() + count);
      std::vector<unsigned long> kept;
      for (unsigned long m : modelMarks)
        if (m > count) kept.push_back(m - count);
      modelMarks = kept;
    }
    ASSERT_EQ(model.size(), buffer.available());
    ASSERT_EQ(modelMarks, buffer.boundaries());
  }
  EXPECT_EQ(std::string(model.begin(), model.end()),
            std::string(reinterpret_cast<const char*>(buffer.data()), buffer.available()));
  buffer.clear();
  EXPECT_EQ(0u, buffer.available());
  EXPECT_TRUE(buffer.boundaries().empty());
}

}  // namespace
}  // namespace common
}  // namespace vrex
