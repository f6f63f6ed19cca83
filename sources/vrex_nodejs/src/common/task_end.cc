// Task::SignalWorkEnd: the completion callback with the common result fields.
#include "abstraction/logging.h"
#include "common/async_callback.h"
#include "common/clock.h"
#include "common/js_error.h"
#include "common/task.h"

namespace vrex {
namespace nodejs {
namespace common {

void Task::SignalWorkEnd(Napi::Env& env, bool inJs, int code,
                         const vrex::errors::error_info_t* info) {
  if (_log) LOGI << "#-> Task::SignalWorkEnd id=" << _id << " name=" << _name << " errorCode=" << code;
  if (_completion && !_completion->IsEmpty()) {
    Napi::Object object;
    napi_value error;
    napi_value result;
    if (code != 0) {
      object = GetJsError(env, code, info).Value();
      if (!object.IsEmpty()) GetCallbackParamError(object);
      error = object;
      result = env.Null();
    } else {
      object = Napi::Object::New(env);
      GetCallbackParamInfo(object);
      error = env.Null();
      result = object;
    }
    const long callbackTime = static_cast<long>(GetTimestampMillis());
    // The end before the start: a timeout's answer may meet the worker stamping them, and a
    // set end implies a set start.
    const long operationEndTime = _operationEndTime.load();
    const long operationStartTime = _operationStartTime.load();
    if (!object.IsEmpty()) {
      object.Set("id", Napi::Number::New(env, static_cast<double>(_id)));
      object.Set("name", Napi::String::New(env, _name));
      object.Set("poolName", Napi::String::New(env, _poolName));
      object.Set("timedOut", Napi::Boolean::New(env, _timedOut.load()));
      object.Set("apiCallTime", Napi::Number::New(env, static_cast<double>(_apiCallTime)));
      object.Set("operationStartTime", Napi::Number::New(env, static_cast<double>(operationStartTime)));
      object.Set("operationEndTime", Napi::Number::New(env, static_cast<double>(operationEndTime)));
      object.Set("callbackTime", Napi::Number::New(env, static_cast<double>(callbackTime)));
    }
    if (_log) {
      LOGI << "    Task::SignalWorkEnd id=" << _id << " callback to node in "
           << callbackTime - _apiCallTime << " ms";
    }
    // Released before the call: a callback that enqueues more work or throws must not find
    // this one still held.
    const std::shared_ptr<async_callback_t> completion = std::move(_completion);
    completion->Call(inJs, {error, result});
    if (!inJs) RaisePendingAsUncaught(env);
  }
  if (_log) {
    LOGI << "<-# Task::SignalWorkEnd id=" << _id << " done in "
         << static_cast<long>(GetTimestampMillis()) - _apiCallTime << " ms";
  }
}

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
