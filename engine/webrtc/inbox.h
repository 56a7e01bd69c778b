// How other threads reach an object of the engine's thread.

#ifndef ENGINE_WEBRTC_INBOX_H_
#define ENGINE_WEBRTC_INBOX_H_

#include <memory>
#include <utility>

#include "base/mutex.h"
#include "engine/support/task_loop.h"

namespace webrtc {

// What is posted runs on the engine's thread, unless the owner has gone before: its tasks then do
// nothing. The owner is a member's object, belongs to the engine's thread, and gives away posters;
// these may be used on any thread, and outlive the owner and the loop.
class Inbox {
 public:
  explicit Inbox(support::TaskLoop& loop)
      : loop_(loop), address_(std::make_shared<Address>(loop)) {}
  ~Inbox() { address_->leave(); }
  Inbox(const Inbox&) = delete;
  Inbox& operator=(const Inbox&) = delete;

 private:
  // Where the owner is reached, as long as it is there.
  class Address {
   public:
    explicit Address(support::TaskLoop& loop) : loop_(&loop) {}

    void post(support::TaskLoop::Task task) EXCLUDES(mutex_) {
      base::MutexLock lock(mutex_);
      if (loop_) loop_->post(std::move(task));
    }
    bool isValid() const EXCLUDES(mutex_) {
      base::MutexLock lock(mutex_);
      return loop_ != nullptr;
    }
    void leave() EXCLUDES(mutex_) {
      base::MutexLock lock(mutex_);
      loop_ = nullptr;
    }

   private:
    mutable base::Mutex mutex_;
    support::TaskLoop* loop_ GUARDED_BY(mutex_);
  };

 public:
  class Poster {
   public:
    template <typename Task>
    void operator()(Task task) const {
      address_->post([address = address_, task = std::move(task)] {
        if (address->isValid()) task();
      });
    }

   private:
    friend class Inbox;
    explicit Poster(std::shared_ptr<Address> address) : address_(std::move(address)) {}

    std::shared_ptr<Address> address_;
  };

  Poster poster() const { return Poster(address_); }
  support::TaskLoop& loop() const { return loop_; }

 private:
  support::TaskLoop& loop_;
  const std::shared_ptr<Address> address_;
};

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_INBOX_H_
