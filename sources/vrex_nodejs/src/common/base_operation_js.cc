// BaseOperation on the main thread: the start, drain, progress and completion callbacks, and
// the fields every operation's result carries.
#include "abstraction/logging.h"
#include "common/base_operation.h"
#include "common/base_operation_locked.h"
#include "common/clock.h"

namespace vrex {
namespace nodejs {
namespace common {

namespace {

Napi::Number Number(Napi::Env env, double value) { return Napi::Number::New(env, value); }

}  // namespace

void BaseOperation::SignalWorkBegin(Napi::Env& env, bool inJs) {
  if (_startCallback.IsEmpty()) return;
  Napi::Object info = Napi::Object::New(env);
  info.Set("id", Number(env, static_cast<double>(Id())));
  GetOperationStartCallbackInfo(info);
  _startCallback.Call(inJs, {info});
  if (!inJs) RaisePendingAsUncaught(env);
}

void BaseOperation::SignalWorkProgress_UNSAFE(Napi::Env&) {
  if (_observer == nullptr) {
    _progressFailed = true;
    return;
  }
  if (_paused) return;
  if (_canceled) {
    _buffer.IgnoreAll();
    return;
  }
  const uint32_t before = _buffer.GetAvailableBytesCount();
  const int code = _observer->SignalData(_buffer, false);
  if (code != 0) {
    _progressError = code;
    _observer = nullptr;
    _progressFailed = true;
    return;
  }
  if (_firstSendTimestamp < 0) _firstSendTimestamp = static_cast<long>(GetTimestampMillis());
  _totalWrite += before - _buffer.GetAvailableBytesCount();
}

void BaseOperation::CallProgress(Napi::Env& env, bool inJs, int progress) {
  _lastProgress = progress;
  Napi::Object info = Napi::Object::New(env);
  info.Set("id", Number(env, static_cast<double>(Id())));
  info.Set("progress", Number(env, progress));
  _progressCallback.Call(inJs, {info});
  if (!inJs) RaisePendingAsUncaught(env);
}

void BaseOperation::SignalWorkProgress(Napi::Env& env, bool inJs) {
  int progress;
  {
    Locked lock(_mutex);
    if (_observer != nullptr) SignalWorkProgress_UNSAFE(env);
    progress = GetProgress();
  }
  if (!_dstCallback.IsEmpty()) {
    _dstCallback.Call(inJs, {});
    if (!inJs) RaisePendingAsUncaught(env);
  }
  if (!_progressCallback.IsEmpty() && progress != _lastProgress) CallProgress(env, inJs, progress);
}

void BaseOperation::SignalWorkEnd(Napi::Env& env, bool inJs, int code,
                                  const vrex::errors::error_info_t* info) {
  const bool canceled = IsCanceled();
  if (code == 0 && !canceled && !_progressCallback.IsEmpty() && _lastProgress < 100) {
    CallProgress(env, inJs, 100);
  }
  bool bytesLeft;
  {
    Locked lock(_mutex);
    if (code == 0 && canceled) _buffer.IgnoreAll();
    if (code == 0 && _observer != nullptr) {
      // The observer's last data; it is dropped whatever it answers.
      const uint32_t before = _buffer.GetAvailableBytesCount();
      const int last = _observer->SignalData(_buffer, true);
      if (last != 0) {
        code = last;
        info = vrex::errors::GetErrorInfo();
      } else {
        _totalWrite += before - _buffer.GetAvailableBytesCount();
      }
      _observer = nullptr;
    }
    bytesLeft = _buffer.GetAvailableBytesCount() > 0;
  }
  if (!_dstCallback.IsEmpty() && bytesLeft) {
    _dstCallback.Call(inJs, {});
    if (!inJs) RaisePendingAsUncaught(env);
  }
  Task::SignalWorkEnd(env, inJs, code, info);
  OperationObserver* observer;
  {
    Locked lock(_mutex);
    observer = _observer;
    _observer = nullptr;
  }
  if (observer != nullptr) observer->SignalFinished();
}

void BaseOperation::GetCallbackParamInfo(Napi::Object& result) {
  GetCommonInfo(result);
  result.Set("canceled", Napi::Boolean::New(result.Env(), IsCanceled()));
  GetOperationEndCallbackInfo(result);
}

void BaseOperation::GetCallbackParamError(Napi::Object& error) {
  GetCommonInfo(error);
  GetOperationEndCallbackError(error);
}

void BaseOperation::GetCommonInfo(Napi::Object& object) {
  Napi::Env env = object.Env();
  Locked lock(_mutex);
  object.Set("initCompletedTime", Number(env, static_cast<double>(_initCompletedTimestamp)));
  object.Set("firstReadTime", Number(env, static_cast<double>(_firstReadTimestamp)));
  object.Set("firstSendTime", Number(env, static_cast<double>(_firstSendTimestamp)));
  object.Set("totalRead", Number(env, static_cast<double>(_totalRead)));
  object.Set("totalWrite", Number(env, static_cast<double>(_totalWrite)));
  Napi::Array flips = Napi::Array::New(env, _stateFlips.size());
  for (size_t i = 0; i < _stateFlips.size(); ++i) {
    Napi::Object flip = Napi::Object::New(env);
    flip.Set("timestamp", Number(env, static_cast<double>(_stateFlips[i].timestamp)));
    flip.Set("state", Napi::String::New(env, _stateFlips[i].paused ? "paused" : "resumed"));
    flips.Set(static_cast<uint32_t>(i), flip);
  }
  object.Set("stateFlips", flips);
}

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
