// SocketAddress: listening addresses from text, peer addresses from accept().
#include "abstraction/socket_address.h"

#include <arpa/inet.h>
#include <netdb.h>

#include <cstring>

#include "abstraction/errors.h"
#include "abstraction/logging.h"

namespace vrex {
namespace abstraction {

namespace {

struct host_and_port_t {
  std::string host;
  std::string port;
};

// Splits at the last closing bracket ("[::1]:80") or at the last colon ("127.0.0.1:80").
bool Split(const std::string& text, host_and_port_t& out) {
  if (text.empty() || (text[0] == '[' && text.size() < 3)) return false;
  size_t portStart;
  if (text[0] == '[') {
    const size_t close = text.rfind(']');
    if (close == std::string::npos || close == 1 || close + 1 >= text.size() ||
        text[close + 1] != ':') {
      return false;
    }
    out.host = text.substr(1, close - 1);
    portStart = close + 2;
  } else {
    const size_t colon = text.rfind(':');
    if (colon == std::string::npos) return false;
    out.host = text.substr(0, colon);
    portStart = colon + 1;
  }
  out.port = text.substr(portStart);
  if (out.port.empty()) return false;
  // getaddrinfo takes a number beyond 65535 modulo 65536: a typo must not bind another port.
  if (out.port.find_first_not_of("0123456789") == std::string::npos &&
      (out.port.size() > 5 || std::stoul(out.port) > 65535)) {
    return false;
  }
  return true;
}

}  // namespace

int SocketAddress::Init(int family, const std::string& text) {
  _length = 0;
  host_and_port_t parts;
  if (!Split(text, parts)) {
    LOGW << "<-# SocketAddress::Init FAILED! not host:port: \"" << text << "\"";
    return VREX_ERROR(ERR_ABSTRACTION_INVALID_PARAMETERS);
  }
  addrinfo hints = {};
  hints.ai_family = family;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_PASSIVE;
  addrinfo* found = nullptr;
  const int status = getaddrinfo(parts.host.empty() ? nullptr : parts.host.c_str(),
                                 parts.port.c_str(), &hints, &found);
  if (status != 0 || found == nullptr) {
    LOGW << "<-# SocketAddress::Init FAILED! getaddrinfo for \"" << text
         << "\": " << gai_strerror(status);
    return VREX_ERROR(ERR_ABSTRACTION_INVALID_PARAMETERS);
  }
  Init(found->ai_addr, found->ai_addrlen);
  freeaddrinfo(found);
  if (!IsValid()) {
    _length = 0;
    LOGW << "<-# SocketAddress::Init FAILED! \"" << text << "\" is neither IPv4 nor IPv6";
    return VREX_ERROR(ERR_ABSTRACTION_INVALID_PARAMETERS);
  }
  return 0;
}

int SocketAddress::Init(const sockaddr* address, socklen_t length) {
  _length = 0;
  if (address == nullptr || length < sizeof(sa_family_t) || length > sizeof(_storage)) {
    return VREX_ERROR(ERR_ABSTRACTION_INVALID_PARAMETERS);
  }
  _storage = {};
  memcpy(&_storage, address, length);
  _length = length;
  return 0;
}

std::string SocketAddress::Ip() const {
  char text[INET6_ADDRSTRLEN] = "";
  if (Family() == AF_INET) {
    inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in*>(&_storage)->sin_addr, text,
              sizeof text);
  } else if (Family() == AF_INET6) {
    inet_ntop(AF_INET6, &reinterpret_cast<const sockaddr_in6*>(&_storage)->sin6_addr, text,
              sizeof text);
  }
  return text;
}

uint16_t SocketAddress::Port() const {
  if (Family() == AF_INET) return ntohs(reinterpret_cast<const sockaddr_in*>(&_storage)->sin_port);
  if (Family() == AF_INET6) {
    return ntohs(reinterpret_cast<const sockaddr_in6*>(&_storage)->sin6_port);
  }
  return 0;
}

bool SocketAddress::operator==(const SocketAddress& other) const {
  if (Family() != other.Family()) return false;
  if (Family() == AF_INET) {
    const auto& a = reinterpret_cast<const sockaddr_in&>(_storage);
    const auto& b = reinterpret_cast<const sockaddr_in&>(other._storage);
    return a.sin_port == b.sin_port && a.sin_addr.s_addr == b.sin_addr.s_addr;
  }
  if (Family() == AF_INET6) {
    const auto& a = reinterpret_cast<const sockaddr_in6&>(_storage);
    const auto& b = reinterpret_cast<const sockaddr_in6&>(other._storage);
    return a.sin6_port == b.sin6_port && a.sin6_scope_id == b.sin6_scope_id &&
           memcmp(&a.sin6_addr, &b.sin6_addr, sizeof a.sin6_addr) == 0;
  }
  return _length == other._length && memcmp(&_storage, &other._storage, _length) == 0;
}

}  // namespace abstraction
}  // namespace vrex
