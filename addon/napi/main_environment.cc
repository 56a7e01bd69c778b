#include "addon/napi/main_environment.h"

#include <uv.h>

#include <string>

#include "addon/napi/status.h"

namespace napi {

bool isMainEnvironment(Napi::Env env) {
  uv_loop_t* loop = nullptr;
  checkStatus(env, napi_get_uv_event_loop(env, &loop));
  return loop == uv_default_loop();
}

void requireMainEnvironment(Napi::Env env, const char* what) {
  if (isMainEnvironment(env)) return;
  throw Napi::Error::New(env, std::string(what) + " is only possible on the main thread");
}

}  // namespace napi
