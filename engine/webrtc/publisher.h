// What we send to the room.

#ifndef ENGINE_WEBRTC_PUBLISHER_H_
#define ENGINE_WEBRTC_PUBLISHER_H_

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/webrtc/audio_sender.h"
#include "engine/webrtc/call_statistics.h"
#include "engine/webrtc/janus_session.h"
#include "engine/webrtc/layer_plan.h"
#include "engine/webrtc/peer_connection.h"
#include "engine/webrtc/uplink_rate.h"
#include "engine/webrtc/video_layers.h"
#include "engine/webrtc/video_sender.h"
#include "tesselclient/types.h"

namespace webrtc {

// What others are to know of us besides our name.
struct OwnState {
  std::string guid;
  bool isAudioMuted = false;
  bool isVideoMuted = false;
  // With which the videos of others are received; nothing when none is.
  std::optional<Heights> received;

  bool operator==(const OwnState&) const = default;
};

// Sends the local audio and video, or content, over a connection of its own, through a handle that
// has joined the room. Owned by the call; belongs to the engine's thread.
class Publisher {
 public:
  struct Settings {
    std::uint32_t videoSsrc = 0;
    bool isLayered = false;  // the video, if the room takes it so
    std::uint32_t mostBitsPerSecond = 0;
    std::shared_ptr<support::FramePool> pool;
    OwnState state;
    // Who presents this, as the main room names the participant; null for what is no content. There
    // is no audio with content.
    Json presenter = {};
  };

  struct Handlers {
    // The server has answered the offer.
    std::function<void()> accepted;
    // Media can flow.
    std::function<void()> connected;
    // The server accepts nothing of ours, with a code of its own.
    std::function<void(int code, std::string reason)> refused;
    std::function<void(std::string reason)> failed;
    // How loud the microphone is, 0 to 100; five times a second while it is not muted.
    std::function<void(unsigned level)> heard;
  };

  Publisher(support::TaskLoop& loop, JanusHandle& handle, const IceOptions& ice,
            const Settings& settings, Handlers handlers);
  Publisher(const Publisher&) = delete;
  Publisher& operator=(const Publisher&) = delete;

  // Called once.
  void start();
  // What the server tells through the handle.
  void addCandidate(const Json& candidate) { connection_.addCandidate(candidate); }
  // Tells the others.
  void setState(const OwnState& state);
  // The heights with which the others receive videos; nothing when nobody does.
  void setReceived(const std::optional<Heights>& heights);

  // Of the media line with this mid; nothing when there is none.
  static std::optional<MediaType> typeOf(const std::string& mid);

  // The server has accepted what we send; only a way for it may be missing.
  bool isAccepted() const { return isAccepted_; }
  // Empty before, and when the room takes no video that can be sent.
  const std::shared_ptr<VideoSender>& video() const { return video_; }
  // An appsrc, into which the microphone's buffers go. Not for content.
  ObjectPtr<GstElement> audioSource() const { return audio_->source(); }

  // What was sent in a window of this length, which ends now.
  Traffic closeWindow(support::Time length);
  // How many bits per second of video the server accepts; 0 until it has said so.
  std::uint32_t grantedBitsPerSecond() const { return connection_.grantedBitsPerSecond(); }

 private:
  bool isContent() const { return !settings_.presenter.is_null(); }
  void publish(const std::string& offer);
  // In the encoding that the room takes, if it is one of ours.
  void addVideo(const std::string& encoding);
  void setLayerSizes(const std::vector<support::Size>& sizes);
  // Sends as much as the way to the server and the server take.
  void followUplink();
  void tellState();
  Json descriptions() const;
  // On a thread of the connection's.
  void read(GstMessage* message) const;

  JanusHandle& handle_;
  const Settings settings_;
  const Handlers handlers_;
  const std::vector<LayerSsrcs> lowerLayers_;
  OwnState state_;
  std::vector<support::Size> layerSizes_;  // of the video that is being sent
  Json told_;
  bool isAccepted_ = false;
  Inbox inbox_;
  PeerConnection connection_;
  const ObjectPtr<GstPad> videoPlace_;
  std::shared_ptr<VideoSender> video_;
  std::optional<Heights> received_;   // by the others
  std::optional<AudioSender> audio_;  // unless it is content
  // By the SSRC of what is sent.
  std::map<std::uint32_t, std::uint32_t> repetitions_;
  ConnectionMeter meter_;
  support::TaskLoop& loop_;
  UplinkRate rate_;
  support::Timer rateTimer_;
};

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_PUBLISHER_H_
