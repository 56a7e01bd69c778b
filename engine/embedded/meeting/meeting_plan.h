// What happens in a meeting, and when.

#ifndef ENGINE_EMBEDDED_MEETING_MEETING_PLAN_H_
#define ENGINE_EMBEDDED_MEETING_MEETING_PLAN_H_

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "engine/support/clock.h"
#include "engine/support/pictures/picture.h"
#include "tesselclient/records.h"

namespace embedded {

// Remote participants are numbered from 0, below this; the number is also the stream's index.
constexpr int kMostParticipants = 50;
// Stands for the local participant where a participant's number is meant.
constexpr int kLocalParticipant = -1;

// How a call ends, or never begins.
enum CallCode : int {
  kLeft = 0,
  kBadUri = 400,
  kClipUnreadable = 404,
  kClipUnsupported = 415,
  kAlreadyInACall = 486,
  kDropped = 503,
};

// Why a call cannot be joined.
class JoinRefused : public std::runtime_error {
 public:
  JoinRefused(int code, const std::string& reason) : std::runtime_error(reason), code_(code) {}
  int code() const { return code_; }

 private:
  int code_;
};

// Something that happens in a meeting. Times count from the moment of joining.
struct PlannedEvent {
  enum class Kind {
    kJoin,
    kLeave,
    kMuteVideo,
    kUnmuteVideo,
    kMuteAudio,
    kUnmuteAudio,
    kPresent,
    kStopPresenting,
    kCutLink,
    kRestoreLink,
    kPlug,
    kUnplug,
  };

  Kind kind = Kind::kJoin;
  support::Time at = {};
  int participant = kLocalParticipant;  // only mutes happen to the local one
  std::string device = {};              // that is plugged in or unplugged
};

// Who speaks from when to when.
struct PlannedSpeech {
  int participant = 0;
  support::Time from = {};
  support::Time to = {};
};

struct MeetingPlan {
  std::string room;
  int participants = 3;  // present when the call is joined: the numbers below this
  std::uint32_t seed = 1;
  support::Size size = {640, 360};         // of the participants' test cards
  std::optional<support::FrameRate> rate;  // of the participants' video; their clip's own, or 30
  std::string clipPath;  // what the participants' cameras show; empty for test cards
  bool isClipLooped = true;
  support::Time joinDelay = {};
  std::optional<int> refusal;  // the code with which the meeting refuses the join
  std::optional<support::Time> dropAfter;
  std::vector<PlannedEvent> events;   // in the order of their times
  std::vector<PlannedSpeech> speech;  // empty: people take turns by the seed
  double loss = 0;                    // fraction of packets, of the links without one of their own
  std::map<int, double> losses;       // of the links of these participants
  std::map<int, std::string> names;   // of these participants; the others have usual ones
  std::set<std::string> requiredAttributes;
  std::optional<std::vector<tsl::ScreenMonitor>> monitors;  // instead of the usual ones

  double lossOf(int participant) const;
};

}  // namespace embedded

#endif  // ENGINE_EMBEDDED_MEETING_MEETING_PLAN_H_
