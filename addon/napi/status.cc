#include "addon/napi/status.h"

namespace napi {
namespace {

// What Napi::Error calls the property of the wrapper in which it keeps a thrown primitive.
constexpr const char* kThrownValue = "4bda9e7e-4913-4dbc-95de-891cbf66598e-errorVal";

// Napi::Error looks for that property in the object that it holds, which would run the traps of a
// thrown proxy. Inside a wrapper object the thrown value is not examined and is passed on
// unchanged.
Napi::Error carry(napi_env env, napi_value thrown) {
  const napi_property_descriptor property = {kThrownValue, nullptr, nullptr,      nullptr,
                                             nullptr,      thrown,  napi_default, nullptr};
  napi_value wrapper = nullptr;
  if (napi_create_object(env, &wrapper) != napi_ok ||
      napi_define_properties(env, wrapper, 1, &property) != napi_ok) {
    return {env, thrown};
  }
  return {env, wrapper};
}

}  // namespace

void checkStatus(napi_env env, napi_status status) {
  if (status == napi_ok) return;
  const napi_extended_error_info* info = nullptr;
  napi_get_last_error_info(env, &info);
  // The messages are string constants; `info` itself is overwritten by the next call.
  const char* message = info->error_message != nullptr ? info->error_message : "Node-API failed";
  bool isExceptionPending = false;
  napi_is_exception_pending(env, &isExceptionPending);
  if (!isExceptionPending) throw Napi::Error::New(env, message);
  napi_value thrown = nullptr;
  napi_get_and_clear_last_exception(env, &thrown);
  throw carry(env, thrown);
}

}  // namespace napi
