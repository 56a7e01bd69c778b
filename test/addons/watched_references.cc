// Stands between the addon and Node-API's functions for references. When the process ends, a line
// on standard error says how many strong references were left when the environment was gone, and
// how many references were deleted after that, or on another thread than the one that made the
// first.

#include <node_api.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <set>

namespace {

std::mutex mutex;
std::set<napi_ref> strong;  // guarded by the mutex
std::atomic<bool> hasEnded = false;
std::atomic<int> leftAtTheEnd = 0;
std::atomic<int> deletedLate = 0;
std::atomic<int> deletedElsewhere = 0;
std::atomic<pid_t> ownThread = 0;

// Runs before the destructors of the addon's static objects, as it is registered after them.
void environmentHasEnded() {
  const std::scoped_lock lock(mutex);
  leftAtTheEnd = static_cast<int>(strong.size());
  hasEnded = true;
}

// Runs after the destructors of static objects.
[[gnu::destructor]] void report() {
  dprintf(STDERR_FILENO, "references left: %d, deleted late: %d, deleted elsewhere: %d\n",
          leftAtTheEnd.load(), deletedLate.load(), deletedElsewhere.load());
}

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the names that the linker's --wrap looks for
extern "C" {

napi_status __real_napi_create_reference(napi_env env, napi_value value, uint32_t count,
                                         napi_ref* result);
napi_status __real_napi_delete_reference(napi_env env, napi_ref reference);

napi_status __wrap_napi_create_reference(napi_env env, napi_value value, uint32_t count,
                                         napi_ref* result) {
  if (ownThread.exchange(gettid()) == 0) std::atexit(environmentHasEnded);
  const napi_status status = __real_napi_create_reference(env, value, count, result);
  if (status == napi_ok && count > 0) {
    const std::scoped_lock lock(mutex);
    strong.insert(*result);
  }
  return status;
}

napi_status __wrap_napi_delete_reference(napi_env env, napi_ref reference) {
  {
    const std::scoped_lock lock(mutex);
    strong.erase(reference);
  }
  // Not passed on: it would use freed memory, or memory of another thread.
  if (hasEnded) {
    ++deletedLate;
    return napi_ok;
  }
  if (gettid() != ownThread) {
    ++deletedElsewhere;
    return napi_ok;
  }
  return __real_napi_delete_reference(env, reference);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
