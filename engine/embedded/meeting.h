// One call.

#ifndef ENGINE_EMBEDDED_MEETING_H_
#define ENGINE_EMBEDDED_MEETING_H_

#include <cstddef>
#include <map>
#include <memory>
#include <string>

#include "engine/embedded/engine_parts.h"
#include "engine/embedded/meeting_uri.h"
#include "engine/embedded/sender.h"
#include "engine/embedded/speech.h"
#include "engine/embedded/y4m_clip.h"
#include "tesselclient/records.h"

namespace embedded {

// Plays a meeting plan from the joining to the end of the call, by the engine's clock, and notifies
// what happens. Owned by the engine; belongs to its thread.
class Meeting {
 public:
  // `clip` is what the participants' cameras show; empty for test cards.
  Meeting(EngineParts& parts, int callId, MeetingPlan plan, std::shared_ptr<const Y4mClip> clip,
          const tsl::ConnectParams& params);
  Meeting(const Meeting&) = delete;
  Meeting& operator=(const Meeting&) = delete;

  // Starts to join. What follows happens by the clock.
  void join();
  // Ends the call, if it is not over.
  void leave();
  bool isOver() const { return state_ == State::kOver; }

  void setLocalAudioMuted(bool muted) { localAudioMuted_ = muted; }
  // How loud the local participant is, 0 to 100.
  std::uint32_t localLevel() const;

 private:
  enum class State { kNew, kJoining, kJoined, kOver };

  void enter();
  void end(int code, const std::string& reason);
  Time sinceJoin() const { return parts_.loop.now() - joinedAt_; }

  void setEventTimer();
  void happen();
  void happen(const PlannedEvent& event);
  void addParticipant(int number);
  void removeParticipant(int number);
  std::unique_ptr<PictureSource> cameraOf(int number) const;

  void setLevelTimer();
  void reportLevel();

  EngineParts& parts_;
  const int callId_;
  const MeetingPlan plan_;
  const std::shared_ptr<const Y4mClip> clip_;
  const Speech speech_;
  const tsl::ConnectParams params_;

  State state_ = State::kNew;
  Time joinedAt_ = {};
  std::map<int, std::unique_ptr<Sender>> participants_;  // those present, by number
  std::size_t nextEvent_ = 0;
  bool localAudioMuted_ = false;
  Time nextLevelAt_ = {};
  Timer stateTimer_;  // the end of joining, then the drop
  Timer eventTimer_;
  Timer levelTimer_;
};

}  // namespace embedded

#endif  // ENGINE_EMBEDDED_MEETING_H_
