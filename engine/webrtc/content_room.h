// The content that somebody presents to everybody.

#ifndef ENGINE_WEBRTC_CONTENT_ROOM_H_
#define ENGINE_WEBRTC_CONTENT_ROOM_H_

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "engine/support/engine.h"
#include "engine/webrtc/call_statistics.h"
#include "engine/webrtc/inbox.h"
#include "engine/webrtc/janus_session.h"
#include "engine/webrtc/participant.h"
#include "engine/webrtc/presentation.h"
#include "tesselclient/records.h"

namespace webrtc {

// The room beside the meeting's, in which one participant at a time sends. Whoever is to present
// joins it under one identity, which the server gives to one only: that is the token. It lasts as
// long as the connection to the server. Everybody else is there under identities of the server's,
// and is told who presents. A room that is missing is created. Owned by the call, which outlives
// it; belongs to the engine's thread.
class ContentRoom {
 public:
  struct Settings {
    Json meeting;  // the number or the name of the meeting's room
    std::string pin;
    std::string token;
    std::string name;
    std::string guid;
    Json ownId;  // in the meeting's room
    std::uint32_t mostBitsPerSecond = 0;
    bool isReceiving = true;
  };

  // `changed` is called when somebody else presents, or nobody does any more.
  ContentRoom(support::EngineContext& context, std::shared_ptr<support::FramePool> pool,
              JanusSession& session, Speaker& speaker, const IceOptions& ice, Settings settings,
              std::function<void()> changed);
  // Ends all sharing, which is notified.
  ~ContentRoom();
  ContentRoom(const ContentRoom&) = delete;
  ContentRoom& operator=(const ContentRoom&) = delete;

  // For the local participant. Outcomes are notified, in the order of the requests.
  void requestToken();
  void releaseToken();
  void start(const tsl::ContentShareParams& params);
  void stop();

  // Whether remote content is received.
  void setReceiving(bool isReceiving);
  // Whether the participant with this key presents.
  bool isPresenting(const std::string& key) const;
  // Whether remote content that is to arrive has stopped arriving.
  bool isMissing();
  // What was sent and received in a window of this length, which ends now.
  ContentTraffic closeWindow(support::Time length);
  // Nobody else is in the meeting: the room is not needed any more, unless the server has it by
  // itself.
  void remove();

 private:
  static Incoming incomingOf(bool isReceiving) {
    return {.audio = isReceiving, .video = isReceiving};
  }

  // Runs tasks one after the other, each when the one before it is over.
  void inTurn(std::function<void()> task);
  // The same, for handlers of what the task deletes.
  void later(std::function<void()> task);
  void endTurn();

  Json joinRequest() const;
  void enter();
  void join();
  void joined(const JanusAnswer& answer);
  void create();
  // There will be no sharing in this call.
  void giveUp(const std::string& reason);
  void received(const Json& data);
  void addPresenters(const Json& data);
  void removePresenter();

  void askForToken();
  void tokenAnswered(const JanusAnswer& answer);
  void tokenReceived(const Json& data);
  void dropToken();
  void beginPresentation(const tsl::ContentShareParams& params);
  void endPresentation();
  void report(ShareStatus status);

  support::EngineContext& context_;
  const std::shared_ptr<support::FramePool> pool_;
  JanusSession& session_;
  Speaker& speaker_;
  const IceOptions& ice_;
  const Settings settings_;
  const std::function<void()> changed_;
  bool isReceiving_;
  Json room_;             // what every request to the room is to say
  bool isThere_ = false;  // we are in the room
  bool isOurs_ = false;   // an engine has created it
  int attempts_ = 0;      // to join
  bool isBusy_ = false;   // a task is not over
  std::deque<std::function<void()>> waiting_;
  Inbox inbox_;
  std::unique_ptr<JanusHandle> listener_;
  bool hasToken_ = false;
  std::unique_ptr<JanusHandle> token_;          // while we have it, or ask for it
  std::unique_ptr<Presentation> presentation_;  // ours
  std::optional<Feed> presenter_;               // somebody else
  std::unique_ptr<Participant> content_;        // of the presenter
};

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_CONTENT_ROOM_H_
