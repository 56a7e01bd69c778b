// Work to be done before a JavaScript environment ends.

#ifndef ADDON_NAPI_ENVIRONMENT_CLEANUP_HOOK_H_
#define ADDON_NAPI_ENVIRONMENT_CLEANUP_HOOK_H_

#include <napi.h>

#include <functional>
#include <utility>

#include "addon/napi/status.h"

namespace napi {

// Runs `work` once: when run() is called, or when the environment ends first with this object still
// alive, which is when a process ends by itself. process.exit() and an error that nobody handles
// end the process and leave the environment as it is. Used on the JavaScript thread only.
class EnvironmentCleanupHook {
 public:
  EnvironmentCleanupHook(Napi::Env env, std::function<void()> work)
      : env_(env), work_(std::move(work)) {
    checkStatus(env_, napi_add_env_cleanup_hook(env_, runHook, this));
  }
  ~EnvironmentCleanupHook() {
    if (work_) napi_remove_env_cleanup_hook(env_, runHook, this);
  }
  EnvironmentCleanupHook(const EnvironmentCleanupHook&) = delete;
  EnvironmentCleanupHook& operator=(const EnvironmentCleanupHook&) = delete;

  // Runs the work, unless it has run.
  void run() {
    if (!work_) return;
    napi_remove_env_cleanup_hook(env_, runHook, this);
    runHook(this);
  }

 private:
  static void runHook(void* self) {
    const auto work = std::exchange(static_cast<EnvironmentCleanupHook*>(self)->work_, nullptr);
    work();
  }

  napi_env env_;
  std::function<void()> work_;  // empty once it ran
};

}  // namespace napi

#endif  // ADDON_NAPI_ENVIRONMENT_CLEANUP_HOOK_H_
