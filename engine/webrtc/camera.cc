#include "engine/webrtc/camera.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <string>
#include <utility>

#include "engine/webrtc/gst_frame.h"
#include "engine/webrtc/pipeline.h"

namespace webrtc {
namespace {

support::Time periodOf(support::FrameRate rate) {
  constexpr double kSecond = 1e9;
  return support::Time(static_cast<support::Time::rep>(kSecond / rate.perSecond()));
}

// How far a number is from what was asked for, as a part of it.
double distance(double number, double wanted) { return std::abs(number - wanted) / wanted; }

// What comes nearest in one of the formats of a device. Its texts, and which of its lists and
// ranges the other fields have, are left as they are. Null when it is no format that we read.
CapsPtr nearest(const GstStructure* format, support::Size size, support::FrameRate rate) {
  const bool isRaw = gst_structure_has_name(format, "video/x-raw");
  if (!isRaw && !gst_structure_has_name(format, "image/jpeg")) return nullptr;
  GstStructure* const chosen = gst_structure_copy(format);
  gst_structure_fixate_field_nearest_int(chosen, "width", static_cast<gint>(size.width));
  gst_structure_fixate_field_nearest_int(chosen, "height", static_cast<gint>(size.height));
  gst_structure_fixate_field_nearest_fraction(
      chosen, "framerate", static_cast<gint>(rate.numerator), static_cast<gint>(rate.denominator));
  return CapsPtr(gst_caps_new_full(chosen, nullptr));
}

// How well it serves; less is better.
double badness(const CapsPtr& caps, support::Size size, support::FrameRate rate) {
  const GstStructure* const format = gst_caps_get_structure(caps.get(), 0);
  gint width = 0;
  gint height = 0;
  gint numerator = 0;
  gint denominator = 1;
  const bool hasSize = gst_structure_get_int(format, "width", &width) &&
                       gst_structure_get_int(format, "height", &height);
  if (!hasSize) return HUGE_VAL;
  // Some devices do not say how fast they are.
  const bool hasRate =
      gst_structure_get_fraction(format, "framerate", &numerator, &denominator) && numerator > 0;
  const double perSecond =
      hasRate ? static_cast<double>(numerator) / denominator : rate.perSecond();
  // Where both serve, what need not be decoded first.
  constexpr double kDecoding = 0.01;
  return distance(width, size.width) + distance(height, size.height) +
         distance(perSecond, rate.perSecond()) +
         (gst_structure_has_name(format, "image/jpeg") ? kDecoding : 0);
}

// The device's nearest format; any when it does not tell.
CapsPtr chooseFormat(const Device& device, support::Size size, support::FrameRate rate) {
  const CapsPtr formats(gst_device_get_caps(device.handle.get()));
  CapsPtr best(gst_caps_new_any());
  double least = HUGE_VAL;
  for (guint index = 0; formats && index < gst_caps_get_size(formats.get()); ++index) {
    CapsPtr format = nearest(gst_caps_get_structure(formats.get(), index), size, rate);
    if (!format || badness(format, size, rate) >= least) continue;
    least = badness(format, size, rate);
    best = std::move(format);
  }
  return best;
}

// What makes pictures of ours of a format.
std::string conversion(const CapsPtr& format) {
  const TextPtr text(gst_caps_to_string(format.get()));
  const bool isJpeg = g_str_has_prefix(text.get(), "image/jpeg");
  return std::string("capsfilter name=format ! ") + (isJpeg ? "jpegdec ! " : "") +
         "videoconvert ! appsink name=sink sync=false max-buffers=2 drop=true "
         "enable-last-sample=false caps=video/x-raw,format=I420";
}

}  // namespace

DeviceCamera::DeviceCamera(support::TaskLoop& loop, const Device& device, support::Size size,
                           support::FrameRate rate, std::shared_ptr<support::FramePool> pool,
                           Viewer viewer, DevicePipeline::Failed failed)
    : pool_(std::move(pool)),
      viewer_(std::move(viewer)),
      pipeline_(loop, DevicePipeline::Ending::kComplete, std::move(failed)) {
  const CapsPtr format = chooseFormat(device, size, rate);
  GstElement* const bin = makeBin(conversion(format));
  const ObjectPtr<GstElement> filter(gst_bin_get_by_name(GST_BIN(bin), "format"));
  g_object_set(filter.get(), "caps", format.get(), nullptr);
  const ObjectPtr<GstElement> sink(gst_bin_get_by_name(GST_BIN(bin), "sink"));
  // A device has few buffers, and their memory goes with it: frames live longer. Without memory for
  // a copy a frame is lost.
  handleSamples(sink.get(), [this](GstSample* sample) {
    if (const auto frame = copiedFrameOf(sample, *pool_)) viewer_(frame);
  });
  GstElement* const source = device.makeElement();
  // The time at which a picture comes, whatever clock the device has.
  g_object_set(source, "do-timestamp", TRUE, nullptr);
  // PipeWire unmaps the memory of a camera that is unplugged on a thread of its own, even while a
  // picture in it is being converted: the source must copy each picture under PipeWire's lock.
  if (g_object_class_find_property(G_OBJECT_GET_CLASS(source), "always-copy")) {
    g_object_set(source, "always-copy", TRUE, nullptr);
  }
  pipeline_.start(source, bin);
}

DrawnCamera::DrawnCamera(std::unique_ptr<support::PictureSource> source, std::uint64_t first,
                         support::FrameRate rate, std::shared_ptr<const support::Clock> clock,
                         std::shared_ptr<support::FramePool> pool,
                         std::shared_ptr<const support::Log> log, Viewer viewer)
    : source_(std::move(source)),
      first_(first),
      period_(periodOf(rate)),
      clock_(std::move(clock)),
      pool_(std::move(pool)),
      log_(std::move(log)),
      viewer_(std::move(viewer)) {
  worker_.start([this] { run(); });
}

DrawnCamera::~DrawnCamera() {
  {
    base::MutexLock lock(mutex_);
    isStopped_ = true;
    changed_.NotifyAll();
  }
  worker_.finish();
}

void DrawnCamera::run() {
  support::Time due = clock_->now();
  for (std::uint64_t number = first_; source_->has(number) && waitUntil(due); ++number) {
    try {
      capture(number);
    } catch (const std::exception& error) {
      log_->write(std::string("a frame could not be captured: ") + error.what());
    }
    due = std::max(due + period_, clock_->now());
  }
}

bool DrawnCamera::waitUntil(support::Time time) {
  base::MutexLock lock(mutex_);
  while (!isStopped_ && clock_->now() < time) clock_->wait(mutex_, changed_, time);
  return !isStopped_;
}

void DrawnCamera::capture(std::uint64_t number) {
  // A camera has no sound.
  constexpr std::uint32_t kLevel = 0;
  const auto frame = pool_->take(source_->size());
  if (!source_->draw(number, kLevel, frame->pixels())) return;
  frame->capturedAt = clock_->now();
  viewer_(frame);
}

}  // namespace webrtc
