// Pictures in other sizes.

#ifndef ENGINE_WEBRTC_SCALER_H_
#define ENGINE_WEBRTC_SCALER_H_

#include <gst/video/video.h>

#include <memory>

#include "engine/support/streams/frame_pool.h"
#include "engine/webrtc/glib.h"

namespace webrtc {

// Reduces pictures. Used by one thread at a time.
class Scaler {
 public:
  explicit Scaler(std::shared_ptr<support::FramePool> pool) : pool_(std::move(pool)) {}
  Scaler(const Scaler&) = delete;
  Scaler& operator=(const Scaler&) = delete;

  // The picture of `frame` in this size, captured at the same time.
  std::shared_ptr<support::Frame> scale(const support::Frame& frame, support::Size size);

 private:
  using ConverterPtr = std::unique_ptr<GstVideoConverter, ReleasedBy<gst_video_converter_free>>;

  const std::shared_ptr<support::FramePool> pool_;
  // For pictures from the one size to the other.
  support::Size from_;
  support::Size to_;
  ConverterPtr converter_;
};

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_SCALER_H_
