// GetJsError: builds the error object from a code and an error_info_t.
#include "common/js_error.h"

namespace vrex {
namespace nodejs {
namespace common {

namespace {

using vrex::errors::error_code_t;

// A property that cannot be set is skipped; the rest of the object is still filled.
void SetProperty(Napi::Env env, Napi::Object& object, const char* name, napi_value value) {
  if (napi_set_named_property(env, object, name, value) != napi_ok) {
    Napi::Error::New(env).ThrowAsJavaScriptException();
  }
}

Napi::Object ErrorEntry(Napi::Env env, const error_code_t& step) {
  Napi::Object entry = Napi::Object::New(env);
  SetProperty(env, entry, "full", Napi::Number::New(env, static_cast<int32_t>(step.code)));
  SetProperty(env, entry, "module", Napi::Number::New(env, vrex::errors::ModuleOf(step.code)));
  SetProperty(env, entry, "code", Napi::Number::New(env, vrex::errors::NumberOf(step.code)));
  SetProperty(env, entry, "description",
              Napi::String::New(env, vrex::errors::GetDescription(step.code)));
  SetProperty(env, entry, "fileName", Napi::String::New(env, step.file));
  SetProperty(env, entry, "lineNumber", Napi::Number::New(env, step.line));
  return entry;
}

}  // namespace

Napi::Error GetJsError(Napi::Env& env, int code, const vrex::errors::error_info_t* info) {
  Napi::Error error = Napi::Error::New(env, vrex::errors::GetDescription(code));
  if (info == nullptr || error.IsEmpty()) return error;
  Napi::Object object = error.Value();

  Napi::Array errors = Napi::Array::New(env);
  if (info->chain.empty()) {
    errors.Set(0u, ErrorEntry(env, {code, "unknown", 0}));
  } else {
    for (uint32_t i = 0; i < info->chain.size(); ++i) errors.Set(i, ErrorEntry(env, info->chain[i]));
  }
  SetProperty(env, object, "errors", errors);

  if (!info->extraInfo.empty()) {
    Napi::Object extra = Napi::Object::New(env);
    for (const auto& entry : info->extraInfo) {
      SetProperty(env, extra, entry.first.c_str(), Napi::String::New(env, entry.second));
    }
    SetProperty(env, object, "extraInfo", extra);
  }
  if (!info->frames.empty()) {
    Napi::Array stack = Napi::Array::New(env);
    for (uint32_t i = 0; i < info->frames.size(); ++i) {
      stack.Set(i, Napi::String::New(env, info->frames[i].display));
    }
    SetProperty(env, object, "stackTrace", stack);
  }
  return error;
}

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
