// The engine's time.

#ifndef ENGINE_SUPPORT_CLOCK_H_
#define ENGINE_SUPPORT_CLOCK_H_

#include <chrono>
#include <memory>

#include "base/mutex.h"

namespace support {

// A span of time, or a point in time counted from a clock's own beginning.
using Time = std::chrono::nanoseconds;

// What the engine's time runs by. Shared by the engine's threads; all operations may be called
// from any thread.
class Clock {
 public:
  virtual ~Clock() = default;

  virtual Time now() const = 0;
  // Waits until `changed` is notified or, on a clock that runs by itself, it is `deadline`.
  // Spurious wake-ups are possible.
  virtual void wait(base::Mutex& mutex, base::CondVar& changed, Time deadline) const
      REQUIRES(mutex) = 0;
};

// The machine's monotonic time.
std::shared_ptr<const Clock> realClock();

}  // namespace support

#endif  // ENGINE_SUPPORT_CLOCK_H_
