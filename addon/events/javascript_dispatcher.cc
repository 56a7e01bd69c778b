#include "addon/events/javascript_dispatcher.h"

#include <utility>

namespace events {

JavascriptDispatcher::JavascriptDispatcher(Napi::Env env) {
  const auto makeChannel = [&](bool sync) {
    return std::make_unique<NapiThreadsafeFunction>(
        env, [this, sync](Napi::Env itemEnv, void* item) { runInJS(itemEnv, item, sync); },
        [](void* item) { delete static_cast<Closure*>(item); });
  };
  asyncFunction_ = makeChannel(false);
  syncFunction_ = makeChannel(true);
}

JavascriptDispatcher::~JavascriptDispatcher() { close(); }

void JavascriptDispatcher::async(Closure closure) { internalDispatch(std::move(closure), false); }

void JavascriptDispatcher::sync(Closure closure) { internalDispatch(std::move(closure), true); }

void JavascriptDispatcher::releaseEventLoop() {
  async([this](Napi::Env) {
    asyncFunction_->unref();
    syncFunction_->unref();
  });
}

void JavascriptDispatcher::close() {
  asyncFunction_->close();
  syncFunction_->close();
  const base::MutexLock lock(mutex_);
  closed_ = true;
  pendingSyncCalls_.clear();
  condition_.NotifyAll();
}

void JavascriptDispatcher::internalDispatch(Closure closure, bool sync) {
  auto* item = new Closure(std::move(closure));
  if (!sync) {
    asyncFunction_->call(item);
    return;
  }
  // The item is posted before its address is registered. Should it have run by then, nobody erases
  // the address any more and the caller stays blocked until close().
  syncFunction_->call(item);
  const base::MutexLock lock(mutex_);
  if (closed_) return;
  pendingSyncCalls_.insert(item);
  while (pendingSyncCalls_.contains(item)) condition_.Wait(mutex_);
}

void JavascriptDispatcher::runInJS(Napi::Env env, void* item, bool sync) {
  const std::unique_ptr<Closure> closure(static_cast<Closure*>(item));
  if (!sync) {
    (*closure)(env);
    return;
  }
  // The caller is let go also when the closure throws.
  const std::unique_ptr<void, std::function<void(void*)>> settle(
      item, [this](void* done) { settleSyncCall(done); });
  (*closure)(env);
}

void JavascriptDispatcher::settleSyncCall(void* item) {
  {
    const base::MutexLock lock(mutex_);
    pendingSyncCalls_.erase(item);
  }
  condition_.NotifyOne();
}

}  // namespace events
