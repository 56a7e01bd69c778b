#include "addon/events/napi_threadsafe_function.h"

#include <memory>
#include <stdexcept>
#include <utility>

#include "addon/napi/status.h"

namespace events {
namespace {

// A handle scope, if Node-API could open one.
class HandleScope {
 public:
  explicit HandleScope(napi_env env) : env_(env) {
    if (napi_open_handle_scope(env_, &scope_) != napi_ok) scope_ = nullptr;
  }
  ~HandleScope() {
    if (isOpen()) napi_close_handle_scope(env_, scope_);
  }
  HandleScope(const HandleScope&) = delete;
  HandleScope& operator=(const HandleScope&) = delete;

  bool isOpen() const { return scope_ != nullptr; }

 private:
  napi_env env_;
  napi_handle_scope scope_ = nullptr;
};

// Unlike the binding's own class, this makes no resource object, which Node-API ignores.
napi_callback_scope openCallbackScope(Napi::Env env, napi_async_context context) {
  napi_callback_scope scope = nullptr;
  napi::checkStatus(env, napi_open_callback_scope(env, nullptr, context, &scope));
  return scope;
}

// Hands an error to the application as an 'uncaughtException'.
void reportUncaught(const Napi::Error& error) { napi_fatal_exception(error.Env(), error.Value()); }

// No exception of `work` passes: the caller is libuv, which is C.
template <typename Work>
void reportingExceptions(Napi::Env env, const Work& work) {
  try {
    work();
  } catch (const Napi::Error& error) {
    reportUncaught(error);
  } catch (const std::exception& error) {
    reportUncaught(Napi::Error::New(env, error.what()));
  } catch (...) {
    reportUncaught(Napi::Error::New(env, "A native exception was thrown"));
  }
}

}  // namespace

NapiThreadsafeFunction::NapiThreadsafeFunction(Napi::Env env)
    : env_(env), asyncContext_(std::in_place, env, "TesselWrapper") {
  auto handle = std::make_unique<AsyncHandle>();
  const int result = uv_async_init(uv_default_loop(), &handle->async, doCallback);
  if (result != 0) throw std::runtime_error(uv_strerror(result));
  handle->async.data = handle.get();
  handle->owner = this;
  const base::MutexLock lock(mutex_);
  asyncHandle_ = handle.release();
}

NapiThreadsafeFunction::~NapiThreadsafeFunction() { close(); }

// A refused closure is freed with the argument, after the lock is released.
void NapiThreadsafeFunction::call(Closure closure) {
  const base::MutexLock lock(mutex_);
  if (asyncHandle_ == nullptr) return;
  queue_.push_back(std::move(closure));
  uv_async_send(&asyncHandle_->async);
}

void NapiThreadsafeFunction::unref() {
  const base::MutexLock lock(mutex_);
  if (asyncHandle_ != nullptr) uv_unref(reinterpret_cast<uv_handle_t*>(&asyncHandle_->async));
}

void NapiThreadsafeFunction::close() {
  std::deque<Closure> undelivered;
  AsyncHandle* handle = nullptr;
  {
    const base::MutexLock lock(mutex_);
    undelivered.swap(queue_);
    handle = std::exchange(asyncHandle_, nullptr);
  }
  if (handle == nullptr) return;
  asyncContext_.reset();
  handle->owner = nullptr;
  uv_close(reinterpret_cast<uv_handle_t*>(&handle->async),
           [](uv_handle_t* closed) { delete static_cast<AsyncHandle*>(closed->data); });
}

void NapiThreadsafeFunction::doCallback(uv_async_t* handle) {
  // A closure may close its dispatcher, but the handle stays until this callback has returned.
  const auto* self = static_cast<AsyncHandle*>(handle->data);
  while (self->owner != nullptr && self->owner->runNext()) {
  }
}

bool NapiThreadsafeFunction::runNext() {
  Closure closure;
  {
    const base::MutexLock lock(mutex_);
    if (queue_.empty()) return false;
    closure = std::move(queue_.front());
    queue_.pop_front();
  }
  run(std::move(closure));
  return true;
}

// The closure may delete this object. Its errors are reported inside the callback scope, before the
// ticks that it has left behind run; a callback scope that cannot be opened is reported outside.
void NapiThreadsafeFunction::run(Closure closure) const {
  const Napi::Env env = env_;
  const HandleScope handleScope(env);
  // Without handles there is no error to report.
  if (!handleScope.isOpen()) return;
  reportingExceptions(env, [&] {
    const Napi::CallbackScope callbackScope(env, openCallbackScope(env, *asyncContext_));
    reportingExceptions(env, [&] {
      // Freed before its error is reported, so that a blocked caller does not wait for the report.
      const Closure running = std::exchange(closure, nullptr);
      running(env);
    });
  });
}

}  // namespace events
