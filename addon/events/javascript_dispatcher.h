// Runs closures on the JavaScript thread.

#ifndef ADDON_EVENTS_JAVASCRIPT_DISPATCHER_H_
#define ADDON_EVENTS_JAVASCRIPT_DISPATCHER_H_

#include <napi.h>

#include <set>

#include "addon/events/napi_threadsafe_function.h"
#include "base/mutex.h"

namespace events {

// Takes closures from any thread and runs each exactly once on the JavaScript thread: fire and
// forget (async), or with the caller blocked until it has run (sync). Closures of one kind run in
// posting order; the two kinds are independent of each other.
//
// One per TesselWrapper, shared with its TesselEventHandler. Made and closed on the JavaScript
// thread; after close() it may be used and released on any thread and drops what is posted.
class JavascriptDispatcher {
 public:
  explicit JavascriptDispatcher(Napi::Env env);
  // Closes, and so runs on the JavaScript thread unless close() did before.
  ~JavascriptDispatcher();
  JavascriptDispatcher(const JavascriptDispatcher&) = delete;
  JavascriptDispatcher& operator=(const JavascriptDispatcher&) = delete;

  // Returns as soon as the closure is queued.
  void async(Closure closure);

  // Returns when the closure has run, has thrown or was dropped. Blocks for ever on
  // the JavaScript thread itself, where the closure would have to run. One waiting caller is woken
  // for each closure that has run, so a caller among several may wait until a later closure wakes
  // it.
  void sync(Closure closure) EXCLUDES(mutex_);

  // Delivers what is queued so far, then stops keeping the process alive. JavaScript thread.
  void releaseEventLoop();

  // Drops what is queued and what is posted from now on, which releases every caller of sync.
  // JavaScript thread; more calls do nothing.
  void close() EXCLUDES(mutex_);

 private:
  class SyncItem;

  void settleSyncCall(const SyncItem* item) EXCLUDES(mutex_);

  base::Mutex mutex_;
  base::CondVar condition_;  // an item was settled, or closed_ became true
  // Whose callers wait.
  std::set<const SyncItem*> pendingSyncCalls_ GUARDED_BY(mutex_);
  bool closed_ GUARDED_BY(mutex_) = false;

  // Last, because their items use the members above. Thread-safe by themselves.
  NapiThreadsafeFunction asyncFunction_;
  NapiThreadsafeFunction syncFunction_;
};

}  // namespace events

#endif  // ADDON_EVENTS_JAVASCRIPT_DISPATCHER_H_
