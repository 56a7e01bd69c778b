// The measuring of a meeting.

#ifndef ENGINE_EMBEDDED_STATISTICS_H_
#define ENGINE_EMBEDDED_STATISTICS_H_

#include <functional>
#include <optional>

#include "engine/embedded/engine_parts.h"
#include "engine/embedded/processor_load.h"
#include "tesselclient/records.h"

namespace embedded {

// While it is switched on, closes a window of time after the other and publishes what was measured
// in it. Belongs to the engine's thread.
class Statistics {
 public:
  // Fills in what was counted since the last call, in a window of this length.
  using Collect = std::function<void(Time window, tsl::MeetingStats& stats)>;

  Statistics(EngineParts& parts, Collect collect);
  Statistics(const Statistics&) = delete;
  Statistics& operator=(const Statistics&) = delete;

  // Windows of less than 100 ms are lengthened to that.
  void switchOn(Time window);
  // What was published is withdrawn.
  void switchOff();

 private:
  void setTimer();
  void closeWindow();

  EngineParts& parts_;
  const Collect collect_;
  Time window_ = {};
  Time windowEnd_ = {};
  std::optional<ProcessorLoad> load_;
  Timer timer_;
};

}  // namespace embedded

#endif  // ENGINE_EMBEDDED_STATISTICS_H_
