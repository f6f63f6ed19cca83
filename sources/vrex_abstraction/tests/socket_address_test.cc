// Socket addresses parsed from the texts an application gives, and socket options.
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

#include "abstraction/errors.h"
#include "abstraction/socket_address.h"
#include "abstraction/socket_options.h"

namespace vrex {
namespace abstraction {
namespace {

TEST(SocketAddressTest, ParsesHostAndPortText) {
  const struct {
    const char* text;
    int family;  // the hint
    const char* ip;
    uint16_t port;
  } cases[] = {
      {"127.0.0.1:8000", 0, "127.0.0.1", 8000},
      {"10.1.2.3:65535", AF_INET, "10.1.2.3", 65535},
      {"[::1]:443", 0, "::1", 443},
      {"::1:443", 0, "::1", 443},  // the last colon
      {"[fe80::1:2]:9", 0, "fe80::1:2", 9},
      {"[127.0.0.1]:80", 0, "127.0.0.1", 80},
      {"127.0.0.1:00080", 0, "127.0.0.1", 80},
      {"127.0.0.1:http", 0, "127.0.0.1", 80},
      {":8000", AF_INET, "0.0.0.0", 8000},
      {":8000", AF_INET6, "::", 8000},
      {"127.0.0.1:0", 0, "127.0.0.1", 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    SocketAddress address;
    ASSERT_EQ(address.Init(c.family, c.text), 0);
    EXPECT_TRUE(address.IsValid());
    EXPECT_EQ(address.Ip(), c.ip);
    EXPECT_EQ(address.Port(), c.port);
    const bool v4 = std::string(c.ip).find(':') == std::string::npos;
    EXPECT_EQ(address.Family(), v4 ? AF_INET : AF_INET6);
    EXPECT_EQ(address.Length(), v4 ? sizeof(sockaddr_in) : sizeof(sockaddr_in6));
  }
}

TEST(SocketAddressTest, RefusesWhatIsNotHostAndPort) {
  // 65536 and more: getaddrinfo would take them modulo 65536 and bind another port.
  for (const char* text : {"", ":", "[", "[]", "[]:80", "[::1]", "[::1]:", "[::1]80", "[::1",
                           "127.0.0.1", "127.0.0.1:", "127.0.0.1:65536", "127.0.0.1:123456",
                           "127.0.0.1:-1", "127.0.0.1:no-such-service"}) {
    SCOPED_TRACE(text);
    SocketAddress address;
    ASSERT_EQ(address.Init(0, "127.0.0.1:80"), 0);
    EXPECT_EQ(address.Init(0, text), ERR_ABSTRACTION_INVALID_PARAMETERS);
    EXPECT_FALSE(address.IsValid());
    EXPECT_EQ(address.Ip(), "");
    EXPECT_EQ(address.Port(), 0);
  }
  SocketAddress address;
  EXPECT_LT(address.Init(AF_INET, "[::1]:80"), 0);  // not of the family asked for
  EXPECT_LT(address.Init(AF_INET6, "127.0.0.1:80"), 0);
  sockaddr unixAddress = {};
  unixAddress.sa_family = AF_UNIX;
  EXPECT_EQ(address.Init(&unixAddress, sizeof unixAddress), 0);  // copied, but not ours
  EXPECT_FALSE(address.IsValid());
  EXPECT_EQ(address.Init(&unixAddress, sizeof(sockaddr_storage) + 1),
            ERR_ABSTRACTION_INVALID_PARAMETERS);
}

TEST(SocketAddressTest, EqualityIsFamilyHostAndPort) {
  const struct {
    const char* a;
    const char* b;
    bool equal;
  } cases[] = {
      {"127.0.0.1:80", "127.0.0.1:http", true},         {"[::1]:80", "[0:0::1]:80", true},
      {"127.0.0.1:80", "127.0.0.1:81", false},          {"127.0.0.1:80", "127.0.0.2:80", false},
      {"127.0.0.1:80", "[::ffff:127.0.0.1]:80", false}, {"[::1]:80", "[::2]:80", false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.a) + " " + c.b);
    SocketAddress a, b;
    ASSERT_EQ(a.Init(0, c.a) | b.Init(0, c.b), 0);
    EXPECT_EQ(a == b, c.equal);
    EXPECT_EQ(a != b, !c.equal);
  }
}

TEST(SocketOptionsTest, SetTheOptionOrGiveTheErrno) {
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  ASSERT_EQ(setFdNonBlock(fd) | setFdReuseAddress(fd), 0);
  int on = 0;
  socklen_t length = sizeof on;
  getsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, &length);
  EXPECT_TRUE(on == 1 && (fcntl(fd, F_GETFL) & O_NONBLOCK));
  close(fd);
  EXPECT_EQ(setFdNonBlock(fd), static_cast<int>(0x80000000u | EBADF));
  int pipeFds[2];
  ASSERT_EQ(pipe(pipeFds), 0);
  EXPECT_EQ(setFdReuseAddress(pipeFds[0]), static_cast<int>(0x80000000u | ENOTSOCK));
  close(pipeFds[0]);
  close(pipeFds[1]);
}

}  // namespace
}  // namespace abstraction
}  // namespace vrex
