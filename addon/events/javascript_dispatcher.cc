#include "addon/events/javascript_dispatcher.h"

#include <memory>
#include <utility>

namespace events {

// A closure of sync(). Freed when it has run or thrown, and also when it is dropped; this settles
// its call.
class JavascriptDispatcher::SyncItem {
 public:
  SyncItem(JavascriptDispatcher& dispatcher, Closure closure)
      : dispatcher_(dispatcher), closure_(std::move(closure)) {}
  ~SyncItem() {
    closure_ = nullptr;
    dispatcher_.settleSyncCall(this);
  }
  SyncItem(const SyncItem&) = delete;
  SyncItem& operator=(const SyncItem&) = delete;

  void run(Napi::Env env) const { closure_(env); }

 private:
  JavascriptDispatcher& dispatcher_;
  Closure closure_;
};

JavascriptDispatcher::JavascriptDispatcher(Napi::Env env)
    : asyncFunction_(env), syncFunction_(env) {}

JavascriptDispatcher::~JavascriptDispatcher() { close(); }

void JavascriptDispatcher::async(Closure closure) { asyncFunction_.call(std::move(closure)); }

void JavascriptDispatcher::sync(Closure closure) {
  auto item = std::make_shared<const SyncItem>(*this, std::move(closure));
  const SyncItem* const address = item.get();
  // The item is posted before its address is registered. If it was freed by then, nothing erases
  // the address any more and the caller stays blocked until close().
  syncFunction_.call([item = std::move(item)](Napi::Env env) { item->run(env); });
  const base::MutexLock lock(mutex_);
  if (closed_) return;
  pendingSyncCalls_.insert(address);
  while (pendingSyncCalls_.contains(address)) condition_.Wait(mutex_);
}

void JavascriptDispatcher::releaseEventLoop() {
  async([this](Napi::Env) {
    asyncFunction_.unref();
    syncFunction_.unref();
  });
}

void JavascriptDispatcher::close() {
  asyncFunction_.close();
  syncFunction_.close();
  const base::MutexLock lock(mutex_);
  closed_ = true;
  pendingSyncCalls_.clear();
  condition_.NotifyAll();
}

void JavascriptDispatcher::settleSyncCall(const SyncItem* item) {
  {
    const base::MutexLock lock(mutex_);
    pendingSyncCalls_.erase(item);
  }
  condition_.NotifyOne();
}

}  // namespace events
