// The module's entry: registers the two classes.

#include <napi.h>
#include <node_api.h>

#include "addon/proxy/tessel_wrapper_proxy.h"
#include "addon/wrapper/tessel_wrapper.h"

namespace {

Napi::Object Init(Napi::Env env, Napi::Object exports) {
  return proxy::TesselWrapperProxy::Init(env, wrapper::TesselWrapper::Init(env, exports));
}

// NOLINTNEXTLINE(bugprone-reserved-identifier): the name under which Node.js knows it
napi_value __napi_Init(napi_env env, napi_value exports) {
  try {
    return Init(env, Napi::Object(env, exports));
  } catch (const Napi::Error& error) {
    error.ThrowAsJavaScriptException();
    return nullptr;
  }
}

napi_module module = {
    .nm_version = NAPI_MODULE_VERSION,
    .nm_flags = 0,
    .nm_filename = "tesselWrapper.node",
    .nm_register_func = __napi_Init,
    .nm_modname = "addon",
    .nm_priv = nullptr,
    .reserved = {},
};

// Runs when the shared object is loaded, before Node.js asks for the exports.
[[gnu::constructor]] void registerModule() { napi_module_register(&module); }

}  // namespace

// Static initialisers run once, because the shared object is never unmapped. When Node.js no longer
// has the record, for example because the worker that loaded the module first has ended, it calls
// this.
extern "C" NAPI_MODULE_EXPORT napi_value napi_register_module_v1(napi_env env, napi_value exports) {
  return __napi_Init(env, exports);
}
