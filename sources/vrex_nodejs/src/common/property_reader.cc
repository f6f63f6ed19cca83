// PropertyReader: has, get, typeof, then the typed read.
#include "common/property_reader.h"

namespace vrex {
namespace nodejs {
namespace common {

namespace {

// Throws the pending Node-API failure into JavaScript; true when `status` is a failure.
bool Failed(Napi::Env env, napi_status status) {
  if (status == napi_ok) return false;
  Napi::Error::New(env).ThrowAsJavaScriptException();
  return true;
}

}  // namespace

napi_value PropertyReader::Lookup(const std::string& name, napi_valuetype type) {
  napi_env env = _object.Env();
  bool has = false;
  if (Failed(env, napi_has_named_property(env, _object, name.c_str(), &has)) || !has) {
    return nullptr;
  }
  napi_value value;
  if (Failed(env, napi_get_named_property(env, _object, name.c_str(), &value))) return nullptr;
  napi_valuetype actual;
  if (Failed(env, napi_typeof(env, value, &actual)) || actual != type) return nullptr;
  return value;
}

bool* PropertyReader::ReadBoolean(const std::string& name, bool* out) {
  napi_env env = _object.Env();
  napi_value value = Lookup(name, napi_boolean);
  if (value == nullptr) return nullptr;
  napi_value coerced;
  bool result;
  if (Failed(env, napi_coerce_to_bool(env, value, &coerced)) ||
      Failed(env, napi_get_value_bool(env, coerced, &result))) {
    return nullptr;
  }
  *out = result;
  return out;
}

bool PropertyReader::ReadInt64(const std::string& name, int64_t* out) {
  napi_env env = _object.Env();
  napi_value value = Lookup(name, napi_number);
  if (value == nullptr) return false;
  napi_value coerced;
  if (Failed(env, napi_coerce_to_number(env, value, &coerced)) ||
      Failed(env, napi_get_value_int64(env, coerced, out))) {
    return false;
  }
  return true;
}

std::string* PropertyReader::ReadString(const std::string& name, std::string* out) {
  napi_env env = _object.Env();
  napi_value value = Lookup(name, napi_string);
  if (value == nullptr) return nullptr;
  size_t length = 0;
  if (Failed(env, napi_get_value_string_utf8(env, value, nullptr, 0, &length))) return nullptr;
  std::string text(length, '\0');
  if (Failed(env, napi_get_value_string_utf8(env, value, &text[0], length + 1, &length))) {
    return nullptr;
  }
  *out = std::move(text);
  return out;
}

async_callback_info_t* PropertyReader::ReadFunction(const std::string& name, napi_value receiver,
                                                    async_callback_info_t* out) {
  napi_value value = Lookup(name, napi_function);
  if (value == nullptr) return nullptr;
  napi_env env = _object.Env();
  *out = {env, value, env, receiver};
  return out;
}

std::vector<std::string>* PropertyReader::ReadStrings(const std::string& name,
                                                      std::vector<std::string>* out) {
  napi_value value = Lookup(name, napi_object);
  if (value == nullptr) return nullptr;
  Napi::Value array(_object.Env(), value);
  if (!array.IsArray()) return nullptr;
  Napi::Array elements = array.As<Napi::Array>();
  std::vector<std::string> strings;
  for (uint32_t i = 0; i < elements.Length(); ++i) {
    Napi::Value element = elements.Get(i);
    if (element.IsEmpty() || !element.IsString()) return nullptr;
    strings.push_back(element.As<Napi::String>().Utf8Value());
  }
  out->insert(out->end(), strings.begin(), strings.end());
  return out;
}

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
