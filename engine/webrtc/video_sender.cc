#include "engine/webrtc/video_sender.h"

#include <gst/app/gstappsrc.h>
#include <gst/video/video.h>

#include <algorithm>
#include <array>
#include <string>

namespace webrtc {
namespace {

// Bits for a pixel, at 30 frames per second, above which VP8 gains little.
constexpr double kBitsPerPixel = 0.1;
constexpr std::uint32_t kLeastBitsPerSecond = 150'000;
// Percent of the encoder's buffer of bits. Where the application's limit is what limits, frames are
// left out rather than the limit exceeded.
constexpr gint kDropThreshold = 30;

// One thread and no look-ahead, so that a frame leaves at once; the rate is held within a second. A
// key frame is sent when somebody asks for one.
constexpr const char* kEncoding =
    "appsrc name=source is-live=true format=time max-buffers=1 leaky-type=downstream ! "
    "vp8enc name=encoder deadline=1 cpu-used=8 threads=1 lag-in-frames=0 end-usage=cbr "
    "error-resilient=default keyframe-max-dist=3000 min-quantizer=4 max-quantizer=56 "
    "buffer-size=1000 buffer-initial-size=500 buffer-optimal-size=600 overshoot=15 "
    "static-threshold=1 ! "
    "rtpvp8pay name=payloader picture-id-mode=15-bit";

BufferPtr bufferOf(const std::shared_ptr<support::Frame>& frame) {
  using Kept = Handed<void>;
  const support::Size size = frame->size();
  auto* const pixels = const_cast<std::uint8_t*>(frame->frameBuffer());
  BufferPtr buffer(gst_buffer_new_wrapped_full(GST_MEMORY_FLAG_READONLY, pixels, frame->bytes(), 0,
                                               frame->bytes(), new Kept([frame] {}),
                                               Kept::destroy));
  // The rows are tightly packed, which GStreamer's own would not be in any size.
  const support::Size chroma = chromaSize(size);
  std::array<gsize, GST_VIDEO_MAX_PLANES> offsets = {
      0, support::pixels(size), support::pixels(size) + support::pixels(chroma), 0};
  std::array<gint, GST_VIDEO_MAX_PLANES> strides = {static_cast<gint>(size.width),
                                                    static_cast<gint>(chroma.width),
                                                    static_cast<gint>(chroma.width), 0};
  gst_buffer_add_video_meta_full(buffer.get(), GST_VIDEO_FRAME_FLAG_NONE, GST_VIDEO_FORMAT_I420,
                                 size.width, size.height, 3, offsets.data(), strides.data());
  GST_BUFFER_PTS(buffer.get()) = static_cast<GstClockTime>(frame->capturedAt.count());
  return buffer;
}

}  // namespace

VideoSender::VideoSender(PeerConnection& connection, std::uint32_t ssrc,
                         std::uint32_t mostBitsPerSecond)
    : mostBitsPerSecond_(mostBitsPerSecond) {
  GstElement* const bin = makeBin(kEncoding);
  source_.reset(gst_bin_get_by_name(GST_BIN(bin), "source"));
  encoder_.reset(gst_bin_get_by_name(GST_BIN(bin), "encoder"));
  const ObjectPtr<GstElement> payloader(gst_bin_get_by_name(GST_BIN(bin), "payloader"));
  g_object_set(payloader.get(), "ssrc", ssrc, nullptr);
  connection.addSender(bin,
                       "application/x-rtp,media=video,encoding-name=VP8,clock-rate=90000,"
                       "payload=96,rtcp-fb-nack-pli=true,ssrc=(uint)" +
                           std::to_string(ssrc));
}

void VideoSender::start() {
  base::MutexLock lock(mutex_);
  isStarted_ = true;
}

void VideoSender::send(const std::shared_ptr<support::Frame>& frame) {
  base::MutexLock lock(mutex_);
  if (!isStarted_) return;
  if (frame->size() != size_) {
    size_ = frame->size();
    setFormat(size_);
  }
  gst_app_src_push_buffer(GST_APP_SRC(source_.get()), bufferOf(frame).release());
}

void VideoSender::setFormat(support::Size size) {
  const auto wanted =
      static_cast<std::uint32_t>(static_cast<double>(support::pixels(size)) * 30 * kBitsPerPixel);
  const auto rate =
      std::clamp(wanted, kLeastBitsPerSecond, std::max(mostBitsPerSecond_, kLeastBitsPerSecond));
  g_object_set(encoder_.get(), "target-bitrate", static_cast<gint>(rate), "dropframe-threshold",
               mostBitsPerSecond_ < wanted ? kDropThreshold : 0, nullptr);
  const CapsPtr caps(gst_caps_new_simple("video/x-raw", "format", G_TYPE_STRING, "I420", "width",
                                         G_TYPE_INT, static_cast<gint>(size.width), "height",
                                         G_TYPE_INT, static_cast<gint>(size.height), "framerate",
                                         GST_TYPE_FRACTION, 30, 1, nullptr));
  gst_app_src_set_caps(GST_APP_SRC(source_.get()), caps.get());
}

}  // namespace webrtc
