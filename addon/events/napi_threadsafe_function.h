// The one way from any thread to the JavaScript thread.

#ifndef ADDON_EVENTS_NAPI_THREADSAFE_FUNCTION_H_
#define ADDON_EVENTS_NAPI_THREADSAFE_FUNCTION_H_

#include <napi.h>
#include <uv.h>

#include <deque>
#include <functional>
#include <optional>

#include "base/mutex.h"

namespace events {

// Carries opaque pointers from any thread to the thread of libuv's default loop, where each is
// handed, once and in posting order, to one fixed callback.
//
// Owned by a JavascriptDispatcher; made and closed on the loop thread; call() comes from any
// thread. While it is open and referenced, its libuv handle keeps the process alive.
//
// Each item runs in a handle scope and a callback scope of its own: the ticks and promises of one
// item settle before the next item, as with Node's own emitters. An exception that leaves the
// callback becomes an 'uncaughtException' of the application, and the items behind it still
// arrive.
class NapiThreadsafeFunction {
 public:
  using Callback = std::function<void(Napi::Env, void*)>;
  using Discard = std::function<void(void*)>;

  // `discard` frees an item that will not be delivered; it may run on any thread. Throws
  // std::runtime_error when libuv refuses the handle.
  NapiThreadsafeFunction(Napi::Env env, Callback callback, Discard discard);
  // Closes, and so runs on the loop thread unless close() did before.
  ~NapiThreadsafeFunction();
  NapiThreadsafeFunction(const NapiThreadsafeFunction&) = delete;
  NapiThreadsafeFunction& operator=(const NapiThreadsafeFunction&) = delete;

  // Posts an item. After close() the item is discarded instead. Any thread.
  void call(void* data) EXCLUDES(mutex_);

  // Lets the process end although this is open. Loop thread.
  void unref();

  // Discards what is queued and gives the libuv handle back. Loop thread; more calls do nothing.
  void close() EXCLUDES(mutex_);

 private:
  // The libuv handle lives on until libuv has closed it, after this object is gone.
  struct AsyncHandle {
    uv_async_t async;
    NapiThreadsafeFunction* owner;  // null once closed
  };

  static void doCallback(uv_async_t* handle);
  // Runs the oldest item; false when there was none. The item may close or delete this object.
  bool deliverNext() EXCLUDES(mutex_);
  void deliver(void* data);

  const Callback callback_;
  const Discard discard_;
  const Napi::Env env_;
  // Names the callback scopes' origin to Node's async hooks; empty once closed. Loop thread only.
  std::optional<Napi::AsyncContext> asyncContext_;

  base::Mutex mutex_;
  std::deque<void*> queue_ GUARDED_BY(mutex_);
  AsyncHandle* asyncHandle_ GUARDED_BY(mutex_) = nullptr;  // null once closed
};

}  // namespace events

#endif  // ADDON_EVENTS_NAPI_THREADSAFE_FUNCTION_H_
