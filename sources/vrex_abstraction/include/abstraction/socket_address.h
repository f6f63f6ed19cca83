// An IPv4 or IPv6 socket address: parsed from the text an application gives ("host:port",
// "[v6host]:port") or copied from what accept() returns.
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>
#include <string>

namespace vrex {
namespace abstraction {

class SocketAddress {
 public:
  SocketAddress() = default;

  // Parses `text`: a host, a colon and a port, split at the last colon ("127.0.0.1:8000",
  // "::1:8000"), or an IPv6 host in square brackets ("[::1]:8000"; not empty). The host and
  // the port go to getaddrinfo with `family` as hint (0 for any): a host name is resolved
  // synchronously, an empty host is the wildcard address, and the port is a number up to
  // 65535 or a service name. The first answer is kept, and must be IPv4 or IPv6. Returns 0, or
  // ERR_ABSTRACTION_INVALID_PARAMETERS with the address left invalid.
  int Init(int family, const std::string& text);

  // Copies `length` bytes of `address`. Returns 0, or ERR_ABSTRACTION_INVALID_PARAMETERS when
  // the length does not fit, with the address left invalid. Any family is copied: IsValid
  // says whether it is one of ours.
  int Init(const sockaddr* address, socklen_t length);

  // True for an AF_INET or AF_INET6 address.
  bool IsValid() const { return Family() == AF_INET || Family() == AF_INET6; }
  int Family() const { return _length == 0 ? AF_UNSPEC : _storage.ss_family; }
  // The host in numeric form ("127.0.0.1", "::1"); empty when invalid.
  std::string Ip() const;
  // The port in host order; 0 when invalid.
  uint16_t Port() const;

  const sockaddr* Address() const { return reinterpret_cast<const sockaddr*>(&_storage); }
  socklen_t Length() const { return _length; }

  // Same family, host (and IPv6 scope) and port.
  bool operator==(const SocketAddress& other) const;
  bool operator!=(const SocketAddress& other) const { return !(*this == other); }

 private:
  sockaddr_storage _storage = {};
  socklen_t _length = 0;
};

}  // namespace abstraction
}  // namespace vrex
