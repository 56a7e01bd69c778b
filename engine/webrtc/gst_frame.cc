#include "engine/webrtc/gst_frame.h"

#include <gst/video/video.h>

#include <cstring>
#include <optional>

#include "engine/webrtc/glib.h"

namespace webrtc {
namespace {

// A sample's picture, mapped for reading.
class MappedPicture {
 public:
  explicit MappedPicture(GstSample* sample) {
    GstVideoInfo info;
    const GstCaps* const caps = gst_sample_get_caps(sample);
    isMapped_ = caps && gst_video_info_from_caps(&info, caps) &&
                GST_VIDEO_INFO_FORMAT(&info) == GST_VIDEO_FORMAT_I420 &&
                gst_video_frame_map(&frame_, &info, gst_sample_get_buffer(sample), GST_MAP_READ);
  }
  ~MappedPicture() {
    if (isMapped_) gst_video_frame_unmap(&frame_);
  }
  MappedPicture(const MappedPicture&) = delete;
  MappedPicture& operator=(const MappedPicture&) = delete;

  bool isMapped() const { return isMapped_; }
  support::Size size() const {
    return {static_cast<std::uint32_t>(GST_VIDEO_FRAME_WIDTH(&frame_)),
            static_cast<std::uint32_t>(GST_VIDEO_FRAME_HEIGHT(&frame_))};
  }
  const std::uint8_t* plane(guint number) const {
    return static_cast<const std::uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&frame_, number));
  }
  std::size_t stride(guint number) const {
    return static_cast<std::size_t>(GST_VIDEO_FRAME_PLANE_STRIDE(&frame_, number));
  }

  // Whether the planes lie as those of a frame do.
  bool isPacked() const {
    const support::Size chroma = chromaSize(size());
    return stride(0) == size().width && stride(1) == chroma.width && stride(2) == chroma.width &&
           plane(1) == plane(0) + pixels(size()) && plane(2) == plane(1) + pixels(chroma);
  }

  void copyTo(std::uint8_t* target) const {
    for (guint number = 0; number < 3; ++number) {
      const support::Size size = number == 0 ? this->size() : chromaSize(this->size());
      const std::uint8_t* row = plane(number);
      for (std::uint32_t y = 0; y < size.height; ++y, row += stride(number)) {
        std::memcpy(target, row, size.width);
        target += size.width;
      }
    }
  }

 private:
  GstVideoFrame frame_ = {};
  bool isMapped_ = false;
};

// Keeps the picture mapped, and with it the decoder's buffer.
class GstFrame final : public support::Frame {
 public:
  explicit GstFrame(std::unique_ptr<const MappedPicture> picture)
      : Frame(picture->size(), picture->plane(0)), picture_(std::move(picture)) {}

 private:
  const std::unique_ptr<const MappedPicture> picture_;
};

std::shared_ptr<support::Frame> copyOf(const MappedPicture& picture, support::FramePool& pool) {
  auto copy = pool.take(picture.size());
  picture.copyTo(copy->pixels());
  return copy;
}

// A buffer's time is one of the engine's clock.
std::shared_ptr<support::Frame> stamped(std::shared_ptr<support::Frame> frame, GstSample* sample) {
  const GstClockTime time = GST_BUFFER_PTS(gst_sample_get_buffer(sample));
  if (GST_CLOCK_TIME_IS_VALID(time)) frame->capturedAt = support::Time(time);
  return frame;
}

}  // namespace

std::shared_ptr<support::Frame> frameOf(GstSample* sample, support::FramePool& pool) {
  auto picture = std::make_unique<const MappedPicture>(sample);
  if (!picture->isMapped()) return nullptr;
  if (!picture->isPacked()) return stamped(copyOf(*picture, pool), sample);
  return stamped(std::make_shared<GstFrame>(std::move(picture)), sample);
}

std::shared_ptr<support::Frame> copiedFrameOf(GstSample* sample, support::FramePool& pool) {
  const MappedPicture picture(sample);
  return picture.isMapped() ? stamped(copyOf(picture, pool), sample) : nullptr;
}

}  // namespace webrtc
