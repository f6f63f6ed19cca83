// One listening TCP socket, polled on the host's event loop: each accepted connection goes to
// JavaScript as {fd, ip, port}, and the receiver owns the descriptor from then on.
// Everything here runs on the main thread, inside the event loop.
#pragma once

#include <napi.h>
#include <uv.h>

#include <memory>

#include "abstraction/socket_address.h"
#include "common/async_callback.h"

namespace vrex {
namespace nodejs {
namespace tcpacceptor {

class tcp_acceptor_t {
 public:
  tcp_acceptor_t();
  tcp_acceptor_t(const tcp_acceptor_t&) = delete;
  tcp_acceptor_t& operator=(const tcp_acceptor_t&) = delete;

  // Reads createTcpAcceptor's arguments (address text, callback, optional receiver), listens
  // and starts polling; the acceptor can then be found by its id. Returns 0, or:
  // ERR_NODEJS_INVALID_PARAMETERS for arguments of the wrong type or an address that is not
  // IPv4 or IPv6 "host:port"; ERR_NODEJS_INVALID_STATE when the callback cannot be held;
  // 0x80000062 (EADDRINUSE) when another acceptor has the same address; the errno code of
  // socket, bind or listen; ERR_NODEJS_LIBUV when the poll cannot start.
  // After a failure, Close it.
  int Init(const Napi::CallbackInfo& info);

  // Stops listening and polling and forgets the id. The object frees itself once libuv has let
  // its handles go; connections accepted before are left alone.
  void Close();

  long Id() const { return _id; }

  // The open acceptor of that id, or null.
  static tcp_acceptor_t* Find(long id);

 private:
  ~tcp_acceptor_t();

  static void OnUvEvents(uv_poll_t* handle, int status, int events);
  static void OnUvRested(uv_timer_t* timer);
  static void OnUvClosed(uv_handle_t* handle);
  // Accepts one connection, or reports a polling failure, to the callback.
  void OnEvents(int status);
  // Stops polling for a while after accept ran out of descriptors or memory (`error`).
  void Rest(int error);
  // Calls the callback with `value`; an exception that it throws becomes uncaught.
  void Report(napi_value value);

  const long _id;
  vrex::abstraction::SocketAddress _address;
  napi_env _env = nullptr;
  std::unique_ptr<common::async_callback_t> _callback;
  uv_poll_t _handle;
  uv_timer_t _rest;  // restarts polling after a rest
  bool _handleInitialized = false;
  bool _resting = false;  // accept failed for want of resources, and has not succeeded since
  int _openHandles = 0;   // while closing: the handles libuv has not let go yet
  int _fd = -1;  // the listening socket
};

}  // namespace tcpacceptor
}  // namespace nodejs
}  // namespace vrex
