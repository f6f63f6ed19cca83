// The TCP acceptor's functions on the exports object: createTcpAcceptor(address, callback
// [, receiver]) returns the acceptor's id or throws; closeTcpAcceptor(id) and
// closeTcpConnection(fd) do nothing for what is not open.
#include <unistd.h>
#include <uv.h>

#include <climits>

#include "common/js_error.h"
#include "common/register_function.h"
#include "nodejs/errors.h"
#include "registrars.h"
#include "tcpacceptor/tcp_acceptor.h"

namespace vrex {
namespace nodejs {
namespace tcpacceptor {

using vrex::webrtcnodejs::ERR_NODEJS_INVALID_STATE;

namespace {

Napi::Value callback_createTcpAcceptor(const Napi::CallbackInfo& info) {
  Napi::Env env = info.Env();
  // The poll runs on the main thread's loop: a worker thread's environment cannot be called
  // from there.
  uv_loop_t* loop = nullptr;
  if (napi_get_uv_event_loop(env, &loop) != napi_ok || loop != uv_default_loop()) {
    THROW_ERROR(env, VREX_ERROR(ERR_NODEJS_INVALID_STATE));
    return env.Null();
  }
  tcp_acceptor_t* acceptor = new tcp_acceptor_t();
  const int result = acceptor->Init(info);
  if (result < 0) {
    acceptor->Close();
    THROW_ERROR(env, result);
    return env.Null();
  }
  return Napi::Number::New(env, static_cast<double>(acceptor->Id()));
}

Napi::Value callback_closeTcpAcceptor(const Napi::CallbackInfo& info) {
  if (info.Length() >= 1 && info[0].IsNumber()) {
    tcp_acceptor_t* acceptor = tcp_acceptor_t::Find(info[0].As<Napi::Number>().Int64Value());
    if (acceptor != nullptr) acceptor->Close();
  }
  return info.Env().Undefined();
}

Napi::Value callback_closeTcpConnection(const Napi::CallbackInfo& info) {
  if (info.Length() >= 1 && info[0].IsNumber()) {
    const int64_t fd = info[0].As<Napi::Number>().Int64Value();
    if (fd >= 0 && fd <= INT_MAX) close(static_cast<int>(fd));
  }
  return info.Env().Undefined();
}

}  // namespace

void RegisterCallbacks(Napi::Object& exports) {
  common::RegisterFunction(exports, "createTcpAcceptor", callback_createTcpAcceptor);
  common::RegisterFunction(exports, "closeTcpAcceptor", callback_closeTcpAcceptor);
  common::RegisterFunction(exports, "closeTcpConnection", callback_closeTcpConnection);
}

}  // namespace tcpacceptor
}  // namespace nodejs
}  // namespace vrex
