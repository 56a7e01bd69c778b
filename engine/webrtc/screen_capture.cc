#include "engine/webrtc/screen_capture.h"

#include <gst/video/video.h>
#include <xcb/composite.h>

#include <algorithm>
#include <cmath>
#include <exception>
#include <utility>

#include "engine/webrtc/glib.h"

namespace webrtc {
namespace {

using tsl::ShareType;

constexpr support::Time kPeriod = support::Time(std::chrono::seconds(1)) / 15;
constexpr support::Size kLargest = {1920, 1080};

// A part of something that the server has drawn.
struct Area {
  xcb_drawable_t drawable = 0;
  std::int32_t x = 0;
  std::int32_t y = 0;
  support::Size size;
};

// Even, so that every receiver can decode it, and no larger than is sent.
support::Size sentSize(support::Size size) {
  const double reduction = std::min({1.0, static_cast<double>(kLargest.width) / size.width,
                                     static_cast<double>(kLargest.height) / size.height});
  const auto even = [reduction](std::uint32_t length) {
    return std::max(2U, static_cast<std::uint32_t>(std::lround(length * reduction / 2)) * 2);
  };
  return {std::min(even(size.width), kLargest.width), std::min(even(size.height), kLargest.height)};
}

// Makes pictures of ours of the server's. Used by one thread.
class Converter {
 public:
  explicit Converter(std::shared_ptr<support::FramePool> pool) : pool_(std::move(pool)) {}

  // `pixels` are rows of four bytes for each pixel.
  std::shared_ptr<support::Frame> convert(std::uint8_t* pixels, support::Size size) {
    const support::Size reduced = sentSize(size);
    const auto frame = pool_->take(reduced);
    GstVideoFrame source = {};
    gst_video_info_set_format(&source.info, GST_VIDEO_FORMAT_BGRx, size.width, size.height);
    source.data[0] = pixels;
    GstVideoFrame target = {};
    gst_video_info_set_format(&target.info, GST_VIDEO_FORMAT_I420, reduced.width, reduced.height);
    // As decoders take it that are not told.
    gst_video_colorimetry_from_string(&target.info.colorimetry, GST_VIDEO_COLORIMETRY_BT601);
    const support::Size chroma = chromaSize(reduced);
    target.info.stride[0] = static_cast<gint>(reduced.width);
    target.info.stride[1] = target.info.stride[2] = static_cast<gint>(chroma.width);
    target.info.offset[1] = support::pixels(reduced);
    target.info.offset[2] = support::pixels(reduced) + support::pixels(chroma);
    target.info.size = i420Bytes(reduced);
    for (guint plane = 0; plane < 3; ++plane) {
      target.data[plane] = frame->pixels() + target.info.offset[plane];
    }
    if (!converter_ || size != from_) {
      converter_.reset(gst_video_converter_new(&source.info, &target.info, nullptr));
      if (!converter_) throw XError("a picture of " + toText(size) + " cannot be converted");
      from_ = size;
    }
    gst_video_converter_frame(converter_.get(), &source, &target);
    return frame;
  }

 private:
  using ConverterPtr = std::unique_ptr<GstVideoConverter, ReleasedBy<gst_video_converter_free>>;

  const std::shared_ptr<support::FramePool> pool_;
  support::Size from_;
  ConverterPtr converter_;
};

// What the parameters name. Used by one thread.
class Subject {
 public:
  Subject(const tsl::ContentShareParams& params, XInterrupter& interrupter)
      : params_(params), display_(interrupter) {
    if (params_.type == ShareType::kScreen) {
      // What other programs show there is not the X server's.
      if (g_getenv("WAYLAND_DISPLAY")) throw XError("screens of Wayland cannot be captured");
      return;
    }
    window_ = params_.type == ShareType::kWindow
                  ? static_cast<xcb_window_t>(std::max(params_.windowId, 0))
                  : topWindow();
    // A window then has pixels of its own, also where others cover it.
    xcb_composite_redirect_window(connection(), window_, XCB_COMPOSITE_REDIRECT_AUTOMATIC);
  }

  // Null while the window is not shown. Throws XError when there will be nothing any more.
  std::shared_ptr<support::Frame> picture(Converter& converter) {
    return params_.type == ShareType::kScreen ? screenPicture(converter) : windowPicture(converter);
  }

 private:
  xcb_connection_t* connection() const { return display_.connection(); }

  xcb_window_t topWindow() const {
    const xcb_window_t window =
        params_.applicationId > 0
            ? display_.topWindowOf(static_cast<std::uint32_t>(params_.applicationId))
            : 0;
    if (window == 0) throw XError("the application has no window");
    return window;
  }

  std::shared_ptr<support::Frame> screenPicture(Converter& converter) const {
    const auto monitors = display_.monitors();
    const std::int32_t index = params_.screenId == -1 ? 0 : params_.screenId;
    if (index < 0 || static_cast<std::size_t>(index) >= monitors.size()) {
      throw XError("there is no such screen");
    }
    const auto& monitor = monitors[static_cast<std::size_t>(index)];
    auto frame = read(
        {display_.root(),
         monitor.x,
         monitor.y,
         {static_cast<std::uint32_t>(monitor.width), static_cast<std::uint32_t>(monitor.height)}},
        converter);
    if (!frame) throw XError("the X server gives no picture of the screen");
    return frame;
  }

  std::shared_ptr<support::Frame> windowPicture(Converter& converter) const {
    const ReplyPtr<xcb_get_geometry_reply_t> geometry(
        xcb_get_geometry_reply(connection(), xcb_get_geometry(connection(), window_), nullptr));
    if (!geometry) throw XError("the window is not there");
    // A window that is not shown has none.
    const xcb_pixmap_t pixmap = xcb_generate_id(connection());
    xcb_composite_name_window_pixmap(connection(), window_, pixmap);
    // The border lies around the window.
    auto frame = read({pixmap,
                       geometry->border_width,
                       geometry->border_width,
                       {geometry->width, geometry->height}},
                      converter);
    xcb_free_pixmap(connection(), pixmap);
    dropErrors();
    return frame;
  }

  // Null when the server does not give it.
  std::shared_ptr<support::Frame> read(const Area& area, Converter& converter) const {
    constexpr std::uint32_t kAllPlanes = ~0U;
    const ReplyPtr<xcb_get_image_reply_t> image(xcb_get_image_reply(
        connection(),
        xcb_get_image(connection(), XCB_IMAGE_FORMAT_Z_PIXMAP, area.drawable,
                      static_cast<std::int16_t>(area.x), static_cast<std::int16_t>(area.y),
                      static_cast<std::uint16_t>(area.size.width),
                      static_cast<std::uint16_t>(area.size.height), kAllPlanes),
        nullptr));
    if (!image) return nullptr;
    const auto bytes = static_cast<std::size_t>(xcb_get_image_data_length(image.get()));
    if (bytes < support::pixels(area.size) * 4) {
      throw XError("the screen has not four bytes for each pixel");
    }
    return converter.convert(xcb_get_image_data(image.get()), area.size);
  }

  // Those of requests without an answer.
  void dropErrors() const {
    while (const ReplyPtr<xcb_generic_event_t> event{xcb_poll_for_event(connection())}) {
    }
  }

  const tsl::ContentShareParams params_;
  const XDisplay display_;
  xcb_window_t window_ = 0;
};

}  // namespace

ScreenCapture::ScreenCapture(const tsl::ContentShareParams& params,
                             std::shared_ptr<support::FramePool> pool, Viewer viewer, Failed failed)
    : params_(params),
      pool_(std::move(pool)),
      viewer_(std::move(viewer)),
      failed_(std::move(failed)) {
  worker_.start([this] { run(); });
}

ScreenCapture::~ScreenCapture() {
  {
    base::MutexLock lock(mutex_);
    isStopped_ = true;
    changed_.NotifyAll();
  }
  interrupter_.interrupt();
  worker_.finish();
}

std::string ScreenCapture::title() const {
  switch (params_.type) {
    case ShareType::kScreen:
      return "screen " + std::to_string(std::max(params_.screenId, 0));
    case ShareType::kApplication:
      return "application " + std::to_string(params_.applicationId);
    case ShareType::kWindow:
      break;
  }
  return "window " + std::to_string(params_.windowId);
}

void ScreenCapture::run() {
  try {
    Subject subject(params_, interrupter_);
    Converter converter(pool_);
    bool isFirst = true;
    for (support::Time due = clock_->now(); waitUntil(due);
         due = std::max(due + kPeriod, clock_->now())) {
      const auto frame = subject.picture(converter);
      if (frame) viewer_(frame);
      if (!frame && isFirst) throw XError("the window is not shown");
      isFirst = false;
    }
  } catch (const std::exception& error) {
    failed_(title() + " cannot be captured: " + error.what());
  }
}

bool ScreenCapture::waitUntil(support::Time time) {
  base::MutexLock lock(mutex_);
  while (!isStopped_ && clock_->now() < time) clock_->wait(mutex_, changed_, time);
  return !isStopped_;
}

}  // namespace webrtc
