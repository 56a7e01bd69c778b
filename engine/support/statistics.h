// The measuring of a meeting.

#ifndef ENGINE_SUPPORT_STATISTICS_H_
#define ENGINE_SUPPORT_STATISTICS_H_

#include <functional>
#include <optional>

#include "engine/support/processor_load.h"
#include "engine/support/published.h"
#include "engine/support/task_loop.h"
#include "tesselclient/records.h"

namespace support {

// While it is switched on, closes a window of time after the other and publishes what was measured
// in it. Belongs to the engine's thread.
class Statistics {
 public:
  // Fills in what was counted since the last call, in a window of this length.
  using Collect = std::function<void(Time window, tsl::MeetingStats& stats)>;

  Statistics(TaskLoop& loop, Published<tsl::MeetingStats>& published, Collect collect);
  Statistics(const Statistics&) = delete;
  Statistics& operator=(const Statistics&) = delete;

  // Windows of less than 100 ms are lengthened to that.
  void switchOn(Time window);
  // What was published is withdrawn.
  void switchOff();

 private:
  void setTimer();
  void closeWindow();

  TaskLoop& loop_;
  Published<tsl::MeetingStats>& published_;
  const Collect collect_;
  Time window_ = {};
  Time windowEnd_ = {};
  std::optional<ProcessorLoad> load_;
  Timer timer_;
};

}  // namespace support

#endif  // ENGINE_SUPPORT_STATISTICS_H_
