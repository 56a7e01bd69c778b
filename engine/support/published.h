// A value that one thread writes and others read.

#ifndef ENGINE_SUPPORT_PUBLISHED_H_
#define ENGINE_SUPPORT_PUBLISHED_H_

#include <utility>

#include "base/mutex.h"

namespace support {

// What the application may ask for at any time, whatever the engine's thread is doing. May be
// called from any thread.
template <typename Value>
class Published {
 public:
  Published() = default;
  explicit Published(Value value) : value_(std::move(value)) {}
  Published(const Published&) = delete;
  Published& operator=(const Published&) = delete;

  void set(Value value) EXCLUDES(mutex_) {
    base::MutexLock lock(mutex_);
    std::swap(value_, value);
  }

  Value get() const EXCLUDES(mutex_) {
    base::MutexLock lock(mutex_);
    return value_;
  }

 private:
  mutable base::Mutex mutex_;
  Value value_ GUARDED_BY(mutex_);
};

}  // namespace support

#endif  // ENGINE_SUPPORT_PUBLISHED_H_
