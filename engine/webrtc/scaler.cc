#include "engine/webrtc/scaler.h"

#include <stdexcept>

namespace webrtc {
namespace {

// A picture with tightly packed rows as GStreamer's converter takes it.
GstVideoFrame videoFrame(support::Size size, const std::uint8_t* pixels) {
  const support::Size chroma = chromaSize(size);
  GstVideoFrame frame = {};
  gst_video_info_set_format(&frame.info, GST_VIDEO_FORMAT_I420, size.width, size.height);
  // The usual ones depend on the size: a reduction would change the colours.
  frame.info.colorimetry = {};
  frame.info.chroma_site = GST_VIDEO_CHROMA_SITE_UNKNOWN;
  frame.info.stride[0] = static_cast<gint>(size.width);
  frame.info.stride[1] = frame.info.stride[2] = static_cast<gint>(chroma.width);
  frame.info.offset[1] = support::pixels(size);
  frame.info.offset[2] = support::pixels(size) + support::pixels(chroma);
  frame.info.size = i420Bytes(size);
  auto* const data = const_cast<std::uint8_t*>(pixels);
  for (guint plane = 0; plane < 3; ++plane) frame.data[plane] = data + frame.info.offset[plane];
  return frame;
}

}  // namespace

std::shared_ptr<support::Frame> Scaler::scale(const support::Frame& frame, support::Size size) {
  auto scaled = pool_->take(size);
  GstVideoFrame source = videoFrame(frame.size(), frame.frameBuffer());
  GstVideoFrame target = videoFrame(size, scaled->pixels());
  if (!converter_ || from_ != frame.size() || to_ != size) {
    converter_.reset(gst_video_converter_new(
        &source.info, &target.info,
        gst_structure_new("options", GST_VIDEO_CONVERTER_OPT_RESAMPLER_METHOD,
                          GST_TYPE_VIDEO_RESAMPLER_METHOD, GST_VIDEO_RESAMPLER_METHOD_LINEAR,
                          nullptr)));
    if (!converter_) throw std::runtime_error("a picture cannot be scaled to " + toText(size));
    from_ = frame.size();
    to_ = size;
  }
  gst_video_converter_frame(converter_.get(), &source, &target);
  scaled->capturedAt = frame.capturedAt;
  return scaled;
}

}  // namespace webrtc
