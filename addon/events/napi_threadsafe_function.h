// The way from any thread to the JavaScript thread.

#ifndef ADDON_EVENTS_NAPI_THREADSAFE_FUNCTION_H_
#define ADDON_EVENTS_NAPI_THREADSAFE_FUNCTION_H_

#include <napi.h>
#include <uv.h>

#include <deque>
#include <functional>
#include <optional>

#include "base/mutex.h"

namespace events {

// Work for the JavaScript thread.
using Closure = std::function<void(Napi::Env)>;

// Carries closures from any thread to the thread of libuv's default loop, where each runs once, in
// posting order.
//
// Owned by a JavascriptDispatcher; made and closed on the loop thread; call() comes from any
// thread. While it is open and referenced, its libuv handle keeps the process alive.
//
// Each closure runs in a handle scope and a callback scope of its own: the ticks and promises of
// one closure settle before the next closure, as with Node's own emitters. An exception that leaves
// a closure, and a callback scope that cannot be opened, become an 'uncaughtException' of the
// application. A closure is freed also when it throws or cannot run, and the ones behind it still
// run.
class NapiThreadsafeFunction {
 public:
  // Throws std::runtime_error when libuv refuses the handle.
  explicit NapiThreadsafeFunction(Napi::Env env);
  // Closes, and so runs on the loop thread unless close() did before.
  ~NapiThreadsafeFunction();
  NapiThreadsafeFunction(const NapiThreadsafeFunction&) = delete;
  NapiThreadsafeFunction& operator=(const NapiThreadsafeFunction&) = delete;

  // Posts a closure. After close() it is freed instead. Any thread.
  void call(Closure closure) EXCLUDES(mutex_);

  // Lets the process end although this is open. Loop thread.
  void unref();

  // Frees what is queued and gives the libuv handle back. Loop thread; more calls do nothing.
  void close() EXCLUDES(mutex_);

 private:
  // The libuv handle lives on until libuv has closed it, after this object is gone.
  struct AsyncHandle {
    uv_async_t async;
    NapiThreadsafeFunction* owner;  // null once closed
  };

  static void doCallback(uv_async_t* handle);
  // Runs the oldest closure; false when there was none. The closure may close or delete this
  // object.
  bool runNext() EXCLUDES(mutex_);
  void run(Closure closure) const;

  const Napi::Env env_;
  // Names the callback scopes' origin to Node's async hooks; empty once closed. Loop thread only.
  std::optional<Napi::AsyncContext> asyncContext_;

  base::Mutex mutex_;
  std::deque<Closure> queue_ GUARDED_BY(mutex_);
  AsyncHandle* asyncHandle_ GUARDED_BY(mutex_) = nullptr;  // null once closed
};

}  // namespace events

#endif  // ADDON_EVENTS_NAPI_THREADSAFE_FUNCTION_H_
