// A remote participant.

#ifndef ENGINE_WEBRTC_PARTICIPANT_H_
#define ENGINE_WEBRTC_PARTICIPANT_H_

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "engine/support/engine.h"
#include "engine/support/roster.h"
#include "engine/support/streams/layout.h"
#include "engine/support/streams/video_stream.h"
#include "engine/webrtc/arrival.h"
#include "engine/webrtc/audio_level.h"
#include "engine/webrtc/call_statistics.h"
#include "engine/webrtc/feed.h"
#include "engine/webrtc/inbox.h"
#include "engine/webrtc/janus_session.h"
#include "engine/webrtc/layer_plan.h"
#include "engine/webrtc/peer_connection.h"
#include "engine/webrtc/speaker.h"
#include "engine/webrtc/video_receiver.h"
#include "tesselclient/records.h"
#include "tesselclient/types.h"

namespace webrtc {

// The media to receive from all participants.
struct Incoming {
  bool audio = true;
  bool video = true;

  bool operator==(const Incoming&) const = default;
};

Incoming incomingOf(const tsl::MediaStreamState& state);

// Receives what somebody sends to a room, camera and microphone or content, over a connection of
// its own: in one that were shared the server would send key frames for the first one only. One
// that ends is replaced after a while, which grows. Owned by the call; belongs to the engine's
// thread.
class Participant {
 public:
  // `room` has what every request to the room is to say. `key` is that of the stream.
  // `changed` is called when person() may have changed, except by update(), and thus when the
  // stream's csrc becomes known.
  Participant(support::EngineContext& context, std::shared_ptr<support::FramePool> pool,
              JanusSession& session, Speaker& speaker, const IceOptions& ice, Json room, Feed feed,
              StreamKey key, Incoming incoming, std::function<void()> changed);
  // Notified, if the stream was.
  ~Participant();
  Participant(const Participant&) = delete;
  Participant& operator=(const Participant&) = delete;

  // Of the video; 0 as long as there is none.
  std::uint32_t csrc() const { return stream_ ? stream_->csrc() : 0; }
  support::Person person() const;
  // From now on the application is told of the stream.
  void announce();
  // What the participant tells of itself has changed.
  void update(const Feed& feed);
  // The room mutes the stream with this mid, or does so no longer.
  void moderate(const std::string& mid, bool isMuted);
  // The server does not send disabled media.
  void setIncoming(Incoming incoming);
  // With which the participant's video is received; nothing while it is not.
  std::optional<Heights> receivedHeights() const;
  // With which the participant receives the videos of others; nothing when it receives none.
  const std::optional<Heights>& heightsReceivedByIt() const { return feed_.received; }
  // How the layout wants the video.
  void receive(const support::Reception& reception);
  // Whether audio or video that is to arrive has stopped arriving. Called a few times per second.
  bool isMissing(MediaType type);
  // What was received in a window of this length, which ends now.
  Traffic closeWindow(support::Time length);

 private:
  // As the log names it.
  std::string title() const;
  // Begins to receive.
  void connect();
  void subscribe();
  void disconnect();
  // Nothing is received any more: begins again after a while. May be called by any handler of the
  // present connection.
  void fail(const std::string& reason);
  void reconnectLater();
  // Receives over another connection, because the server offers something else. May be called by
  // any handler.
  void reconnect();
  void connectOrRetry();
  void accept(const std::string& offer, const Json& data);
  static constexpr int kHighestLayer = 2;

  // What the server is to send. It numbers the layers of a video from the lowest.
  struct Wanted {
    bool audio = true;
    bool video = true;
    int layer = kHighestLayer;

    bool operator==(const Wanted&) const = default;
  };
  Wanted wanted() const;
  // Asks the server for what is wanted, unless it sends that.
  void askForWanted();
  // By the participant or by the room.
  bool isAudioMuted() const {
    return feed_.isAudioMuted || feed_.moderatedMids.contains(feed_.audioMid);
  }
  bool isVideoMuted() const {
    return feed_.isVideoMuted || feed_.moderatedMids.contains(feed_.videoMid);
  }
  // Whether the participant sends something of this type to whoever wants it.
  bool sends(MediaType type) const;
  bool isVideoShown() const { return isSubscribed_ && wanted().video && sends(MediaType::kVideo); }
  void showVideo();
  void answer(const std::string& sdp);
  // In the place of the present stream, if there is one.
  void makeStream(std::uint32_t csrc);
  void notifyAdded();
  void notifyRemoved();
  // On a thread of the connection's.
  void receive(GstPad* pad);

  support::EngineContext& context_;
  const std::shared_ptr<support::FramePool> pool_;
  JanusSession& session_;
  const IceOptions& ice_;
  const Json room_;
  const StreamKey key_;
  Feed feed_;
  Incoming incoming_;
  support::Reception reception_;
  Wanted asked_;  // what the server was asked for last; all without a request
  const std::function<void()> changed_;
  std::map<std::string, std::string> kinds_;  // "audio" or "video", by the media line's mid
  Tracks tracks_;                             // as the server has offered them
  ConnectionMeter meter_;
  bool isAnnounced_ = false;
  bool isAdded_ = false;                          // the application was notified of the stream
  std::shared_ptr<support::VideoStream> stream_;  // once the server has offered it
  std::shared_ptr<VideoReceiver> videoReceiver_;  // with the stream
  const std::unique_ptr<SpeakerInput> voice_;
  SpeechDetector speech_;
  bool isSubscribed_ = false;  // the server has offered what it sends
  unsigned connections_ = 0;   // so far, with the present one
  support::Time connectedAt_ = {};
  support::Time delay_ = {};  // before the last connection; 0 for the first
  support::Timer timer_;      // set while there is no connection
  Arrival audioArrival_;
  Arrival videoArrival_;
  Inbox inbox_;
  // Both or none.
  std::optional<JanusHandle> handle_;
  std::optional<PeerConnection> connection_;  // last: its threads use the rest
};

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_PARTICIPANT_H_
