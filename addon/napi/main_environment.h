// Which JavaScript environment a call comes from.

#ifndef ADDON_NAPI_MAIN_ENVIRONMENT_H_
#define ADDON_NAPI_MAIN_ENVIRONMENT_H_

#include <napi.h>

namespace napi {

// True on the process's main JavaScript thread, false in a worker thread.
bool isMainEnvironment(Napi::Env env);

// Throws a Napi::Error "<what> is only possible on the main thread" in a worker thread, whose event
// loop is not the default one that events are delivered on.
void requireMainEnvironment(Napi::Env env, const char* what);

}  // namespace napi

#endif  // ADDON_NAPI_MAIN_ENVIRONMENT_H_
