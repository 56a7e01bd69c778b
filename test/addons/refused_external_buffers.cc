// Replaces Node-API's function of the same name by one that refuses, like a host with a memory
// cage; for a plane of 91 bytes, 13 by 7 pixels, it fails with another error.

#include <node_api.h>

// NOLINTNEXTLINE(bugprone-reserved-identifier): the name that the linker's --wrap looks for
extern "C" napi_status __wrap_napi_create_external_arraybuffer(napi_env, void*, size_t size,
                                                               napi_finalize, void*, napi_value*) {
  constexpr size_t kFailingSize = 91;
  return size == kFailingSize ? napi_generic_failure : napi_no_external_buffers_allowed;
}
