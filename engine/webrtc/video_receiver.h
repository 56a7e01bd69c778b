// The decoding of a remote video.

#ifndef ENGINE_WEBRTC_VIDEO_RECEIVER_H_
#define ENGINE_WEBRTC_VIDEO_RECEIVER_H_

#include <gst/app/gstappsink.h>
#include <gst/gst.h>

#include <cstdint>
#include <memory>
#include <string>

#include "base/mutex.h"
#include "engine/support/streams/frame_pool.h"
#include "engine/support/streams/layout.h"
#include "engine/support/streams/video_stream.h"
#include "engine/webrtc/call_statistics.h"
#include "engine/webrtc/scaler.h"

namespace webrtc {

// Decodes the packets of one video, and publishes its frames, numbered from 1, in a stream. Shared
// by the participant and by the decoding elements; all operations may be called from any thread.
class VideoReceiver : public std::enable_shared_from_this<VideoReceiver> {
 public:
  VideoReceiver(std::shared_ptr<support::VideoStream> stream,
                const std::shared_ptr<support::FramePool>& pool)
      : stream_(std::move(stream)), pool_(pool), scaler_(pool) {}
  VideoReceiver(const VideoReceiver&) = delete;
  VideoReceiver& operator=(const VideoReceiver&) = delete;

  // Elements that decode packets of this encoding; null when there are none.
  GstElement* makeDecoder(const std::string& encoding);

  // While it shows nothing, what still arrives is dropped.
  void setShowing(bool isShowing) EXCLUDES(mutex_);
  // What arrives larger or more often is reduced.
  void setReception(const support::Reception& reception) EXCLUDES(mutex_);
  // All that were decoded, shown or not.
  FrameCounts decoded() const EXCLUDES(mutex_);

 private:
  GstFlowReturn take(GstAppSink* sink);
  void show(const std::shared_ptr<support::Frame>& frame) EXCLUDES(mutex_);
  // Whether the picture of this time is one of those that the frame rate leaves.
  bool isDue(support::Time time) REQUIRES(mutex_);

  const std::shared_ptr<support::VideoStream> stream_;
  const std::shared_ptr<support::FramePool> pool_;

  mutable base::Mutex mutex_;
  bool isShowing_ GUARDED_BY(mutex_) = true;
  support::Reception reception_ GUARDED_BY(mutex_);
  support::Time nextDue_ GUARDED_BY(mutex_) = {};
  Scaler scaler_ GUARDED_BY(mutex_);
  FrameCounts decoded_ GUARDED_BY(mutex_);
  std::uint64_t lastId_ GUARDED_BY(mutex_) = 0;
};

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_VIDEO_RECEIVER_H_
