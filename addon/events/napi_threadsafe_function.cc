#include "addon/events/napi_threadsafe_function.h"

#include <memory>
#include <stdexcept>
#include <utility>

#include "addon/napi/status.h"

namespace events {

namespace {

// Hands an error to the application as an 'uncaughtException'.
void reportUncaught(const Napi::Error& error) { napi_fatal_exception(error.Env(), error.Value()); }

// Without the resource object that the binding's own way makes for each scope and Node-API ignores.
napi_callback_scope openCallbackScope(Napi::Env env, napi_async_context context) {
  napi_callback_scope scope = nullptr;
  napi::checkStatus(env, napi_open_callback_scope(env, nullptr, context, &scope));
  return scope;
}

}  // namespace

NapiThreadsafeFunction::NapiThreadsafeFunction(Napi::Env env, Callback callback, Discard discard)
    : callback_(std::move(callback)),
      discard_(std::move(discard)),
      env_(env),
      asyncContext_(std::in_place, env, "TesselWrapper") {
  auto handle = std::make_unique<AsyncHandle>();
  const int result = uv_async_init(uv_default_loop(), &handle->async, doCallback);
  if (result != 0) throw std::runtime_error(uv_strerror(result));
  handle->async.data = handle.get();
  handle->owner = this;
  const base::MutexLock lock(mutex_);
  asyncHandle_ = handle.release();
}

NapiThreadsafeFunction::~NapiThreadsafeFunction() { close(); }

void NapiThreadsafeFunction::call(void* data) {
  {
    const base::MutexLock lock(mutex_);
    if (asyncHandle_ != nullptr) {
      queue_.push_back(data);
      uv_async_send(&asyncHandle_->async);
      return;
    }
  }
  discard_(data);
}

void NapiThreadsafeFunction::unref() {
  const base::MutexLock lock(mutex_);
  if (asyncHandle_ != nullptr) uv_unref(reinterpret_cast<uv_handle_t*>(&asyncHandle_->async));
}

void NapiThreadsafeFunction::close() {
  std::deque<void*> undelivered;
  AsyncHandle* handle = nullptr;
  {
    const base::MutexLock lock(mutex_);
    undelivered.swap(queue_);
    handle = std::exchange(asyncHandle_, nullptr);
  }
  for (void* data : undelivered) discard_(data);
  if (handle == nullptr) return;
  asyncContext_.reset();
  handle->owner = nullptr;
  uv_close(reinterpret_cast<uv_handle_t*>(&handle->async),
           [](uv_handle_t* closed) { delete static_cast<AsyncHandle*>(closed->data); });
}

void NapiThreadsafeFunction::doCallback(uv_async_t* handle) {
  // An item may close its dispatcher, but the handle stays until this callback has returned.
  const auto* self = static_cast<AsyncHandle*>(handle->data);
  while (self->owner != nullptr && self->owner->deliverNext()) {
  }
}

bool NapiThreadsafeFunction::deliverNext() {
  void* data = nullptr;
  {
    const base::MutexLock lock(mutex_);
    if (queue_.empty()) return false;
    data = queue_.front();
    queue_.pop_front();
  }
  deliver(data);
  return true;
}

// Nothing thrown may reach libuv, which is C. The item may have deleted this object when it throws.
void NapiThreadsafeFunction::deliver(void* data) {
  const Napi::Env env = env_;
  const Napi::HandleScope handleScope(env);
  const Napi::CallbackScope callbackScope(env, openCallbackScope(env, *asyncContext_));
  try {
    callback_(env, data);
  } catch (const Napi::Error& error) {
    reportUncaught(error);
  } catch (const std::exception& error) {
    reportUncaught(Napi::Error::New(env, error.what()));
  } catch (...) {
    reportUncaught(Napi::Error::New(env, "A native exception was thrown"));
  }
}

}  // namespace events
