// Runs closures on the JavaScript thread.

#ifndef ADDON_EVENTS_JAVASCRIPT_DISPATCHER_H_
#define ADDON_EVENTS_JAVASCRIPT_DISPATCHER_H_

#include <napi.h>

#include "addon/events/napi_threadsafe_function.h"

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

  // Returns when the closure has run, has thrown, or was dropped. Blocks for ever on the JavaScript
  // thread itself, where the closure would have to run.
  void sync(Closure closure);

  // Delivers what is queued so far, then stops keeping the process alive. JavaScript thread.
  void releaseEventLoop();

  // Drops what is queued and what is posted from now on, which releases every caller of sync.
  // JavaScript thread; more calls do nothing.
  void close();

 private:
  // Thread-safe by themselves.
  NapiThreadsafeFunction asyncFunction_;
  NapiThreadsafeFunction syncFunction_;
};

}  // namespace events

#endif  // ADDON_EVENTS_JAVASCRIPT_DISPATCHER_H_
