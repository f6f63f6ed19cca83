#include "common/iobuffer.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "common/file.h"
#include "log_capture.h"
#include "temp_dir.h"

#ifdef VIDORA_HAVE_OPENSSL
#include <openssl/bio.h>
#endif

namespace vrex {
namespace common {
namespace {

using abstraction::TempDir;
using vidora_testing::LogCapture;

std::vector<uint8_t> Pattern(size_t size, uint8_t seed = 0) {
  std::vector<uint8_t> bytes(size);
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>(seed + i * 7 + (i >> 8));
  return bytes;
}

std::vector<uint8_t> Unread(const IOBuffer& buffer) {
  const uint8_t* start = buffer.GetPointer() + buffer.GetConsumed();
  return std::vector<uint8_t>(start, start + buffer.GetAvailableBytesCount());
}

struct Recorder : IOBuffer::IOSampler {
  std::vector<uint32_t> samples;
  void Sample(uint32_t bytes) override { samples.push_back(bytes); }
};

// What a sampler hears from one transfer of `count` bytes: nothing when none moved.
std::vector<uint32_t> OneSample(long count) {
  if (count <= 0) return {};
  return {static_cast<uint32_t>(count)};
}

// Closes both ends when the test ends.
struct FdPair {
  int fds[2] = {-1, -1};
  ~FdPair() {
    for (int fd : fds)
      if (fd >= 0) close(fd);
  }
  void CloseEnd(int i) {
    close(fds[i]);
    fds[i] = -1;
  }
};

void SetNonBlocking(int fd) { ASSERT_EQ(0, fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK)); }

TEST(IOBufferGrowth, FollowsTheGrowthRule) {
  struct {
    const char* name;
    uint32_t minChunkSize;  // set after the first allocation of 4096 bytes
    uint32_t published;     // bytes appended first
    uint32_t consumed;      // then consumed
    uint32_t ensure;
    uint32_t size, newPublished;
    bool pointerKept;
  } cases[] = {
      {"fits", 4096, 100, 0, 3996, 4096, 100, true},
      {"grows by 30%, truncated", 4096, 10, 0, 5000, 5324, 10, false},
      {"grows by 30% after consuming", 4096, 20, 10, 5000, 5324, 10, false},
      {"grows to the request", 4096, 100, 0, 10000, 10100, 100, false},
      {"moves the data to the front", 4096, 4000, 3000, 3000, 4096, 1000, true},
      // consumed (1500) < active (2500): moving would overlap, so it grows instead.
      {"no overlapping move", 4096, 4000, 1500, 1000, 5324, 2500, false},
      {"min chunk size", 10000, 10, 0, 5000, 10000, 10, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    IOBuffer buffer;
    const std::vector<uint8_t> data = Pattern(c.published);
    ASSERT_TRUE(buffer.ReadFromBuffer(data.data(), c.published));
    ASSERT_TRUE(buffer.Ignore(c.consumed));
    buffer.SetMinChunkSize(c.minChunkSize);
    const uint8_t* before = buffer.GetPointer();

    ASSERT_TRUE(buffer.EnsureSize(c.ensure));
    EXPECT_EQ(c.size, buffer.GetSize());
    EXPECT_EQ(c.newPublished, buffer.GetPublished());
    EXPECT_GE(buffer.GetSize() - buffer.GetPublished(), c.ensure);
    EXPECT_EQ(c.pointerKept, before == buffer.GetPointer());
    if (c.size != 4096 || c.newPublished != c.published) {
      EXPECT_EQ(0u, buffer.GetConsumed());
    }
    EXPECT_EQ(std::vector<uint8_t>(data.begin() + c.consumed, data.end()), Unread(buffer));
  }
}

TEST(IOBufferGrowth, RefusesMoreThan4GB) {
  IOBuffer buffer;
  ASSERT_TRUE(buffer.ReadFromRepeat(1, 16));
  LogCapture log;
  EXPECT_FALSE(buffer.EnsureSize(0xFFFFFFF8u));
  EXPECT_TRUE(log.Contains("IOBuffer::EnsureSize FAILED!"));
  EXPECT_EQ(4096u, buffer.GetSize());
}

TEST(IOBufferDeathTest, AssertsItsContract) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const char* kChunkAssert = "minChunkSize > 0 && minChunkSize < 16 \\* 1024 \\* 1024";
  EXPECT_DEATH(IOBuffer().SetMinChunkSize(0), kChunkAssert);
  EXPECT_DEATH(IOBuffer().SetMinChunkSize(16777216), kChunkAssert);
  EXPECT_DEATH(
      {
        IOBuffer used;
        used.ReadFromByte(1);
        used.Initialize(10);
      },
      "This buffer was used before. Please initialize it before using");

  IOBuffer buffer;  // both ends of the range are taken
  buffer.SetMinChunkSize(16777215);
  buffer.SetMinChunkSize(1);
  ASSERT_TRUE(buffer.ReadFromByte(1));
  EXPECT_EQ(1u, buffer.GetSize());
}

// A send lowering the limit by what it took, and recycling once all is sent, are checked by
// SendsWithinSizeAndLimit.
TEST(IOBufferConsume, IgnoreRecycleAndCleanup) {
  IOBuffer buffer;
  ASSERT_TRUE(buffer.ReadFromRepeat(0x55, 100));
  buffer.SetSendLimit(60);
  ASSERT_TRUE(buffer.Ignore(100));  // more than the limit: it stops at 0; both positions rewind
  EXPECT_EQ(0u, buffer.GetConsumed());
  EXPECT_EQ(0u, buffer.GetPublished());
  EXPECT_EQ(0u, buffer.GetSendLimit());

  ASSERT_TRUE(buffer.ReadFromRepeat(0x55, 10));
  ASSERT_TRUE(buffer.IgnoreAll());
  EXPECT_EQ(0u, buffer.GetPublished());
  EXPECT_EQ(IOBuffer::kUnlimited, buffer.GetSendLimit());

  buffer.Cleanup();
  EXPECT_EQ(nullptr, buffer.GetPointer());
  EXPECT_EQ(0u, buffer.GetSize());
  ASSERT_TRUE(buffer.Initialize(8));  // a cleaned buffer counts as unused
}

TEST(IOBufferAppend, IntegersInBothByteOrders) {
  IOBuffer buffer;
  ASSERT_TRUE(buffer.ReadFromU16(0x0102, true));
  ASSERT_TRUE(buffer.ReadFromU16(0x0102, false));
  ASSERT_TRUE(buffer.ReadFromU32(0x01020304, true));
  ASSERT_TRUE(buffer.ReadFromU32(0x01020304, false));
  ASSERT_TRUE(buffer.ReadFromU64(0x0102030405060708ull, true));
  ASSERT_TRUE(buffer.ReadFromU64(0x0102030405060708ull, false));
  ASSERT_TRUE(buffer.ReadFromString("ab"));
  ASSERT_TRUE(buffer.ReadFromRepeat(0xEE, 3));
  ASSERT_TRUE(buffer.ReadFromByte(0x7F));
  const std::vector<uint8_t> expected = {0x01, 0x02, 0x02, 0x01,                          //
                                         0x01, 0x02, 0x03, 0x04, 0x04, 0x03, 0x02, 0x01,  //
                                         0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08,  //
                                         0x08, 0x07, 0x06, 0x05, 0x04, 0x03, 0x02, 0x01,  //
                                         'a',  'b',  0xEE, 0xEE, 0xEE, 0x7F};
  EXPECT_EQ(expected, Unread(buffer));
}

TEST(IOBufferAppend, FromAnotherBufferLeavesTheSource) {
  IOBuffer src;
  const std::vector<uint8_t> data = Pattern(50);
  ASSERT_TRUE(src.ReadFromBuffer(data.data(), 50));
  ASSERT_TRUE(src.Ignore(10));  // the source's unread data is data[10..50)

  struct {
    uint32_t start, size;
    bool ok;
  } cases[] = {{0, 40, true},  {5, 20, true},   {39, 1, true},         {40, 0, true},
               {0, 41, false}, {30, 11, false}, {0xFFFFFFFF, 2, false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.start) + "+" + std::to_string(c.size));
    IOBuffer dst;
    EXPECT_EQ(c.ok, dst.ReadFromInputBuffer(&src, c.start, c.size));
    if (c.ok) {
      EXPECT_EQ(
          std::vector<uint8_t>(data.begin() + 10 + c.start, data.begin() + 10 + c.start + c.size),
          Unread(dst));
    }
    EXPECT_EQ(10u, src.GetConsumed());
    EXPECT_EQ(50u, src.GetPublished());
  }
}

TEST(IOBufferMove, SwapsAnEmptyDestinationElseCopiesWhatTheSendLimitAllows) {
  struct {
    const char* name;
    uint32_t dstBytes;  // already in the destination, which holds an allocation either way
    uint32_t srcLimit;  // send limit of the source
    uint32_t moved;     // bytes that reach the destination
    uint32_t srcLeft;
    bool swapped;  // the two allocations change places, nothing is copied
  } cases[] = {
      {"destination empty", 0, IOBuffer::kUnlimited, 20, 0, true},
      {"destination not empty", 3, IOBuffer::kUnlimited, 20, 0, false},
      {"source limited", 0, 5, 5, 15, false},
      {"source limit above its data", 0, 50, 20, 0, false},
      {"source limit spent", 0, 0, 0, 20, false},
  };
  const std::vector<uint8_t> data = Pattern(30, 9);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    IOBuffer src, dst;
    ASSERT_TRUE(src.ReadFromBuffer(data.data(), 30));
    ASSERT_TRUE(src.Ignore(10));  // the source's unread data is data[10..30)
    src.SetSendLimit(c.srcLimit);
    ASSERT_TRUE(dst.ReadFromRepeat(0xCC, 8));
    ASSERT_TRUE(dst.Ignore(8 - c.dstBytes));
    const uint8_t* srcBlock = src.GetPointer();
    const uint8_t* dstBlock = dst.GetPointer();

    ASSERT_TRUE(dst.ReadFromInputBufferWithIgnore(src));
    std::vector<uint8_t> expected(c.dstBytes, 0xCC);
    expected.insert(expected.end(), data.begin() + 10, data.begin() + 10 + c.moved);
    EXPECT_EQ(expected, Unread(dst));
    EXPECT_EQ(c.srcLeft, src.GetAvailableBytesCount());
    EXPECT_EQ(c.swapped ? dstBlock : srcBlock, src.GetPointer());
    EXPECT_EQ(c.swapped ? srcBlock : dstBlock, dst.GetPointer());
  }
}

TEST(IOBufferSend, SendsWithinSizeAndLimit) {
  struct {
    const char* name;
    uint32_t limit, size;
    int sent;
  } cases[] = {
      {"all", IOBuffer::kUnlimited, 1000, 300},
      {"size", IOBuffer::kUnlimited, 120, 120},
      {"send limit", 50, 1000, 50},
      {"send limit spent", 0, 1000, 0},
      {"size 0", IOBuffer::kUnlimited, 0, 0},
  };
  const std::vector<uint8_t> data = Pattern(300);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    FdPair pair;
    ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, pair.fds));
    IOBuffer buffer;
    Recorder sampler;
    buffer.SetIOSampler(&sampler);
    ASSERT_TRUE(buffer.ReadFromBuffer(data.data(), 300));
    buffer.SetSendLimit(c.limit);

    int sent = -1, err = -1;
    ASSERT_TRUE(buffer.WriteToTCPFd(pair.fds[0], c.size, sent, err));
    EXPECT_EQ(c.sent, sent);
    EXPECT_EQ(0, err);
    EXPECT_EQ(static_cast<uint32_t>(300 - c.sent), buffer.GetAvailableBytesCount());
    if (c.sent == 300) {
      EXPECT_EQ(0u, buffer.GetPublished());
    }  // recycled
    if (c.limit != IOBuffer::kUnlimited) {
      EXPECT_EQ(c.limit - c.sent, buffer.GetSendLimit());
    }

    std::vector<uint8_t> received(400);
    const ssize_t got = c.sent > 0 ? recv(pair.fds[1], received.data(), received.size(), 0) : 0;
    received.resize(got);
    EXPECT_EQ(std::vector<uint8_t>(data.begin(), data.begin() + c.sent), received);
    EXPECT_EQ(OneSample(c.sent), sampler.samples);
  }
}

TEST(IOBufferSend, WouldBlockThenResumes) {
  FdPair pair;
  ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, pair.fds));
  SetNonBlocking(pair.fds[0]);
  SetNonBlocking(pair.fds[1]);
  const int small = 4096;
  setsockopt(pair.fds[0], SOL_SOCKET, SO_SNDBUF, &small, sizeof(small));

  const std::vector<uint8_t> data = Pattern(1 << 20, 3);
  IOBuffer buffer;
  Recorder sampler;
  buffer.SetIOSampler(&sampler);
  ASSERT_TRUE(buffer.ReadFromBuffer(data.data(), data.size()));

  // Fill the socket until it refuses.
  uint64_t total = 0;
  int sent = 0, err = 0;
  for (;;) {
    ASSERT_TRUE(buffer.WriteToTCPFd(pair.fds[0], 65536, sent, err));
    if (sent == 0) break;
    EXPECT_EQ(0, err);
    total += sent;
  }
  EXPECT_EQ(EAGAIN, err);
  EXPECT_EQ(0u, sampler.samples.back());
  ASSERT_LT(total, data.size());  // partial: the socket took only part of the buffer
  EXPECT_EQ(data.size() - total, buffer.GetAvailableBytesCount());

  // Drain and send the rest; the peer sees every byte in order.
  std::vector<uint8_t> received;
  uint8_t chunk[65536];
  while (received.size() < data.size()) {
    const ssize_t got = recv(pair.fds[1], chunk, sizeof(chunk), 0);
    if (got > 0) received.insert(received.end(), chunk, chunk + got);
    ASSERT_TRUE(buffer.WriteToTCPFd(pair.fds[0], 65536, sent, err));
    if (got <= 0 && sent == 0) {
      ASSERT_EQ(EAGAIN, err);
    }
  }
  EXPECT_EQ(data, received);
  EXPECT_EQ(0u, buffer.GetPublished());
  uint64_t sampled = 0;
  for (uint32_t s : sampler.samples) sampled += s;
  EXPECT_EQ(data.size(), sampled);
}

TEST(IOBufferSend, PermanentErrors) {
  FdPair pair;
  ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, pair.fds));
  pair.CloseEnd(1);
  IOBuffer buffer;
  Recorder sampler;
  buffer.SetIOSampler(&sampler);
  ASSERT_TRUE(buffer.ReadFromString("hello"));

  LogCapture log;
  int sent = -1, err = 0;
  EXPECT_FALSE(buffer.WriteToTCPFd(pair.fds[0], 5, sent, err));  // no SIGPIPE either
  EXPECT_EQ(EPIPE, err);
  EXPECT_EQ(0, sent);
  EXPECT_EQ(std::vector<uint32_t>{0}, sampler.samples);
  EXPECT_TRUE(
      log.Contains("Unable to send 5 bytes of data data. Size advertised by network "
                   "layer was 5. Permanent error"));
  EXPECT_EQ(5u, buffer.GetAvailableBytesCount());

  EXPECT_FALSE(buffer.WriteToTCPFd(-1, 5, sent, err));
  EXPECT_EQ(EBADF, err);
}

TEST(IOBufferSend, WritesToAPipe) {
  FdPair pipe;
  ASSERT_EQ(0, ::pipe(pipe.fds));
  IOBuffer buffer;
  ASSERT_TRUE(buffer.ReadFromString("0123456789"));
  int sent = 0;
  ASSERT_TRUE(buffer.WriteToStdio(pipe.fds[1], 4, sent));
  EXPECT_EQ(4, sent);
  char out[16] = {0};
  ASSERT_EQ(4, read(pipe.fds[0], out, sizeof(out)));
  EXPECT_STREQ("0123", out);
  EXPECT_EQ(6u, buffer.GetAvailableBytesCount());
  EXPECT_FALSE(buffer.WriteToStdio(pipe.fds[0], 4, sent));  // the read end
}

TEST(IOBufferReceive, ReadFromFdEdgeCases) {
  enum Setup { kData, kEmptyNonBlocking, kClosedWriter, kBadFd };
  struct {
    const char* name;
    Setup setup;
    unsigned long count;
    bool ok;
    long got;
    int err;
  } cases[] = {
      {"count 0", kData, 0, false, 0, IOBuffer::kInvalidCountError},
      {"count 0xFFFFFFFF", kData, 0xFFFFFFFFul, false, 0, IOBuffer::kInvalidCountError},
      {"count above 4GB", kData, 0x100000000ul, false, 0, IOBuffer::kInvalidCountError},
      {"less than asked", kData, 100, true, 11, 0},
      {"part", kData, 4, true, 4, 0},
      {"would block", kEmptyNonBlocking, 100, true, 0, 0},
      {"end of stream", kClosedWriter, 100, false, 0, 0},
      {"bad descriptor", kBadFd, 100, false, 0, EBADF},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    FdPair pipe;
    ASSERT_EQ(0, ::pipe(pipe.fds));
    if (c.setup == kData) {
      ASSERT_EQ(11, write(pipe.fds[1], "hello world", 11));
    }
    if (c.setup == kEmptyNonBlocking) SetNonBlocking(pipe.fds[0]);
    if (c.setup == kClosedWriter) pipe.CloseEnd(1);
    const int fd = c.setup == kBadFd ? 1000 : pipe.fds[0];

    IOBuffer buffer;
    Recorder sampler;
    buffer.SetIOSampler(&sampler);
    long got = -1;
    int err = -1;
    EXPECT_EQ(c.ok, buffer.ReadFromFd(fd, c.count, got, err));
    EXPECT_EQ(c.got, got);
    EXPECT_EQ(c.err, err);
    EXPECT_EQ(static_cast<uint32_t>(c.got), buffer.GetPublished());
    const char* hello = "hello world";
    EXPECT_EQ(std::vector<uint8_t>(hello, hello + c.got), Unread(buffer));
    EXPECT_EQ(OneSample(c.got), sampler.samples);
  }
}

// What ReadFromFd's table does not cover: the count recv() refuses, and recv() itself.
TEST(IOBufferReceive, ReadFromTCPFd) {
  FdPair pair;
  ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, pair.fds));
  IOBuffer buffer;
  int got = -1, err = -1;
  EXPECT_FALSE(buffer.ReadFromTCPFd(pair.fds[0], 0, got, err));
  EXPECT_EQ(IOBuffer::kInvalidCountError, err);

  ASSERT_EQ(6, send(pair.fds[1], "abcdef", 6, 0));
  pair.CloseEnd(1);
  ASSERT_TRUE(buffer.ReadFromTCPFd(pair.fds[0], 4, got, err));
  ASSERT_TRUE(buffer.ReadFromTCPFd(pair.fds[0], 4, got, err));
  EXPECT_EQ(2, got);
  EXPECT_EQ("abcdef", std::string(reinterpret_cast<const char*>(buffer.GetPointer()), 6));
  EXPECT_FALSE(buffer.ReadFromTCPFd(pair.fds[0], 4, got, err));  // end of stream
  EXPECT_EQ(0, err);
}

TEST(IOBufferReceive, ReadFromUDPFdKeepsDatagramsAndPeers) {
  auto bound = [](int& fd, sockaddr_in& address) {
    fd = socket(AF_INET, SOCK_DGRAM, 0);
    ASSERT_GE(fd, 0);
    address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    ASSERT_EQ(0, bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)));
    ASSERT_EQ(0, getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length));
  };
  FdPair sockets;
  sockaddr_in receiver, sender;
  bound(sockets.fds[0], receiver);
  bound(sockets.fds[1], sender);
  const std::string datagrams[] = {"first", "", "third one"};
  for (const std::string& d : datagrams) {
    ASSERT_EQ(static_cast<ssize_t>(d.size()),
              sendto(sockets.fds[1], d.data(), d.size(), 0, reinterpret_cast<sockaddr*>(&receiver),
                     sizeof(receiver)));
  }
  IOBuffer buffer;
  std::string all;
  for (const std::string& d : datagrams) {
    sockaddr_in peer = {};
    uint32_t peerLength = sizeof(peer);
    int got = -1;
    ASSERT_TRUE(
        buffer.ReadFromUDPFd(sockets.fds[0], got, reinterpret_cast<sockaddr*>(&peer), &peerLength));
    EXPECT_EQ(static_cast<int>(d.size()), got);
    EXPECT_EQ(sizeof(sockaddr_in), peerLength);
    EXPECT_EQ(sender.sin_port, peer.sin_port);
    EXPECT_EQ(sender.sin_addr.s_addr, peer.sin_addr.s_addr);
    all += d;
  }
  EXPECT_EQ(all, std::string(reinterpret_cast<const char*>(buffer.GetPointer()),
                             buffer.GetAvailableBytesCount()));

  LogCapture log;
  int got = 0;
  EXPECT_FALSE(buffer.ReadFromUDPFd(-1, got, nullptr, nullptr));
  EXPECT_TRUE(log.Contains("Unable to read data from UDP socket. Error was: 9")) << log.All();
}

TEST(IOBufferReceive, ReadFromStdioAndFile) {
  FdPair pipe;
  ASSERT_EQ(0, ::pipe(pipe.fds));
  ASSERT_EQ(5, write(pipe.fds[1], "12345", 5));
  pipe.CloseEnd(1);
  IOBuffer buffer;
  int got = 0;
  ASSERT_TRUE(buffer.ReadFromStdio(pipe.fds[0], 3, got));
  EXPECT_EQ(3, got);
  ASSERT_TRUE(buffer.ReadFromStdio(pipe.fds[0], 3, got));
  EXPECT_EQ(2, got);
  ASSERT_TRUE(buffer.ReadFromStdio(pipe.fds[0], 3, got));  // end of stream
  EXPECT_EQ(0, got);
  EXPECT_FALSE(buffer.ReadFromStdio(-1, 3, got));

  TempDir dir;
  File file;
  ASSERT_TRUE(file.Initialize(dir.File("f", "abcdefgh")));
  ASSERT_TRUE(buffer.ReadFromFs(file, 0));
  ASSERT_TRUE(buffer.ReadFromFs(file, 6));
  EXPECT_FALSE(buffer.ReadFromFs(file, 6));  // only 2 left
  EXPECT_EQ("12345abcdef", std::string(reinterpret_cast<const char*>(buffer.GetPointer()),
                                       buffer.GetAvailableBytesCount()));
}

#ifdef VIDORA_HAVE_OPENSSL
TEST(IOBufferReceive, ReadFromBIODrainsIt) {
  BIO* bio = BIO_new(BIO_s_mem());
  ASSERT_NE(nullptr, bio);
  IOBuffer buffer;
  EXPECT_TRUE(buffer.ReadFromBIO(bio));
  EXPECT_EQ(0u, buffer.GetPublished());
  const std::vector<uint8_t> data = Pattern(10000, 5);
  ASSERT_EQ(10000, BIO_write(bio, data.data(), 10000));
  ASSERT_TRUE(buffer.ReadFromBIO(bio));
  EXPECT_EQ(data, Unread(buffer));
  EXPECT_EQ(0, BIO_pending(bio));
  BIO_free(bio);
}
#endif

TEST(IOBufferDiagnostics, DescribesStateAndData) {
  IOBuffer buffer;
  ASSERT_TRUE(buffer.ReadFromString("xyzAB\x01"));
  ASSERT_TRUE(buffer.Ignore(3));
  const std::string full = buffer.ToString();
  EXPECT_EQ(0u, full.find("Size: 4096\nPublished: 6\nConsumed: 3\nSend limit: unlimited\n"
                          "Address: 0x"))
      << full;
  EXPECT_NE(std::string::npos, full.find("000| 41 42 01 ")) << full;
  EXPECT_NE(std::string::npos, full.find(" AB.\n")) << full;
  EXPECT_EQ(std::string::npos, full.find("Limited to"));

  buffer.SetSendLimit(7);
  const std::string cut = buffer.ToString(1, 1);
  EXPECT_NE(std::string::npos, cut.find("Send limit: 7\n")) << cut;
  EXPECT_NE(std::string::npos, cut.find("Limited to 1 bytes\n000| 42 ")) << cut;
  // The dump's layout is dump_s's (DumpTest); a null buffer is DumpBuffer's own case.
  EXPECT_EQ("", IOBuffer::DumpBuffer(nullptr, 4));
}

}  // namespace
}  // namespace common
}  // namespace vrex
