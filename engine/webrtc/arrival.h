// Whether media arrive.

#ifndef ENGINE_WEBRTC_ARRIVAL_H_
#define ENGINE_WEBRTC_ARRIVAL_H_

#include <atomic>
#include <chrono>

#include "engine/support/clock.h"

namespace webrtc {

// When the newest packet of one medium of a participant arrived. Owned by the participant; belongs
// to the engine's thread, except for arrived().
class Arrival {
 public:
  // May be called from any thread.
  void arrived(support::Time now) { lastAt_ = now.count(); }

  // Whether the medium has stopped arriving although it is expected. What was not expected is
  // missing only once it has arrived again.
  bool isMissing(support::Time now, bool isExpected) {
    // Silence is sent every 0.4 s; the picture of the slowest camera every second.
    constexpr support::Time kLongestPause = std::chrono::milliseconds(1500);
    if (!isExpected) lastAt_ = 0;
    const support::Time::rep last = lastAt_;
    return last != 0 && now - support::Time(last) > kLongestPause;
  }

 private:
  std::atomic<support::Time::rep> lastAt_ = 0;  // 0 for never
};

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_ARRIVAL_H_
