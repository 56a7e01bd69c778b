// A mutex and a condition variable that clang's thread-safety analysis understands. Those of the
// standard library have no annotations, so members guarded by them are not checked.

#ifndef BASE_MUTEX_H_
#define BASE_MUTEX_H_

#include <condition_variable>
#include <mutex>

#if defined(__clang__)
#define TESSEL_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define TESSEL_THREAD_ANNOTATION(x)
#endif

#define CAPABILITY(x) TESSEL_THREAD_ANNOTATION(capability(x))
#define SCOPED_CAPABILITY TESSEL_THREAD_ANNOTATION(scoped_lockable)
#define GUARDED_BY(x) TESSEL_THREAD_ANNOTATION(guarded_by(x))
#define PT_GUARDED_BY(x) TESSEL_THREAD_ANNOTATION(pt_guarded_by(x))
#define REQUIRES(...) TESSEL_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) TESSEL_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define ACQUIRE(...) TESSEL_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define RELEASE(...) TESSEL_THREAD_ANNOTATION(release_capability(__VA_ARGS__))

namespace base {

class CAPABILITY("mutex") Mutex {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void Lock() ACQUIRE() { mutex_.lock(); }
  void Unlock() RELEASE() { mutex_.unlock(); }

 private:
  friend class CondVar;
  std::mutex mutex_;
};

// Holds a mutex for the length of a scope.
class SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) ACQUIRE(mutex) : mutex_(mutex) { mutex_.Lock(); }
  ~MutexLock() RELEASE() { mutex_.Unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& mutex_;
};

// Waits are subject to spurious wake-ups: call them in a loop over the awaited condition, which
// keeps the read of that condition where the analysis sees the lock.
class CondVar {
 public:
  void Wait(Mutex& mutex) REQUIRES(mutex) {
    std::unique_lock<std::mutex> lock(mutex.mutex_, std::adopt_lock);
    condition_.wait(lock);
    lock.release();
  }

  // Returns false when `deadline` passed first.
  template <typename Clock, typename Duration>
  bool WaitUntil(Mutex& mutex, const std::chrono::time_point<Clock, Duration>& deadline)
      REQUIRES(mutex) {
    std::unique_lock<std::mutex> lock(mutex.mutex_, std::adopt_lock);
    const bool inTime = condition_.wait_until(lock, deadline) == std::cv_status::no_timeout;
    lock.release();
    return inTime;
  }

  void NotifyOne() { condition_.notify_one(); }
  void NotifyAll() { condition_.notify_all(); }

 private:
  std::condition_variable condition_;
};

}  // namespace base

#endif  // BASE_MUTEX_H_
