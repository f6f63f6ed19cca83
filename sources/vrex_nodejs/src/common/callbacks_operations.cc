// The functions that act on a running operation by id: pause, resume, cancel, drain and limit.
#include "common/callbacks.h"
#include "common/find_operation.h"
#include "common/js_error.h"
#include "nodejs/errors.h"

namespace vrex {
namespace nodejs {
namespace common {

using vrex::webrtcnodejs::ERR_NODEJS_INVALID_PARAMETERS;

namespace {

// The operation of info[0], or null with the error thrown.
std::shared_ptr<BaseOperation> Operation(const Napi::CallbackInfo& info) {
  int errorCode = 0;
  std::shared_ptr<BaseOperation> operation = FindOperation(info, errorCode);
  if (!operation) THROW_ERROR(info.Env(), errorCode);
  return operation;
}

// The bytes of an IOBuffer handed to JavaScript; the Buffer's finalizer frees them.
struct finalized_buffer_t {
  vrex::common::IOBuffer* buffer;

  static void Delete(Napi::Env, uint8_t*, finalized_buffer_t* record) {
    delete record->buffer;
    delete record;
  }
};

}  // namespace

Napi::Value callback_pauseOperation(const Napi::CallbackInfo& info) {
  if (std::shared_ptr<BaseOperation> operation = Operation(info)) operation->Pause();
  return info.Env().Undefined();
}

Napi::Value callback_resumeOperation(const Napi::CallbackInfo& info) {
  std::shared_ptr<BaseOperation> operation = Operation(info);
  if (!operation) return info.Env().Undefined();
  // Told apart by the count of arguments only: resumeOperation(id, undefined) is the second form.
  if (info.Length() >= 2) {
    Napi::Number ms = info[1].ToNumber();
    if (!info.Env().IsExceptionPending()) operation->ResumeAutoPause(static_cast<long>(ms.Int64Value()));
  } else {
    operation->Resume();
  }
  return info.Env().Undefined();
}

Napi::Value callback_cancelOperation(const Napi::CallbackInfo& info) {
  if (std::shared_ptr<BaseOperation> operation = Operation(info)) operation->Cancel();
  return info.Env().Undefined();
}

Napi::Value callback_consumeOperationBufferedData(const Napi::CallbackInfo& info) {
  Napi::Env env = info.Env();
  std::shared_ptr<BaseOperation> operation = Operation(info);
  if (!operation) return env.Null();
  if (info.Length() < 2 || !info[1].IsArrayBuffer()) {
    THROW_ERROR(env, VREX_ERROR(ERR_NODEJS_INVALID_PARAMETERS));
    return env.Null();
  }
  Napi::ArrayBuffer target = info[1].As<Napi::ArrayBuffer>();
  const unsigned long copied = operation->ConsumeData(target.Data(), target.ByteLength());
  return Napi::DataView::New(env, target, 0, copied);
}

Napi::Value callback_transferOperationBufferedData(const Napi::CallbackInfo& info) {
  Napi::Env env = info.Env();
  std::shared_ptr<BaseOperation> operation = Operation(info);
  if (!operation) return env.Null();
  vrex::common::IOBuffer taken;
  operation->MoveAllData(taken);
  const uint32_t length = taken.GetAvailableBytesCount();
  if (length == 0) return Napi::Buffer<uint8_t>::New(env, 0);
  // Both moves swap allocations: the bytes are never copied on their way to JavaScript.
  auto* record = new finalized_buffer_t{new vrex::common::IOBuffer()};
  record->buffer->ReadFromInputBufferWithIgnore(taken);
  uint8_t* data = record->buffer->GetPointer() + record->buffer->GetConsumed();
  return Napi::Buffer<uint8_t>::New(env, data, length, finalized_buffer_t::Delete, record);
}

Napi::Value callback_operationSetMaxBufferSize(const Napi::CallbackInfo& info) {
  Napi::Env env = info.Env();
  std::shared_ptr<BaseOperation> operation = Operation(info);
  if (!operation) return env.Undefined();
  if (info.Length() < 2 || !info[1].IsNumber()) {
    THROW_ERROR(env, VREX_ERROR(ERR_NODEJS_INVALID_PARAMETERS));
    return env.Undefined();
  }
  const int64_t size = info[1].As<Napi::Number>().Int64Value();
  if (size > 0) operation->SetMaxBufferSize(static_cast<unsigned long>(size));
  return env.Undefined();
}

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
