// One media stream as the application sees it.

#ifndef ENGINE_SUPPORT_STREAMS_VIDEO_STREAM_H_
#define ENGINE_SUPPORT_STREAMS_VIDEO_STREAM_H_

#include <cstdint>
#include <memory>

#include "base/mutex.h"
#include "engine/support/log.h"
#include "engine/support/streams/frame_delivery.h"
#include "engine/support/streams/frame_pool.h"
#include "tesselclient/video_frame.h"

namespace support {

// Keeps the newest frame of a stream for whoever asks, and pushes each frame to the receiver.
// Frames are published by one thread at a time; all other operations may be called from any thread.
//
// While the stream shows nothing (its capture is disabled, it is muted, not wanted, cut off or
// over), GetFrame answers noUpdate and clearFrame.
class VideoStream final : public IFrameManager {
 public:
  VideoStream(const StreamKey& key, std::uint32_t csrc, std::shared_ptr<const Log> log);

  const StreamKey& key() const { return key_; }
  std::uint32_t csrc() const { return csrc_; }

  // Whether the application lets the stream capture frames.
  bool isCapturing() const EXCLUDES(mutex_);
  // Makes `frame` the newest; dropped when the stream does not capture or is over.
  void publish(const std::shared_ptr<Frame>& frame) EXCLUDES(mutex_);
  // From now until the next frame the stream shows nothing.
  void clear() EXCLUDES(mutex_);
  // The stream is over: it shows nothing any more and calls no receiver. Never waits.
  void end() EXCLUDES(mutex_);
  FrameDelivery& delivery() { return *delivery_; }

  void GetFrame(std::uint32_t frameId, VideoFrame& frame) override EXCLUDES(mutex_);
  // Does nothing: a frame returns to the engine when its last holder releases it.
  void ReleaseFrame(std::int64_t frameId) override;
  void EnableFrameCapture() override EXCLUDES(mutex_);
  void DisableFrameCapture() override EXCLUDES(mutex_);
  void SetFrameReceiver(std::shared_ptr<IFrameRecieveCallback> receiver) override;

 private:
  const StreamKey key_;
  const std::uint32_t csrc_;
  const std::shared_ptr<FrameDelivery> delivery_;

  mutable base::Mutex mutex_;
  std::shared_ptr<Frame> newest_ GUARDED_BY(mutex_);
  bool showsNothing_ GUARDED_BY(mutex_) = false;
  bool capturing_ GUARDED_BY(mutex_) = true;
  bool ended_ GUARDED_BY(mutex_) = false;
};

}  // namespace support

#endif  // ENGINE_SUPPORT_STREAMS_VIDEO_STREAM_H_
