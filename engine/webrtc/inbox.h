// How other threads reach an object of the engine's thread.

#ifndef ENGINE_WEBRTC_INBOX_H_
#define ENGINE_WEBRTC_INBOX_H_

#include <memory>
#include <utility>

#include "engine/support/task_loop.h"

namespace webrtc {

// What is posted runs on the engine's thread, unless the owner has gone before: its tasks then do
// nothing. The owner is a member's object, belongs to the engine's thread, and gives away posters;
// these may be used on any thread, and outlive the owner but not the loop.
class Inbox {
 public:
  explicit Inbox(support::TaskLoop& loop) : loop_(loop) {}
  Inbox(const Inbox&) = delete;
  Inbox& operator=(const Inbox&) = delete;

  class Poster {
   public:
    template <typename Task>
    void operator()(Task task) const {
      loop_->post([alive = alive_, task = std::move(task)] {
        if (!alive.expired()) task();
      });
    }

   private:
    friend class Inbox;
    Poster(support::TaskLoop& loop, std::weak_ptr<const void> alive)
        : loop_(&loop), alive_(std::move(alive)) {}

    support::TaskLoop* loop_;
    std::weak_ptr<const void> alive_;
  };

  Poster poster() const { return {loop_, alive_}; }
  support::TaskLoop& loop() const { return loop_; }

 private:
  support::TaskLoop& loop_;
  const std::shared_ptr<const void> alive_ = std::make_shared<char>();
};

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_INBOX_H_
