// The encoding and sending of the local video.

#ifndef ENGINE_WEBRTC_VIDEO_SENDER_H_
#define ENGINE_WEBRTC_VIDEO_SENDER_H_

#include <gst/gst.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "base/mutex.h"
#include "engine/support/streams/frame_pool.h"
#include "engine/webrtc/call_statistics.h"
#include "engine/webrtc/glib.h"
#include "engine/webrtc/peer_connection.h"

namespace webrtc {

// Takes frames, without copying them, and puts them encoded into a connection. Shared by the
// publisher and by the camera, which may still have it when the connection is over: frames are then
// dropped. send() may be called from any thread; the rest belongs to the engine's thread.
class VideoSender {
 public:
  // What can be sent with this SSRC, for the connection's offer; the best first.
  static std::string formats(std::uint32_t ssrc);
  // Whether this encoding, as the answer to the offer names it, is one of them.
  static bool canEncode(const std::string& encoding);

  // Sends at `place` of the connection, in an encoding that canEncode() accepts, with this SSRC, at
  // most so many bits per second.
  VideoSender(PeerConnection& connection, GstPad* place, const std::string& encoding,
              std::uint32_t ssrc, std::uint32_t mostBitsPerSecond);
  VideoSender(const VideoSender&) = delete;
  VideoSender& operator=(const VideoSender&) = delete;

  // For pictures with text: they are blurred less, and rather left out. Called before start().
  void keepDetails();
  // Before that frames are dropped: nobody could receive them.
  void start() EXCLUDES(mutex_);
  void send(const std::shared_ptr<support::Frame>& frame) EXCLUDES(mutex_);
  // What the encoder has made of them.
  FrameCounts encoded() const EXCLUDES(mutex_);

 private:
  void setFormat(support::Size size);

  const std::uint32_t mostBitsPerSecond_;
  void (*const limit_)(GstElement* encoder, std::uint32_t bitsPerSecond, bool isStrict);
  ObjectPtr<GstElement> source_;
  ObjectPtr<GstElement> encoder_;
  // Counted on the encoder's thread.
  const std::shared_ptr<std::atomic<std::uint64_t>> encodedFrames_ =
      std::make_shared<std::atomic<std::uint64_t>>(0);

  mutable base::Mutex mutex_;
  bool isStarted_ GUARDED_BY(mutex_) = false;
  support::Size size_ GUARDED_BY(mutex_);  // of the frames that are being sent
};

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_VIDEO_SENDER_H_
