#include "addon/events/javascript_dispatcher.h"

#include <memory>
#include <utility>

#include "base/mutex.h"

namespace events {
namespace {

// A thread that is blocked in sync(). Shared by it and by the closure that it waits for.
class BlockedCaller {
 public:
  void wait() EXCLUDES(mutex_) {
    const base::MutexLock lock(mutex_);
    while (!released_) condition_.Wait(mutex_);
  }

  void release() EXCLUDES(mutex_) {
    const base::MutexLock lock(mutex_);
    released_ = true;
    condition_.NotifyOne();
  }

 private:
  base::Mutex mutex_;
  base::CondVar condition_;  // released_ became true
  bool released_ GUARDED_BY(mutex_) = false;
};

// A closure that releases its caller when it is freed: after it has run or thrown, and also when it
// is dropped.
class BlockingClosure {
 public:
  BlockingClosure(Closure closure, std::shared_ptr<BlockedCaller> caller)
      : closure_(std::move(closure)), caller_(std::move(caller)) {}
  ~BlockingClosure() {
    closure_ = nullptr;
    caller_->release();
  }
  BlockingClosure(const BlockingClosure&) = delete;
  BlockingClosure& operator=(const BlockingClosure&) = delete;

  void run(Napi::Env env) const { closure_(env); }

 private:
  Closure closure_;
  const std::shared_ptr<BlockedCaller> caller_;
};

}  // namespace

JavascriptDispatcher::JavascriptDispatcher(Napi::Env env)
    : asyncFunction_(env), syncFunction_(env) {}

JavascriptDispatcher::~JavascriptDispatcher() { close(); }

void JavascriptDispatcher::async(Closure closure) { asyncFunction_.call(std::move(closure)); }

// The caller is known to its closure before that is posted, so that no release can be missed.
void JavascriptDispatcher::sync(Closure closure) {
  const auto caller = std::make_shared<BlockedCaller>();
  auto blocking = std::make_shared<const BlockingClosure>(std::move(closure), caller);
  syncFunction_.call([blocking = std::move(blocking)](Napi::Env env) { blocking->run(env); });
  caller->wait();
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
}

}  // namespace events
