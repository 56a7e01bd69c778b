// The meeting that a call's uri asks for.

#ifndef ENGINE_EMBEDDED_MEETING_URI_H_
#define ENGINE_EMBEDDED_MEETING_URI_H_

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "engine/embedded/clock.h"
#include "engine/embedded/picture.h"

namespace embedded {

// Remote participants are numbered from 0, below this; the number is also the stream's index.
constexpr int kMostParticipants = 50;
// Stands for the local participant where a participant's number is meant.
constexpr int kMyself = -1;

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
    kCome,
    kLeave,
  };

  Kind kind = Kind::kCome;
  Time at = {};
  int participant = 0;
};

// Who speaks from when to when.
struct PlannedSpeech {
  int participant = 0;
  Time from = {};
  Time to = {};
};

struct MeetingPlan {
  std::string room;
  int participants = 3;  // present when the call is joined: the numbers below this
  std::uint32_t seed = 1;
  Size size = {640, 360};         // of the participants' test cards
  std::optional<FrameRate> rate;  // of the participants' video; their clip's own, or 30
  std::string clipPath;           // what the participants' cameras show; empty for test cards
  bool isClipLooped = true;
  Time joinDelay = {};
  std::optional<int> refusal;  // the code with which the meeting refuses the join
  std::optional<Time> dropAfter;
  std::vector<PlannedEvent> events;   // in the order of their times
  std::vector<PlannedSpeech> speech;  // empty: people take turns by the seed
};

// docs/embedded-engine.md has the grammar. Throws JoinRefused with kBadUri for anything else.
MeetingPlan parseMeetingUri(const std::string& uri);

}  // namespace embedded

#endif  // ENGINE_EMBEDDED_MEETING_URI_H_
