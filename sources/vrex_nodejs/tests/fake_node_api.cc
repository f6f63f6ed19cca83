// A stand-in for the host's Node-API in the test binary, which has no JavaScript engine.
//
// The task machinery opens a handle scope around each call from libuv; those succeed here.
// Every other function fails and is counted: the tasks of these tests hold no JavaScript
// callback, so their road must never reach one (see UnexpectedNodeApiCalls). The list holds
// what the linked objects refer to; a test that links more of the addon extends it.
#include <node_api.h>
#include <uv.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>

#include "fake_node_api.h"

namespace {

std::atomic<int> gUnexpected{0};
std::atomic<int> gScopesOpen{0};

napi_status Unexpected(const char* name) {
  fprintf(stderr, "unexpected Node-API call: %s\n", name);
  ++gUnexpected;
  return napi_generic_failure;
}

}  // namespace

namespace vrex {
namespace nodejs {
namespace common {
namespace testing {

int UnexpectedNodeApiCalls() { return gUnexpected.load(); }
int OpenHandleScopes() { return gScopesOpen.load(); }

}  // namespace testing
}  // namespace common
}  // namespace nodejs
}  // namespace vrex

extern "C" {

napi_status NAPI_CDECL napi_open_handle_scope(napi_env, napi_handle_scope* result) {
  static int token;
  *result = reinterpret_cast<napi_handle_scope>(&token);
  ++gScopesOpen;
  return napi_ok;
}

napi_status NAPI_CDECL napi_close_handle_scope(napi_env, napi_handle_scope) {
  --gScopesOpen;
  return napi_ok;
}

// The tests run their tasks on the default loop, as the host's main thread does.
napi_status NAPI_CDECL napi_get_uv_event_loop(napi_env, struct uv_loop_s** loop) {
  *loop = uv_default_loop();
  return napi_ok;
}

NAPI_NO_RETURN void NAPI_CDECL napi_fatal_error(const char* location, size_t, const char* message, size_t) {
  fprintf(stderr, "napi_fatal_error: %s %s\n", location ? location : "", message ? message : "");
  abort();
}

#define VIDORA_FAKE_NAPI(name, ...) \
  napi_status NAPI_CDECL name(__VA_ARGS__) { return Unexpected(#name); }

VIDORA_FAKE_NAPI(napi_async_destroy, napi_env, napi_async_context)
VIDORA_FAKE_NAPI(napi_call_function, napi_env, napi_value, napi_value, size_t, const napi_value*, napi_value*)
VIDORA_FAKE_NAPI(napi_close_callback_scope, napi_env, napi_callback_scope)
VIDORA_FAKE_NAPI(napi_close_escapable_handle_scope, napi_env, napi_escapable_handle_scope)
VIDORA_FAKE_NAPI(napi_coerce_to_object, napi_env, napi_value, napi_value*)
VIDORA_FAKE_NAPI(napi_create_array, napi_env, napi_value*)
VIDORA_FAKE_NAPI(napi_create_double, napi_env, double, napi_value*)
VIDORA_FAKE_NAPI(napi_create_error, napi_env, napi_value, napi_value, napi_value*)
VIDORA_FAKE_NAPI(napi_create_object, napi_env, napi_value*)
VIDORA_FAKE_NAPI(napi_create_reference, napi_env, napi_value, uint32_t, napi_ref*)
VIDORA_FAKE_NAPI(napi_create_string_utf8, napi_env, const char*, size_t, napi_value*)
VIDORA_FAKE_NAPI(napi_create_type_error, napi_env, napi_value, napi_value, napi_value*)
VIDORA_FAKE_NAPI(napi_define_properties, napi_env, napi_value, size_t, const napi_property_descriptor*)
VIDORA_FAKE_NAPI(napi_delete_reference, napi_env, napi_ref)
VIDORA_FAKE_NAPI(napi_escape_handle, napi_env, napi_escapable_handle_scope, napi_value, napi_value*)
VIDORA_FAKE_NAPI(napi_fatal_exception, napi_env, napi_value)
VIDORA_FAKE_NAPI(napi_get_and_clear_last_exception, napi_env, napi_value*)
VIDORA_FAKE_NAPI(napi_get_boolean, napi_env, bool, napi_value*)
VIDORA_FAKE_NAPI(napi_get_last_error_info, node_api_basic_env, const napi_extended_error_info**)
VIDORA_FAKE_NAPI(napi_get_null, napi_env, napi_value*)
VIDORA_FAKE_NAPI(napi_get_property, napi_env, napi_value, napi_value, napi_value*)
VIDORA_FAKE_NAPI(napi_get_reference_value, napi_env, napi_ref, napi_value*)
VIDORA_FAKE_NAPI(napi_get_undefined, napi_env, napi_value*)
VIDORA_FAKE_NAPI(napi_get_value_string_utf8, napi_env, napi_value, char*, size_t, size_t*)
VIDORA_FAKE_NAPI(napi_has_property, napi_env, napi_value, napi_value, bool*)
VIDORA_FAKE_NAPI(napi_is_exception_pending, napi_env, bool*)
VIDORA_FAKE_NAPI(napi_make_callback, napi_env, napi_async_context, napi_value, napi_value, size_t, const napi_value*, napi_value*)
VIDORA_FAKE_NAPI(napi_open_escapable_handle_scope, napi_env, napi_escapable_handle_scope*)
VIDORA_FAKE_NAPI(napi_set_element, napi_env, napi_value, uint32_t, napi_value)
VIDORA_FAKE_NAPI(napi_set_named_property, napi_env, napi_value, const char*, napi_value)
VIDORA_FAKE_NAPI(napi_throw, napi_env, napi_value)
VIDORA_FAKE_NAPI(napi_typeof, napi_env, napi_value, napi_valuetype*)

}  // extern "C"
