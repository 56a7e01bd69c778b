#include "engine/support/clock.h"

namespace support {
namespace {

class RealClock final : public Clock {
 public:
  Time now() const override { return std::chrono::steady_clock::now().time_since_epoch(); }

  void wait(base::Mutex& mutex, base::CondVar& changed, Time deadline) const override
      REQUIRES(mutex) {
    changed.WaitUntil(mutex, std::chrono::steady_clock::time_point(deadline));
  }
};

}  // namespace

std::shared_ptr<const Clock> realClock() { return std::make_shared<RealClock>(); }

}  // namespace support
