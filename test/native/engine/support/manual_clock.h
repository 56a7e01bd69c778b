// A clock that stands still until a test moves it.

#ifndef TEST_NATIVE_ENGINE_SUPPORT_MANUAL_CLOCK_H_
#define TEST_NATIVE_ENGINE_SUPPORT_MANUAL_CLOCK_H_

#include <atomic>

#include "engine/support/clock.h"
#include "engine/support/task_loop.h"

namespace support {

// Moved by one thread, read by any.
class ManualClock final : public Clock {
 public:
  Time now() const override { return Time(now_.load()); }

  void wait(base::Mutex& mutex, base::CondVar& changed, Time) const override REQUIRES(mutex) {
    changed.Wait(mutex);
  }

  // Lets `span` pass for a loop that runs by this clock: every task runs exactly at its time, and
  // all of them have run when this returns.
  void pass(Time span, TaskLoop& loop) {
    const Time end = now() + span;
    loop.settle();
    for (auto due = loop.nextDue(); due && *due <= end; due = loop.nextDue()) {
      now_ = due->count();
      loop.settle();
    }
    now_ = end.count();
    loop.settle();
  }

  // Lets `span` pass at once, as for a process that was stopped meanwhile.
  void jump(Time span) { now_ += span.count(); }

 private:
  std::atomic<Time::rep> now_ = 0;
};

}  // namespace support

#endif  // TEST_NATIVE_ENGINE_SUPPORT_MANUAL_CLOCK_H_
