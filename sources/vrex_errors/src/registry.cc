// The registry of modules and their description functions.
#include <cassert>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>

#include "errors/errors.h"

namespace vrex {
namespace errors {

namespace {

using describe_fn = const char* (*)(uint16_t);
using error_functions_t = std::map<uint16_t, describe_fn>;

// Written only during static initialisation and destruction; read without a lock.
error_functions_t* _pgErrorFunctions = nullptr;

void RegisterModule(uint16_t module, describe_fn describe) {
  if (_pgErrorFunctions == nullptr) _pgErrorFunctions = new error_functions_t();
  if (describe == nullptr || _pgErrorFunctions->count(module) != 0) {
    fprintf(stderr, "Module already registered or NULL function provided\n");
    assert(false && "Module already registered or NULL function provided");
    abort();
  }
  (*_pgErrorFunctions)[module] = describe;
}

}  // namespace

const char* GetSystemErrorDescription(uint16_t number) { return strerror(number); }

int SystemError(int errnoValue) {
  return static_cast<int>((static_cast<uint32_t>(abs(errnoValue)) & 0xffff) | 0x80000000u);
}

InitErrors::InitErrors(uint16_t module, const char* (*describe)(uint16_t)) : _module(module) {
  RegisterModule(module, describe);
}

InitErrors::~InitErrors() {
  if (_pgErrorFunctions == nullptr) return;
  _pgErrorFunctions->erase(_module);
  if (_pgErrorFunctions->empty()) {
    delete _pgErrorFunctions;
    _pgErrorFunctions = nullptr;
  }
}

const char* GetDescription(int code) {
  static const char* const kUnknown = "### UNKNOWN ERROR CODE ###";
  if (_pgErrorFunctions == nullptr) return kUnknown;
  if (code == 0) return "OK";
  if (!IsError(code)) return kUnknown;
  auto it = _pgErrorFunctions->find(ModuleOf(code));
  if (it == _pgErrorFunctions->end()) return kUnknown;
  return it->second(NumberOf(code));
}

InitErrors systemErrors(0, GetSystemErrorDescription);

int InitializeErrorCodes() { return 0; }

}  // namespace errors
}  // namespace vrex
