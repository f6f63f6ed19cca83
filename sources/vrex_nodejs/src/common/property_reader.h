// Typed, forgiving reads of named properties of one JavaScript object.
//
// Each Read returns `out` on success and null otherwise, leaving `out` untouched. A property
// that is absent and one of the wrong type are alike (null, no error), so callers apply their
// default in both cases. A Node-API failure throws into JavaScript and also gives null.
#pragma once

#include <napi.h>

#include <string>
#include <vector>

#include "common/base_js_params.h"

namespace vrex {
namespace nodejs {
namespace common {

class PropertyReader {
 public:
  explicit PropertyReader(Napi::Object object) : _object(object) {}

  // Accepts type boolean only.
  bool* ReadBoolean(const std::string& name, bool* out);
  // Accepts type number only; fractions truncate, NaN and infinities read as 0.
  template <typename T>
  T* ReadInteger(const std::string& name, T* out);
  // Accepts type string only (UTF-8).
  std::string* ReadString(const std::string& name, std::string* out);
  // A function, as the record a task keeps it in, with `receiver` (info.This()) as its
  // receiver. Accepts type function only.
  async_callback_info_t* ReadFunction(const std::string& name, napi_value receiver,
                                      async_callback_info_t* out);
  // An array whose elements are all strings, appended to `out`. Anything else, or an array
  // with an element of another type, gives null and appends nothing.
  std::vector<std::string>* ReadStrings(const std::string& name, std::vector<std::string>* out);

 private:
  // The property's value when present and of `type`; an empty value otherwise.
  napi_value Lookup(const std::string& name, napi_valuetype type);
  bool ReadInt64(const std::string& name, int64_t* out);

  Napi::Object _object;  // not owned
};

template <typename T>
T* PropertyReader::ReadInteger(const std::string& name, T* out) {
  int64_t value;
  if (!ReadInt64(name, &value)) return nullptr;
  *out = static_cast<T>(value);
  return out;
}

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
