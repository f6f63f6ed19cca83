// The crash handler's frame-pointer walk over hand-written chains, corrupted ones included.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "crashhandler/crash_output.h"
#include "crashhandler/frame_chain.h"

namespace vrex {
namespace abstraction {
namespace internal {
namespace {

// What the code under test writes to a pipe.
class FrameChainTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(pipe2(_pipe, O_NONBLOCK), 0);
    ASSERT_EQ(_probe.Open(), 0);
    // A page of records, a page nobody may read, and a page that is not mapped at all.
    _page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    _base = static_cast<char*>(
        mmap(nullptr, 3 * _page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(_base, MAP_FAILED);
    ASSERT_EQ(mprotect(_base + _page, _page, PROT_NONE), 0);
    ASSERT_EQ(munmap(_base + 2 * _page, _page), 0);
  }
  void TearDown() override {
    close(_pipe[0]);
    close(_pipe[1]);
    _probe.Close();
    munmap(_base, 2 * _page);
  }

  std::string Written() {
    std::string text;
    char block[4096];
    for (ssize_t count; (count = read(_pipe[0], block, sizeof block)) > 0;)
      text.append(block, count);
    return text;
  }

  // Record i of a chain laid out upwards from the start of the first page.
  uintptr_t* Record(int i) { return reinterpret_cast<uintptr_t*>(_base) + 2 * i; }
  uintptr_t Address(int i) { return reinterpret_cast<uintptr_t>(Record(i)); }

  // Links `count` records, each to the next and the last to null, returning to 0xC0DE00 + i.
  void Link(int count) {
    for (int i = 0; i < count; ++i) {
      Record(i)[0] = i + 1 < count ? Address(i + 1) : 0;
      Record(i)[1] = 0xC0DE00 + i;
    }
  }

  // The lines that the walk from `start` writes must be those of the first `lines` records.
  void ExpectWalk(uintptr_t start, int limit, int lines) {
    std::string expected;
    for (int i = 0; i < lines; ++i)
      expected += "frm: 0x0000000000C0DE0" + std::to_string(i) + "; \n";
    EXPECT_EQ(WriteFrameChain(_pipe[1], _probe, start, limit), lines);
    EXPECT_EQ(Written(), expected);
  }

  int _pipe[2];
  memory_probe_t _probe;
  size_t _page = 0;
  char* _base = nullptr;
};

TEST_F(FrameChainTest, StopsWhereTheChainEndsOrCannotBeTrusted) {
  const uintptr_t unreadable = reinterpret_cast<uintptr_t>(_base + _page);
  const struct {
    const char* what;
    uintptr_t thirdLink;  // what record 2 holds as its caller's frame; 0 keeps the chain
    int limit;
    int lines;
  } cases[] = {
      {"ten records, then null", 0, 64, 10},
      {"limit below the chain", 0, 4, 4},
      {"limit 0", 0, 0, 0},
      {"a link back down", Address(0), 64, 3},
      {"a link to itself", Address(2), 64, 3},
      {"a link that is not aligned", Address(3) + 1, 64, 3},
      // Half of this record can be read: what went into the probe must not stay there.
      {"a link to the last 8 readable bytes", unreadable - 8, 64, 3},
      {"a link into a page nobody may read", unreadable, 64, 3},
      {"a link into a page that is not mapped", unreadable + _page, 64, 3},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    Link(10);
    if (c.thirdLink != 0) Record(2)[0] = c.thirdLink;
    ExpectWalk(Address(0), c.limit, c.lines);
  }
  ExpectWalk(0, 64, 0);
  ExpectWalk(unreadable, 64, 0);
}

}  // namespace
}  // namespace internal
}  // namespace abstraction
}  // namespace vrex
