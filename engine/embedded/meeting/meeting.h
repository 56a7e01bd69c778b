// One call.

#ifndef ENGINE_EMBEDDED_MEETING_MEETING_H_
#define ENGINE_EMBEDDED_MEETING_MEETING_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "engine/embedded/devices/local_media.h"
#include "engine/embedded/meeting/content_share.h"
#include "engine/embedded/meeting/meeting_plan.h"
#include "engine/embedded/meeting/participant.h"
#include "engine/embedded/meeting/speech.h"
#include "engine/embedded/streams/sent_stream.h"
#include "engine/support/engine.h"
#include "engine/support/pictures/y4m_clip.h"
#include "engine/support/roster.h"
#include "engine/support/streams/layout.h"
#include "tesselclient/records.h"

namespace embedded {

// The monitors that there are unless a meeting plan says otherwise.
std::vector<tsl::ScreenMonitor> usualMonitors();

// What the local participant wants to get of the others.
struct Incoming {
  bool audio = false;
  bool video = false;
  bool content = false;
};

Incoming incomingOf(const tsl::MediaStreamState& state);

// Plays a meeting plan from the joining to the end of the call, by the engine's clock, and notifies
// what happens. Owned by the engine; belongs to its thread.
class Meeting {
 public:
  // `clip` is what the participants' cameras show; empty for test cards. `peopleChanged` is called
  // when people() may have changed by itself.
  Meeting(support::EngineContext& context, const StreamMaker& streams, LocalMedia& local,
          int callId, MeetingPlan plan, std::shared_ptr<const support::Y4mClip> clip,
          const tsl::ConnectParams& params, std::function<void()> peopleChanged);
  Meeting(const Meeting&) = delete;
  Meeting& operator=(const Meeting&) = delete;

  // Starts to join. What follows happens by the clock.
  void join();
  // Ends the call, if it is not over.
  void leave();
  bool isJoined() const { return state_ == State::kJoined; }
  bool isOver() const { return state_ == State::kOver; }

  void setIncoming(const Incoming& incoming);
  void setLayout(std::vector<tsl::VideoStreamInfo> streams,
                 std::vector<std::vector<tsl::VideoStreamConstraints>> constraints);
  void setTopRung(int rung);
  ContentShare& content() { return content_; }
  // Those who are in the meeting, the local participant first; nobody outside the call.
  std::vector<support::Person> people() const;

  // How loud the local participant is, 0 to 100.
  std::uint32_t localLevel() const;
  // How loud the others arrive together, 0 to 100.
  std::uint32_t incomingLevel() const;
  // Fills in what arrived and what was sent since the last call, in a window of this length. The
  // call is joined.
  void collect(support::Time window, const TrafficMeter::Window& localVideo,
               tsl::MeetingStats& stats);

 private:
  enum class State { kNew, kJoining, kJoined, kOver };

  void enter();
  void end(int code, const std::string& reason);
  support::Time sinceJoin() const { return context_.loop.now() - joinedAt_; }

  void setEventTimer();
  void applyNextEvent();
  void apply(const PlannedEvent& event);
  void applyToLocal(const PlannedEvent& event);
  void applyTo(Participant& participant, const PlannedEvent& event);
  void addParticipant(int number);
  void removeParticipant(int number);
  // How each present stream is received, by its contributing source.
  std::map<std::uint32_t, support::Reception> receptions() const;
  void updateReceptions();

  void setLevelTimer();
  void reportLevel();

  support::EngineContext& context_;
  const StreamMaker& streams_;
  LocalMedia& local_;
  const int callId_;
  const MeetingPlan plan_;
  const std::shared_ptr<const support::Y4mClip> clip_;
  const Speech speech_;
  const std::string localName_;
  const std::function<void()> peopleChanged_;
  const std::set<std::string> requiredAttributes_;
  const std::vector<std::pair<std::string, bool>> gracefulEvents_;  // name, enabled

  State state_ = State::kNew;
  support::Time joinedAt_ = {};
  Incoming incoming_;
  support::Layout layout_;
  std::map<int, std::unique_ptr<Participant>> participants_;  // those present, by number
  ContentShare content_;
  std::size_t nextEvent_ = 0;
  support::Time nextLevelAt_ = {};
  support::Timer stateTimer_;  // the end of joining, then the drop
  support::Timer eventTimer_;
  support::Timer levelTimer_;
};

}  // namespace embedded

#endif  // ENGINE_EMBEDDED_MEETING_MEETING_H_
