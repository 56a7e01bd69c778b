// One call.

#ifndef ENGINE_WEBRTC_CALL_H_
#define ENGINE_WEBRTC_CALL_H_

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/support/engine.h"
#include "engine/support/roster.h"
#include "engine/support/streams/layout.h"
#include "engine/support/task_loop.h"
#include "engine/webrtc/admission.h"
#include "engine/webrtc/audio_level.h"
#include "engine/webrtc/call_audio.h"
#include "engine/webrtc/call_end.h"
#include "engine/webrtc/call_statistics.h"
#include "engine/webrtc/call_uri.h"
#include "engine/webrtc/content_room.h"
#include "engine/webrtc/inbox.h"
#include "engine/webrtc/janus_session.h"
#include "engine/webrtc/local_video.h"
#include "engine/webrtc/participant.h"
#include "engine/webrtc/publisher.h"
#include "engine/webrtc/turn_servers.h"
#include "tesselclient/records.h"
#include "tesselclient/types.h"

namespace webrtc {

// Joins a room, sends and receives, and notifies what happens, until the call ends. Owned by the
// engine; belongs to its thread.
class Call {
 public:
  struct Handlers {
    // people() may have changed.
    std::function<void()> peopleChanged;
    // The room mutes our audio or video, or does so no longer.
    std::function<void(MediaType type, bool isMuted)> moderated;
  };

  Call(support::EngineContext& context, std::shared_ptr<support::FramePool> pool,
       LocalVideo& localVideo, Devices& devices, int id, CallTarget target,
       const tsl::ConnectParams& params, Handlers handlers);
  // Ends the call without a word to the application.
  ~Call();
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;

  // Starts to join. What follows is notified.
  void join();
  // Ends the call, if it is not over.
  void leave();
  // The same, because of an error of this machine's.
  void abort(const std::string& reason);
  bool isJoined() const { return state_ == State::kJoined; }
  bool isOver() const { return state_ == State::kOver; }
  // Who is there, the local participant first; nobody unless the call is joined.
  std::vector<support::Person> people() const;

  // Another device of this type is to be used.
  void deviceChanged(DeviceType type);
  void setRemoteAudioMuted(bool isMuted);
  void setIncoming(Incoming incoming);
  void setContentReceived(bool isReceived);
  // Null until the call is joined.
  ContentRoom* content() { return isJoined() ? content_.get() : nullptr; }
  // Which remote videos are to be received, and how.
  void setLayout(std::vector<tsl::VideoStreamInfo> streams,
                 std::vector<std::vector<tsl::VideoStreamConstraints>> constraints);
  void setTopRung(int rung);
  // Whether each level of the microphone is logged.
  void setAudioDebug(bool isDebugging) { isDebugging_ = isDebugging; }
  // What the others are to know.
  void setAudioMuted(bool isMuted);
  void setVideoMuted(bool isMuted);

  // Fills in what was counted since the last call, in a window of this length; nothing unless the
  // call is joined.
  void collectStatistics(support::Time window, tsl::MeetingStats& stats);

 private:
  enum class State { kConnecting, kEntering, kPublishing, kJoined, kOver };

  // Ends the call unless the server's next answer comes in time.
  void waitForAnswer();
  // Ends the call unless the next step towards media comes in time.
  void waitForMedia();
  // Opens a session with the server, which then leads to the room.
  void connect();
  void attach();
  // Names the room as the server does: some take numbers, some texts.
  void enter(bool isRoomNumber);
  void entered(const JanusAnswer& answer, bool isRoomNumber);
  void publish();
  void joined();
  void enterContentRoom();
  void received(const Json& data);
  void addFeeds(const Json& data);
  void addFeed(const Feed& feed);
  void removeFeed(const Json& id);
  // The room mutes or unmutes somebody's stream.
  void moderate(const Json& data);
  // Brings what is received in line with the layout.
  void updateReceptions();
  // Makes everybody encode the layers only that somebody receives.
  void updateLayers();
  // Tells when media stop arriving, and when they arrive again.
  void watchArrival();
  void setMissing(MediaType type, bool isMissing);
  void timeOut();

  // Ends the call, or has it come back, as soon as nothing of it runs any more.
  void fail(int code, const std::string& reason);
  void failed(int code, const std::string& reason);
  // Joins the room again, at whichever server has it then. Repeated until this succeeds or takes
  // too long.
  void comeBack(const std::string& reason);
  // Those who have not come back keep their places no longer.
  void freePlaces();
  void end(int code, const std::string& reason);
  // Everything that belongs to the session, and the session.
  void releaseSession();
  void release();

  support::EngineContext& context_;
  const std::shared_ptr<support::FramePool> pool_;
  LocalVideo& localVideo_;
  const int id_;
  const CallTarget target_;
  const tsl::ConnectParams params_;
  Devices& devices_;
  const Handlers handlers_;

  State state_ = State::kConnecting;
  OwnState ownState_;
  SpeechDetector ownSpeech_;
  unsigned ownLevel_ = 0;  // of the microphone
  bool isDebugging_ = false;
  CallStatistics statistics_;
  bool isRemoteAudioMuted_ = false;
  Incoming incoming_;
  bool isContentReceived_;
  support::Layout layout_;
  Json room_;                      // what every request to the room is to say
  Json ownId_;                     // in the room; null before the first join
  std::uint64_t lostSession_ = 0;  // the last that the server made and we released
  int releasedSessions_ = 0;
  bool isReturning_ = false;
  std::optional<support::Time> lostAt_;  // the first of the losses since the call last held
  support::Time joinedAt_ = {};          // the last time
  std::string lossReason_;
  Inbox inbox_;
  support::Timer timer_;
  support::Timer arrivalTimer_;
  support::Timer placesTimer_;
  std::map<MediaType, bool> isMissing_;  // what the application was told last
  Admission admission_;
  // Each uses those before it.
  std::unique_ptr<TurnServers> turnServers_;
  std::unique_ptr<CallAudio> audio_;
  std::unique_ptr<JanusSession> session_;
  std::unique_ptr<JanusHandle> handle_;
  std::unique_ptr<Publisher> publisher_;
  std::map<std::string, std::unique_ptr<Participant>> participants_;  // by the key of their feeds
  std::unique_ptr<ContentRoom> content_;
};

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_CALL_H_
