// Stands in for Node-API's function of the same name, as a host with a memory cage answers it.

#include <node_api.h>

// NOLINTNEXTLINE(bugprone-reserved-identifier): the name that the linker's --wrap looks for
extern "C" napi_status __wrap_napi_create_external_arraybuffer(napi_env, void*, size_t,
                                                               napi_finalize, void*, napi_value*) {
  return napi_no_external_buffers_allowed;
}
