#include "common/file.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "log_capture.h"
#include "temp_dir.h"

namespace vrex {
namespace common {
namespace {

using abstraction::TempDir;
using vidora_testing::LogCapture;

std::string Bytes(std::initializer_list<int> values) {
  std::string bytes;
  for (int v : values) bytes += static_cast<char>(v);
  return bytes;
}

// Peeks a value signed and then reads it unsigned, from the start of the file.
template <typename Signed, typename Unsigned>
void ExpectPeekThenRead(File& file, bool (File::*peek)(Signed*, bool),
                        bool (File::*read)(Unsigned*, bool), bool networkOrder,
                        int64_t wantSigned, uint64_t wantUnsigned) {
  Signed s = 0;
  Unsigned u = 0;
  ASSERT_TRUE(file.SeekBegin());
  ASSERT_TRUE((file.*peek)(&s, networkOrder) && (file.*read)(&u, networkOrder));
  EXPECT_EQ(wantSigned, s) << (networkOrder ? "network order" : "host order");
  EXPECT_EQ(wantUnsigned, u) << (networkOrder ? "network order" : "host order");
}

TEST(FileOpen, ModesAndTheirFailures) {
  TempDir dir;
  const std::string existing = dir.File("f", "0123456789");
  const std::string missing = existing + ".missing";
  struct {
    const char* name;
    std::string path;
    int mode;
    bool ok;
    uint64_t size;
    std::string log;  // a line that must be logged; none at all when empty
    bool suppressed = false;
  } cases[] = {
      {"read", existing, File::FILE_OPEN_MODE_READ, true, 10, ""},
      {"read and write", existing, File::FILE_OPEN_MODE_READ_WRITE, true, 10, ""},
      {"append", existing, File::FILE_OPEN_MODE_APPEND, true, 10, ""},
      {"read a missing file", missing, File::FILE_OPEN_MODE_READ, false, 0,
       "Unable to open file " + missing + " with mode `rb`. Error was: (2) No such file or directory"},
      {"read and write a missing file", missing, File::FILE_OPEN_MODE_READ_WRITE, false, 0,
       "Unable to open file " + missing + " with mode `r+b`. Error was: (2) No such file or directory"},
      {"suppressed: read a missing file", missing, File::FILE_OPEN_MODE_READ, false, 0, "", true},
      {"suppressed: read and write", missing, File::FILE_OPEN_MODE_READ_WRITE, false, 0, "", true},
      {"unknown mode", existing, 4, false, 0, "Invalid open mode"},
      {"truncate", existing, File::FILE_OPEN_MODE_TRUNCATE, true, 0, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    LogCapture log;
    File file;
    if (c.suppressed) file.SuppressLogErrorsOnInit();
    EXPECT_EQ(c.ok, file.Initialize(c.path, c.mode));
    EXPECT_EQ(c.ok, file.IsOpen());
    EXPECT_EQ(c.ok ? c.path : "", file.GetPath());
    if (c.ok) {
      EXPECT_EQ(c.size, file.Size());
      EXPECT_EQ(0u, file.Cursor());
    }
    if (c.log.empty()) {
      EXPECT_EQ(0u, log.Count()) << log.All();
    } else {
      EXPECT_TRUE(log.Contains(c.log)) << log.All();
    }
  }
  EXPECT_EQ("", TempDir::Read(existing));  // the last case truncated it
}

TEST(FileOpen, ClosedFileRefusesEverything) {
  LogCapture log;
  File file;
  uint8_t byte;
  std::string all = "stale";
  EXPECT_TRUE(file.IsEOF());
  EXPECT_EQ(0u, file.Cursor());
  EXPECT_EQ(0u, file.Size());
  EXPECT_FALSE(file.SeekBegin());
  EXPECT_FALSE(file.SeekTo(0));
  EXPECT_FALSE(file.ReadUI8(&byte));
  EXPECT_FALSE(file.WriteUI8(1));
  EXPECT_FALSE(file.ReadAll(all));
  EXPECT_EQ("", all);
  EXPECT_FALSE(file.Flush());
  EXPECT_TRUE(log.Contains("File not opened"));
  EXPECT_TRUE(file.Close());
}

TEST(FileSeek, StaysWithinTheKnownSize) {
  TempDir dir;
  File file;
  ASSERT_TRUE(file.Initialize(dir.File("f", "0123456789")));
  struct {
    const char* name;
    uint64_t start;
    int op;  // 0 SeekTo, 1 SeekAhead, 2 SeekBehind
    long arg;
    bool ok;
    uint64_t cursor;
    const char* log;
  } cases[] = {
      {"to the size", 3, 0, 10, true, 10, nullptr},
      {"to past the size", 3, 0, 11, false, 3, "End of file will be reached"},
      {"to 0", 3, 0, 0, true, 0, nullptr},
      {"ahead to the end", 3, 1, 7, true, 10, nullptr},
      {"ahead past the end", 3, 1, 8, false, 3, "End of file will be reached"},
      {"ahead by a negative count", 3, 1, -1, false, 3, "Invalid count"},
      {"behind to the start", 3, 2, 3, true, 0, nullptr},
      {"behind past the start", 3, 2, 4, false, 3, "Beginning of file will be reached"},
      {"behind by a negative count", 3, 2, -2, false, 3, "Invalid count"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ASSERT_TRUE(file.SeekTo(c.start));
    LogCapture log;
    const bool ok = c.op == 0   ? file.SeekTo(static_cast<uint64_t>(c.arg))
                    : c.op == 1 ? file.SeekAhead(c.arg)
                                : file.SeekBehind(c.arg);
    EXPECT_EQ(c.ok, ok);
    EXPECT_EQ(c.cursor, file.Cursor());
    if (c.log != nullptr) {
      EXPECT_TRUE(log.Contains(c.log)) << log.All();
    } else {
      EXPECT_EQ(0u, log.Count()) << log.All();
    }
  }
  uint8_t byte = 0;
  ASSERT_TRUE(file.SeekTo(4));
  ASSERT_TRUE(file.ReadUI8(&byte));  // the stream really is where Cursor() says
  EXPECT_EQ('4', byte);
  ASSERT_TRUE(file.SeekEnd());
  EXPECT_EQ(10u, file.Cursor());
  EXPECT_FALSE(file.ReadUI8(&byte));
  EXPECT_TRUE(file.IsEOF());
}

TEST(FileRead, TypedValuesInBothByteOrders) {
  TempDir dir;
  File file;
  ASSERT_TRUE(file.Initialize(dir.File("f", Bytes({0x81, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0xF8}))));
  ExpectPeekThenRead(file, &File::PeekI16, &File::ReadUI16, true, -32510, 0x8102);
  ExpectPeekThenRead(file, &File::PeekI16, &File::ReadUI16, false, 0x0281, 0x0281);
  // 24-bit: no sign extension.
  ExpectPeekThenRead(file, &File::PeekI24, &File::ReadUI24, true, 0x810203, 0x810203);
  ExpectPeekThenRead(file, &File::PeekI24, &File::ReadUI24, false, 0x030281, 0x030281);
  ExpectPeekThenRead(file, &File::PeekI32, &File::ReadUI32, true, -2130574588, 0x81020304);
  ExpectPeekThenRead(file, &File::PeekI32, &File::ReadUI32, false, 0x04030281, 0x04030281);
  ExpectPeekThenRead(file, &File::PeekI64, &File::ReadUI64, true,
                     static_cast<int64_t>(0x81020304050607F8ull), 0x81020304050607F8ull);
  ExpectPeekThenRead(file, &File::PeekI64, &File::ReadUI64, false,
                     static_cast<int64_t>(0xF807060504030281ull), 0xF807060504030281ull);
  int8_t i8;
  uint8_t u8;
  ASSERT_TRUE(file.SeekBegin());
  ASSERT_TRUE(file.PeekI8(&i8));
  ASSERT_TRUE(file.ReadUI8(&u8));
  EXPECT_EQ(-127, i8);
  EXPECT_EQ(0x81, u8);
  EXPECT_EQ(1u, file.Cursor());
}

TEST(FileRead, FlvTimestampsPutTheHighByteLast) {
  TempDir dir;
  File file;
  ASSERT_TRUE(file.Initialize(dir.File("f", Bytes({0x12, 0x34, 0x56, 0x78, 0xFF, 0xFF, 0xFF, 0x80}))));
  uint32_t u = 0;
  int32_t s = 0;
  ASSERT_TRUE(file.PeekSUI32(&u));
  EXPECT_EQ(0x78123456u, u);
  ASSERT_TRUE(file.ReadSI32(&s));
  EXPECT_EQ(0x78123456, s);
  ASSERT_TRUE(file.PeekSI32(&s));
  EXPECT_EQ(static_cast<int32_t>(0x80FFFFFF), s);
  ASSERT_TRUE(file.ReadSUI32(&u));
  EXPECT_EQ(0x80FFFFFFu, u);
}

TEST(FileRead, ShortReadsFail) {
  TempDir dir;
  File file;
  ASSERT_TRUE(file.Initialize(dir.File("f", "abc")));
  LogCapture log;
  uint32_t value = 0;
  EXPECT_FALSE(file.ReadUI32(&value, true));
  EXPECT_TRUE(log.Contains("Unable to read 4 bytes from the file. Cursor: 3 (0x3); (0) "))
      << log.All();
  ASSERT_TRUE(file.SeekBegin());
  uint8_t buffer[4];
  EXPECT_FALSE(file.PeekBuffer(buffer, 4));
  ASSERT_TRUE(file.SeekTo(1));
  ASSERT_TRUE(file.PeekBuffer(buffer, 2));
  EXPECT_EQ(0, memcmp("bc", buffer, 2));
  EXPECT_EQ(1u, file.Cursor());
  EXPECT_TRUE(file.ReadBuffer(buffer, 0));
  log.Clear();
  EXPECT_FALSE(file.ReadBuffer(buffer, 0x100000000ull));
  EXPECT_TRUE(log.Contains("Can't read more than 4GB of data at once"));
  EXPECT_FALSE(file.WriteBuffer(buffer, 0x100000000ull));
  EXPECT_TRUE(log.Contains("Can't write more than 4GB of data at once"));
}

TEST(FileRead, ReadAllBounds) {
  TempDir dir;
  const std::string huge = dir.File("huge");
  ASSERT_EQ(0, truncate(huge.c_str(), 0xFFFFFFFFll));  // sparse: no disk used
  File file;
  std::string content = "stale";
  ASSERT_TRUE(file.Initialize(dir.File("empty")));
  EXPECT_TRUE(file.ReadAll(content));
  EXPECT_EQ("", content);

  ASSERT_TRUE(file.Initialize(dir.File("small", "some bytes\n")));
  ASSERT_TRUE(file.SeekTo(5));
  EXPECT_TRUE(file.ReadAll(content));
  EXPECT_EQ("some bytes\n", content);

  LogCapture log;
  ASSERT_TRUE(file.Initialize(huge));
  EXPECT_EQ(0xFFFFFFFFull, file.Size());
  EXPECT_FALSE(file.ReadAll(content));
  EXPECT_EQ("", content);
  EXPECT_TRUE(log.Contains("ReadAll can only be done on files smaller than 2^32 bytes (4GB)"));
}

TEST(FileWrite, TypedValuesLandAsHandWrittenBytes) {
  TempDir dir;
  const std::string path = dir.File("f");
  File file;
  ASSERT_TRUE(file.Initialize(path, File::FILE_OPEN_MODE_TRUNCATE));
  ASSERT_TRUE(file.WriteI8(-2));
  ASSERT_TRUE(file.WriteUI8(0x81));
  ASSERT_TRUE(file.WriteI16(-2, true));
  ASSERT_TRUE(file.WriteUI16(0x0102, false));
  ASSERT_TRUE(file.WriteI24(-2, true));  // the low 3 bytes
  ASSERT_TRUE(file.WriteUI24(0x010203, false));
  ASSERT_TRUE(file.WriteI32(-2, false));
  ASSERT_TRUE(file.WriteUI32(0x01020304, true));
  ASSERT_TRUE(file.WriteI64(-2, true));
  ASSERT_TRUE(file.WriteUI64(0x0102030405060708ull, false));
  ASSERT_TRUE(file.WriteSUI32(0x78123456));
  ASSERT_TRUE(file.WriteSI32(-2));
  ASSERT_TRUE(file.WriteString(std::string("z\0y", 3)));
  EXPECT_EQ(47u, file.Size());
  ASSERT_TRUE(file.Flush());
  EXPECT_EQ(Bytes({0xFE, 0x81, 0xFF, 0xFE, 0x02, 0x01, 0xFF, 0xFF, 0xFE, 0x03, 0x02, 0x01,
                   0xFE, 0xFF, 0xFF, 0xFF, 0x01, 0x02, 0x03, 0x04, 0xFF, 0xFF, 0xFF, 0xFF,
                   0xFF, 0xFF, 0xFF, 0xFE, 0x08, 0x07, 0x06, 0x05, 0x04, 0x03, 0x02, 0x01,
                   0x12, 0x34, 0x56, 0x78, 0xFF, 0xFF, 0xFE, 0xFF, 'z',  0,    'y'}),
            TempDir::Read(path));
}

TEST(FileWrite, AppendModeKeepsTheSizeItKnows) {
  TempDir dir;
  const std::string path = dir.File("f", "0123456789");
  {
    File file;
    ASSERT_TRUE(file.Initialize(path, File::FILE_OPEN_MODE_APPEND));
    EXPECT_EQ(10u, file.Size());
    ASSERT_TRUE(file.SeekBegin());
    ASSERT_TRUE(file.WriteString("abcde"));  // appended, wherever the cursor was
    EXPECT_EQ(15u, file.Size());
    std::string all;
    ASSERT_TRUE(file.ReadAll(all));
    EXPECT_EQ("0123456789abcde", all);
  }
  EXPECT_EQ("0123456789abcde", TempDir::Read(path));
}

TEST(FileWrite, OverwritingCountsAsGrowthUntilSizeIsAsked) {
  TempDir dir;
  const std::string path = dir.File("f", "0123456789");
  File file;
  ASSERT_TRUE(file.Initialize(path, File::FILE_OPEN_MODE_READ_WRITE));
  ASSERT_TRUE(file.WriteString("ab"));
  EXPECT_TRUE(file.SeekTo(12));  // the known size is now 12
  EXPECT_EQ(10u, file.Size());   // asking learns the real size again
  EXPECT_FALSE(file.SeekTo(11));
  ASSERT_TRUE(file.Flush());
  EXPECT_EQ("ab23456789", TempDir::Read(path));
}

// Walks the tags of an FLV file that ffmpeg made, with the typed reads, and compares each
// packet's position, size and timestamp with what ffprobe reported.
TEST(FileRead, WalksFfmpegFlvTags) {
  const std::string dir = std::string(VIDORA_FIXTURES_DIR) + "/flv/";
  std::ifstream expectedFile(dir + "tags.txt");
  ASSERT_TRUE(expectedFile.good());
  struct packet_t {
    uint64_t pos;
    uint32_t size, dts;
  };
  std::vector<packet_t> expected;
  std::string line;
  while (std::getline(expectedFile, line)) {
    packet_t p;
    ASSERT_EQ(3, sscanf(line.c_str(), "%lu,%u,%u", &p.pos, &p.size, &p.dts)) << line;
    expected.push_back(p);
  }
  ASSERT_GT(expected.size(), 5u);

  File file;
  ASSERT_TRUE(file.Initialize(dir + "tags.flv"));
  uint8_t signature[3];
  uint32_t headerSize = 0, previousTagSize = 1;
  ASSERT_TRUE(file.ReadBuffer(signature, 3));
  EXPECT_EQ(0, memcmp("FLV", signature, 3));
  ASSERT_TRUE(file.SeekTo(5));
  ASSERT_TRUE(file.ReadUI32(&headerSize, true));
  ASSERT_TRUE(file.SeekTo(headerSize));
  ASSERT_TRUE(file.ReadUI32(&previousTagSize, true));
  EXPECT_EQ(0u, previousTagSize);

  size_t matched = 0;
  bool sawExtendedTimestamp = false;
  while (file.Cursor() < file.Size()) {
    const uint64_t tagStart = file.Cursor();
    uint8_t type = 0;
    uint32_t dataSize = 0, timestamp = 0, streamId = 1;
    ASSERT_TRUE(file.ReadUI8(&type));
    ASSERT_TRUE(file.ReadUI24(&dataSize, true));
    ASSERT_TRUE(file.ReadSUI32(&timestamp));
    ASSERT_TRUE(file.ReadUI24(&streamId, true));
    ASSERT_TRUE(file.SeekAhead(dataSize));
    ASSERT_TRUE(file.ReadUI32(&previousTagSize, true));
    EXPECT_EQ(11 + dataSize, previousTagSize);
    if (matched < expected.size() && expected[matched].pos == tagStart) {
      SCOPED_TRACE("tag at " + std::to_string(tagStart));
      EXPECT_EQ(expected[matched].dts, timestamp);
      // Audio (8) data starts with 2 bytes of AAC header, video (9) with 1 byte of flags.
      EXPECT_EQ(expected[matched].size + (type == 8 ? 2 : 1), dataSize);
      sawExtendedTimestamp |= timestamp > 0xFFFFFF;
      ++matched;
    }
  }
  EXPECT_EQ(expected.size(), matched);
  EXPECT_TRUE(sawExtendedTimestamp);
  EXPECT_EQ(file.Size(), file.Cursor());
}

}  // namespace
}  // namespace common
}  // namespace vrex
