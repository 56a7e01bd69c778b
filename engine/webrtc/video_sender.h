// The encoding and sending of the local video.

#ifndef ENGINE_WEBRTC_VIDEO_SENDER_H_
#define ENGINE_WEBRTC_VIDEO_SENDER_H_

#include <gst/gst.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/mutex.h"
#include "engine/support/streams/frame_pool.h"
#include "engine/webrtc/call_statistics.h"
#include "engine/webrtc/glib.h"
#include "engine/webrtc/layer_plan.h"
#include "engine/webrtc/peer_connection.h"
#include "engine/webrtc/scaler.h"

namespace webrtc {

struct Encoding;

// Takes frames, without copying them, and puts them encoded into a connection: in one layer, or in
// up to three. Shared by the publisher and by the camera, which may still have it when the
// connection is over: frames are then dropped. send() and requestKeyFrame() may be called from any
// thread; the rest belongs to the engine's thread.
class VideoSender {
 public:
  struct Settings {
    std::vector<std::uint32_t> ssrcs;     // of the layers, or the only one; the highest first
    std::uint32_t mostBitsPerSecond = 0;  // of all layers, at first
    std::shared_ptr<support::FramePool> pool;
    // Called with the new sizes of the layers that the frames become, the highest first, on the
    // thread that sends.
    std::function<void(const std::vector<support::Size>&)> sizesChanged;
  };

  // What can be sent, for the connection's offer; the best first.
  static std::string formats(std::uint32_t ssrc);
  // Whether this encoding, as the answer to the offer names it, is one of them.
  static bool canEncode(const std::string& encoding);
  static bool canLayer(const std::string& encoding);

  // Sends at `place` of the connection, in an encoding that canEncode() accepts, and canLayer() if
  // there are several layers.
  VideoSender(PeerConnection& connection, GstPad* place, const std::string& encoding,
              Settings settings);
  VideoSender(const VideoSender&) = delete;
  VideoSender& operator=(const VideoSender&) = delete;

  // For pictures with text: they are blurred less, and rather left out. Called before start().
  void keepDetails();
  // Before that frames are dropped: nobody could receive them.
  void start() EXCLUDES(mutex_);
  // The heights with which others receive videos; nothing when nobody does, as at the beginning.
  void setReceived(const std::optional<Heights>& heights) EXCLUDES(mutex_);
  void send(const std::shared_ptr<support::Frame>& frame) EXCLUDES(mutex_);
  // All layers together have no more than this.
  void setMost(std::uint32_t bitsPerSecond) EXCLUDES(mutex_);
  // What all layers that others receive have without a limit; 0 before the first frame.
  std::uint32_t wantedBitsPerSecond() const EXCLUDES(mutex_);
  // Of the highest layer that is sent.
  std::uint32_t highestSsrc() const EXCLUDES(mutex_);
  // What the encoder of the highest layer that is sent has made of them.
  FrameCounts encoded() const EXCLUDES(mutex_);
  // The next frame of the layer with this SSRC, or of all layers for 0, is a key frame.
  void requestKeyFrame(std::uint32_t ssrc) const;

 private:
  struct Layer {
    std::uint32_t ssrc = 0;
    ObjectPtr<GstElement> source;
    ObjectPtr<GstElement> encoder;
    ObjectPtr<GstElement> payloader;
    std::unique_ptr<Scaler> scaler;  // of the frames of the layer above
  };

  GstElement* addLayer(const Encoding& encoding, std::uint32_t ssrc);
  bool isLayered() const { return settings_.ssrcs.size() > 1; }
  // Chooses the layers that are sent.
  void plan() REQUIRES(mutex_);
  void setFormats() REQUIRES(mutex_);

  const Settings settings_;
  void (*const limit_)(GstElement* encoder, std::uint32_t bitsPerSecond, bool isStrict);
  // Counted on the threads of the encoders.
  struct Encoded {
    std::atomic<std::size_t> highest = 0;  // of the layers that are sent
    std::atomic<std::uint64_t> frames = 0;
  };
  const std::shared_ptr<Encoded> encoded_ = std::make_shared<Encoded>();
  std::vector<Layer> layers_;  // the highest first; constant after the construction

  mutable base::Mutex mutex_;
  bool isStarted_ GUARDED_BY(mutex_) = false;
  std::optional<Heights> received_ GUARDED_BY(mutex_);
  std::uint32_t mostBitsPerSecond_ GUARDED_BY(mutex_);
  // Of the frames that are being sent.
  std::vector<support::Size> sizes_ GUARDED_BY(mutex_);
  LayerPlan plan_ GUARDED_BY(mutex_);
};

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_VIDEO_SENDER_H_
