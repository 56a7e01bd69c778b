// The way of notifications to the application.

#ifndef ENGINE_SUPPORT_NOTIFIER_H_
#define ENGINE_SUPPORT_NOTIFIER_H_

#include <exception>
#include <memory>
#include <string>
#include <utility>

#include "base/mutex.h"
#include "engine/support/log.h"
#include "tesselclient/notify_callback.h"

namespace support {

// Calls the notification callback, if there is one, and keeps what it throws from the engine.
// Owned by the engine. notify() belongs to the engine's thread; the rest may be called from any
// thread. No lock is held while the callback runs.
class Notifier {
 public:
  explicit Notifier(std::shared_ptr<const Log> log) : log_(std::move(log)) {}
  Notifier(const Notifier&) = delete;
  Notifier& operator=(const Notifier&) = delete;

  void setCallback(std::shared_ptr<INotifyCallback> callback) EXCLUDES(mutex_) {
    base::MutexLock lock(mutex_);
    callback_.swap(callback);
  }

  // Nothing is notified any more.
  void close() EXCLUDES(mutex_) {
    base::MutexLock lock(mutex_);
    closed_ = true;
  }

  // For example notify(&INotifyCallback::NotifyMicLevel, 50U).
  template <typename... Parameters, typename... Arguments>
  void notify(void (INotifyCallback::*operation)(Parameters...), Arguments&&... arguments)
      EXCLUDES(mutex_) {
    const std::shared_ptr<INotifyCallback> callback = openCallback();
    if (!callback) return;
    try {
      ((*callback).*operation)(std::forward<Arguments>(arguments)...);
    } catch (const std::exception& error) {
      log_->write(std::string("a notification failed: ") + error.what());
    } catch (...) {
      log_->write("a notification failed");
    }
  }

 private:
  std::shared_ptr<INotifyCallback> openCallback() const EXCLUDES(mutex_) {
    base::MutexLock lock(mutex_);
    return closed_ ? nullptr : callback_;
  }

  const std::shared_ptr<const Log> log_;

  mutable base::Mutex mutex_;
  std::shared_ptr<INotifyCallback> callback_ GUARDED_BY(mutex_);
  bool closed_ GUARDED_BY(mutex_) = false;
};

}  // namespace support

#endif  // ENGINE_SUPPORT_NOTIFIER_H_
