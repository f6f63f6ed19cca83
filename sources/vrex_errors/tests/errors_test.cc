#include <cerrno>
#include <cstring>
#include <thread>

#include <gtest/gtest.h>

#include "errors/error_table.h"
#include "errors/errors.h"

namespace vrex {
namespace errors {
namespace {

// A module of this test only, registered for the life of the test binary.
const char* DescribeTestModule(uint16_t number) {
  static const char* const kTexts[] = {"OK", "first", "second", "unknown"};
  return DescribeFromTable(kTexts, number);
}
InitErrors testModule(42, DescribeTestModule);

TEST(GetDescription, FollowsTheCodeLayout) {
  struct {
    uint32_t code;
    std::string expected;
  } cases[] = {
      {0, "OK"},
      {5, "### UNKNOWN ERROR CODE ###"},           // no error bits
      {0x002a0001, "### UNKNOWN ERROR CODE ###"},  // bit 31 clear
      {0xc02a0001, "### UNKNOWN ERROR CODE ###"},  // bit 30 set
      {0x80630001, "### UNKNOWN ERROR CODE ###"},  // module 99 not registered
      {0x802a0001, "first"},
      {0x802a0002, "second"},
      {0x802a0003, "unknown"},
      {0x802a0004, "unknown"},  // past the table
      {0x802affff, "unknown"},
      {0x80000002, strerror(2)},
      {0x80000000u | ENOSPC, strerror(ENOSPC)},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.expected, GetDescription(static_cast<int>(c.code))) << std::hex << c.code;
  }
}

TEST(ErrorCodes, MakeAndSplit) {
  EXPECT_EQ(static_cast<int>(0x8008000c), MakeError(8, 12));
  EXPECT_EQ(-2146959348, MakeError(8, 12));
  EXPECT_EQ(8, ModuleOf(MakeError(8, 12)));
  EXPECT_EQ(12, NumberOf(MakeError(8, 12)));
  EXPECT_TRUE(IsError(MakeError(0, 1)));
  EXPECT_FALSE(IsError(0));
  EXPECT_FALSE(IsError(0x40000001));
  EXPECT_EQ(static_cast<int>(0x80000002), SystemError(-ENOENT));
  EXPECT_EQ(static_cast<int>(0x80000002), SystemError(ENOENT));
}

TEST(ErrorInfo, TrackingWrappingAndExtraInfo) {
  const int a = MakeError(42, 1), b = MakeError(42, 2);

  addExtraInfo("lost", "cleared by the next failure");
  EXPECT_EQ(b, returnErrorWithTracking(b, "inner.cc", 10));
  addExtraInfo("path", "/tmp/x");
  addExtraInfo("path", "/tmp/y");
  error_info_t* info = GetErrorInfo();
  ASSERT_EQ(1u, info->chain.size());
  EXPECT_EQ(0u, info->extraInfo.count("lost"));
  EXPECT_EQ("/tmp/y", info->extraInfo["path"]);

  EXPECT_EQ(0, wrapError(a, 0, "outer.cc", 1));
  EXPECT_EQ(b, wrapError(b, b, "outer.cc", 2));
  EXPECT_EQ(1u, info->chain.size());

  EXPECT_EQ(a, wrapError(a, b, "outer.cc", 20));
  ASSERT_EQ(2u, info->chain.size());
  EXPECT_EQ(a, info->chain[0].code);
  EXPECT_STREQ("outer.cc", info->chain[0].file);
  EXPECT_EQ(20, info->chain[0].line);
  EXPECT_EQ(b, info->chain[1].code);

  EXPECT_EQ(
      "Errors:\n"
      "   0x802a0001 at outer.cc:20: first\n"
      "   0x802a0002 at inner.cc:10: second\n"
      "Extra info:\n"
      "   path: /tmp/y\n"
      "Stack:\n",
      info->ToString());

  returnErrorWithTracking(a, "again.cc", 1);
  returnErrorWithTracking(b, "again.cc", 2);
  ASSERT_EQ(1u, info->chain.size());
  EXPECT_EQ(b, info->chain[0].code);
  EXPECT_TRUE(info->extraInfo.empty());
  EXPECT_EQ("Errors:\n   0x802a0002 at again.cc:2: second\nStack:\n", info->ToString());
}

TEST(ErrorInfo, IsPerThread) {
  const int a = MakeError(42, 1), b = MakeError(42, 2);
  returnErrorWithTracking(a, "main.cc", 1);
  error_info_t* mainInfo = GetErrorInfo();
  error_info_t* otherInfo = nullptr;
  int otherCode = 0;
  std::thread other([&] {
    otherInfo = GetErrorInfo();
    EXPECT_TRUE(otherInfo->chain.empty());
    returnErrorWithTracking(b, "other.cc", 2);
    otherCode = GetErrorInfo()->chain[0].code;
  });
  other.join();
  EXPECT_NE(mainInfo, otherInfo);
  EXPECT_EQ(b, otherCode);
  ASSERT_EQ(1u, mainInfo->chain.size());
  EXPECT_EQ(a, mainInfo->chain[0].code);
}

TEST(StackTrace, CapturesFramesAndFormatsThem) {
  std::vector<stack_frame_t> frames;
  GetStackTrace(frames);
  ASSERT_FALSE(frames.empty());
  for (const stack_frame_t& frame : frames) EXPECT_EQ(frame.raw, frame.display);

  const std::string text = GetStackTrace();
  EXPECT_EQ(0u, text.find("   at "));
  EXPECT_NE('\n', text.back());

  EXPECT_EQ("main + 0x1f", stack_frame_t("raw", "mod", "main", 0x1f).display);
  EXPECT_EQ("mod + 0x20", stack_frame_t("raw", "mod", "", 0x20).display);
  EXPECT_EQ("raw", stack_frame_t("raw", "", "", 7).display);
}

TEST(StackTrace, ExtractFrameInfo) {
  std::string module;
  size_t offset = 0;
  const std::string pattern = R"(^(\S+)\(\+(0x[0-9a-f]+)\))";
  EXPECT_TRUE(ExtractFrameInfo("./vidora.node(+0x1a2b) [0x7f]", pattern, 1, 2, module, offset));
  EXPECT_EQ("./vidora.node", module);
  EXPECT_EQ(0x1a2bu, offset);
  EXPECT_FALSE(ExtractFrameInfo("nothing here", pattern, 1, 2, module, offset));
  EXPECT_FALSE(ExtractFrameInfo("./a(+0x1)", pattern, 1, 5, module, offset));
}

TEST(InitErrorsDeathTest, DuplicateModuleAborts) {
  EXPECT_DEATH({ InitErrors again(42, DescribeTestModule); },
               "Module already registered or NULL function provided");
  EXPECT_DEATH({ InitErrors none(43, nullptr); },
               "Module already registered or NULL function provided");
}

}  // namespace
}  // namespace errors
}  // namespace vrex
