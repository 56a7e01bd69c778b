// Who is in the meeting, as the application is told.

#ifndef ENGINE_SUPPORT_ROSTER_H_
#define ENGINE_SUPPORT_ROSTER_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "engine/support/clock.h"
#include "engine/support/notifier.h"
#include "engine/support/task_loop.h"
#include "tesselclient/types.h"

namespace support {

// One participant of a meeting, the local one included.
struct Person {
  StreamKey stream;        // of the camera's video
  std::uint32_t csrc = 0;  // of that stream
  std::string guid;
  std::string name;  // UTF-8; what is not is replaced
  bool audioMuted = false;
  bool videoMuted = false;
  bool speaking = false;
  bool presenting = false;

  bool operator==(const Person&) const = default;
};

// The body of the event "participants". docs/embedded-engine.md has the format.
std::string participantsJson(const std::vector<Person>& people);

// Notifies the event "participants" to an application that subscribed to it: at once, and whenever
// the people have changed. Belongs to the engine's thread.
class Roster {
 public:
  using People = std::function<std::vector<Person>()>;

  static constexpr const char* kEventName = "participants";

  // `people` says who is there now; empty outside a call.
  Roster(TaskLoop& loop, Notifier& notifier, People people)
      : loop_(loop), notifier_(notifier), people_(std::move(people)), timer_(loop) {}
  Roster(const Roster&) = delete;
  Roster& operator=(const Roster&) = delete;

  // Whether a registration is for this event, which is there as "application/json" alone.
  static bool isRequested(const std::string& name, const std::string& mimeType,
                          const std::string& mimeSubType);

  // For this number of seconds; replaces a subscription.
  void subscribe(std::uint32_t expires);
  void unsubscribe();
  // The people may have changed. They are compared when the present task is over, so that what
  // changes at one time is notified once.
  void update();

 private:
  void compare();

  TaskLoop& loop_;
  Notifier& notifier_;
  const People people_;
  std::optional<Time> expiry_;                   // nothing without a subscription
  std::optional<std::vector<Person>> notified_;  // since the subscription began
  Timer timer_;
};

}  // namespace support

#endif  // ENGINE_SUPPORT_ROSTER_H_
