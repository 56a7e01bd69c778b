#include "napi/status.h"

namespace Utils {

void checkStatus(napi_env env, napi_status status) {
  if (status == napi_ok) return;
  const napi_extended_error_info* info = nullptr;
  napi_get_last_error_info(env, &info);
  // The messages are string constants; `info` itself is overwritten by the next call.
  const char* message = info->error_message != nullptr ? info->error_message : "Node-API failed";
  bool isExceptionPending = false;
  napi_is_exception_pending(env, &isExceptionPending);
  if (isExceptionPending) throw Napi::Error::New(env);
  throw Napi::Error::New(env, message);
}

}  // namespace Utils
