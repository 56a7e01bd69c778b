// Failures of Node-API as JavaScript errors.

#ifndef ADDON_NAPI_STATUS_H_
#define ADDON_NAPI_STATUS_H_

#include <napi.h>

namespace napi {

// Throws a Napi::Error unless `status` is napi_ok: the pending JavaScript exception when there is
// one, else a plain Error with Node-API's last message. (Napi::Error::New(env) would make a
// TypeError of some of them; TypeErrors are reserved for errors of the caller.) To be called right
// after the Node-API call that gave `status`.
void checkStatus(napi_env env, napi_status status);

}  // namespace napi

#endif  // ADDON_NAPI_STATUS_H_
