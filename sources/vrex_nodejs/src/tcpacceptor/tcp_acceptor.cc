// tcp_acceptor_t: listen, poll, accept one connection per event.
#include "tcpacceptor/tcp_acceptor.h"

#include <errno.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <map>

#include "abstraction/logging.h"
#include "abstraction/socket_options.h"
#include "common/js_error.h"
#include "nodejs/errors.h"

namespace vrex {
namespace nodejs {
namespace tcpacceptor {

using vrex::webrtcnodejs::ERR_NODEJS_INVALID_PARAMETERS;
using vrex::webrtcnodejs::ERR_NODEJS_INVALID_STATE;
using vrex::webrtcnodejs::ERR_NODEJS_LIBUV;

namespace {

constexpr int kBacklog = 666;
// How long polling rests when accept finds no descriptor or memory: the waiting connection
// keeps the socket ready, so level-triggered polling would otherwise spin until one frees.
constexpr uint64_t kRestMillis = 100;

// The open acceptors by id. Main thread only.
std::map<long, tcp_acceptor_t*> _acceptors;
long _nextId = 1;

}  // namespace

tcp_acceptor_t::tcp_acceptor_t() : _id(_nextId++) {}

tcp_acceptor_t::~tcp_acceptor_t() {
  if (_fd >= 0) close(_fd);
}

tcp_acceptor_t* tcp_acceptor_t::Find(long id) {
  const auto found = _acceptors.find(id);
  return found == _acceptors.end() ? nullptr : found->second;
}

int tcp_acceptor_t::Init(const Napi::CallbackInfo& info) {
  if (info.Length() < 2 || !info[0].IsString() || !info[1].IsFunction()) {
    return VREX_ERROR(ERR_NODEJS_INVALID_PARAMETERS);
  }
  const std::string text = info[0].As<Napi::String>().Utf8Value();
  const int parsed = _address.Init(0, text);
  if (parsed < 0) {
    return vrex::errors::wrapError(ERR_NODEJS_INVALID_PARAMETERS, parsed, __FILE__, __LINE__);
  }

  // Without a receiver the callback is still called through the host's callback scope, so
  // that the promises it settles move on at once.
  _env = info.Env();
  const napi_value receiver = info.Length() > 2 && !info[2].IsUndefined() ? info[2] : info.This();
  _callback.reset(new common::async_callback_t({_env, info[1], _env, receiver}));
  if (_callback->IsEmpty()) return VREX_ERROR(ERR_NODEJS_INVALID_STATE);

  for (const auto& entry : _acceptors) {
    if (entry.second->_address == _address) {
      LOGE << "<-# tcp_acceptor_t::Init FAILED! " << text << " is the address of acceptor "
           << entry.first;
      return VREX_ERROR(vrex::errors::SystemError(EADDRINUSE));
    }
  }
  _fd = socket(_address.Family(), SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (_fd < 0) return VREX_ERROR(vrex::errors::SystemError(errno));
  VREX_CHECK(vrex::abstraction::setFdNonBlock(_fd));
  VREX_CHECK(vrex::abstraction::setFdReuseAddress(_fd));
  if (bind(_fd, _address.Address(), _address.Length()) < 0 || listen(_fd, kBacklog) < 0) {
    const int code = VREX_ERROR(vrex::errors::SystemError(errno));
    LOGE << "<-# tcp_acceptor_t::Init FAILED! listening on " << text << " err=" << code;
    return code;
  }
  if (uv_poll_init(uv_default_loop(), &_handle, _fd) < 0) return VREX_ERROR(ERR_NODEJS_LIBUV);
  uv_timer_init(uv_default_loop(), &_rest);
  _handleInitialized = true;
  _handle.data = this;
  _rest.data = this;
  if (uv_poll_start(&_handle, UV_READABLE | UV_DISCONNECT, OnUvEvents) < 0) {
    return VREX_ERROR(ERR_NODEJS_LIBUV);
  }
  _acceptors[_id] = this;
  LOGI << "    tcp_acceptor_t::Init id=" << _id << " listening on " << text;
  return 0;
}

void tcp_acceptor_t::Close() {
  _acceptors.erase(_id);
  // Out of the event loop's interest list while the descriptor is still the listening one.
  if (_handleInitialized) uv_poll_stop(&_handle);
  if (_fd >= 0) {
    close(_fd);
    _fd = -1;
  }
  if (!_handleInitialized) {
    delete this;
    return;
  }
  _openHandles = 2;
  uv_close(reinterpret_cast<uv_handle_t*>(&_handle), OnUvClosed);
  uv_close(reinterpret_cast<uv_handle_t*>(&_rest), OnUvClosed);
}

void tcp_acceptor_t::OnUvClosed(uv_handle_t* handle) {
  auto* self = static_cast<tcp_acceptor_t*>(handle->data);
  if (--self->_openHandles == 0) delete self;
}

void tcp_acceptor_t::OnUvRested(uv_timer_t* timer) {
  auto* self = static_cast<tcp_acceptor_t*>(timer->data);
  uv_poll_start(&self->_handle, UV_READABLE | UV_DISCONNECT, OnUvEvents);
}

void tcp_acceptor_t::Rest(int error) {
  if (!_resting) {
    LOGW << "    tcp_acceptor_t id=" << _id << " cannot accept (" << strerror(error)
         << "): connections wait until descriptors free";
  }
  _resting = true;
  uv_poll_stop(&_handle);
  uv_timer_start(&_rest, OnUvRested, kRestMillis, 0);
}

void tcp_acceptor_t::OnUvEvents(uv_poll_t* handle, int status, int) {
  static_cast<tcp_acceptor_t*>(handle->data)->OnEvents(status);
}

void tcp_acceptor_t::OnEvents(int status) {
  if (!_callback || _callback->IsEmpty()) {
    LOGE << "<-# tcp_acceptor_t::OnEvents FAILED! id=" << _id
         << " err=" << VREX_ERROR(ERR_NODEJS_INVALID_STATE);
    return;
  }
  Napi::Env env(_env);
  Napi::HandleScope scope(env);
  if (status < 0) {
    const int code = VREX_ERROR(ERR_NODEJS_LIBUV);
    vrex::errors::addExtraInfo("uvError", uv_err_name(status));
    LOGE << "<-# tcp_acceptor_t::OnEvents FAILED! id=" << _id << " " << uv_strerror(status);
    Report(common::GetJsError(env, code, vrex::errors::GetErrorInfo()).Value());
    return;
  }
  sockaddr_storage peer;
  socklen_t length = sizeof peer;
  // One connection per event: polling is level-triggered, so the next one brings another
  // event. A failure (the peer gave up, another event was first) waits for the next one.
  const int fd = accept4(_fd, reinterpret_cast<sockaddr*>(&peer), &length, SOCK_CLOEXEC);
  if (fd < 0) {
    if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) Rest(errno);
    return;
  }
  if (_resting) {
    _resting = false;
    LOGI << "    tcp_acceptor_t id=" << _id << " accepts again";
  }
  vrex::abstraction::SocketAddress address;
  if (address.Init(reinterpret_cast<const sockaddr*>(&peer), length) < 0 || !address.IsValid()) {
    close(fd);
    Report(
        common::GetJsError(env, VREX_ERROR(ERR_NODEJS_INVALID_STATE), vrex::errors::GetErrorInfo())
            .Value());
    return;
  }
  Napi::Object connection = Napi::Object::New(env);
  connection.Set("fd", Napi::Number::New(env, fd));
  connection.Set("ip", Napi::String::New(env, address.Ip()));
  connection.Set("port", Napi::Number::New(env, address.Port()));
  Report(connection);
}

void tcp_acceptor_t::Report(napi_value value) {
  Napi::Env env(_env);
  _callback->Call(false, {value});
  common::RaisePendingAsUncaught(env);
}

}  // namespace tcpacceptor
}  // namespace nodejs
}  // namespace vrex
