#include "engine/webrtc/video_receiver.h"

#include <algorithm>
#include <map>

#include "engine/webrtc/glib.h"
#include "engine/webrtc/gst_frame.h"
#include "engine/webrtc/pipeline.h"

namespace webrtc {
namespace {

// Only whole pictures: after a loss nothing is decoded before the next key frame, which is asked
// for.
const std::map<std::string, std::string> kDecodings = {
    {"VP8", "rtpvp8depay wait-for-keyframe=true request-keyframe=true ! vp8dec threads=1"},
    // The decoder asks for the stream's profile, which only the parser finds.
    {"H264",
     "rtph264depay wait-for-keyframe=true request-keyframe=true ! "
     "video/x-h264,stream-format=byte-stream,alignment=au ! h264parse ! openh264dec"},
};

// Frames are taken as they come out.
constexpr const char* kSink =
    " ! appsink name=sink sync=false max-buffers=2 drop=true enable-last-sample=false "
    "caps=video/x-raw,format=I420";

// Between two of so many pictures per second. Of 30 every fourth stays for 7, not one less in two
// seconds, as the layers of an encoder have it.
support::Time periodOf(std::uint32_t perSecond) {
  constexpr double kQuarterOf30 = 7.5;
  const double exact = perSecond == 7 ? kQuarterOf30 : perSecond;
  return std::chrono::duration_cast<support::Time>(std::chrono::duration<double>(1 / exact));
}

}  // namespace

GstElement* VideoReceiver::makeDecoder(const std::string& encoding) {
  const auto decoding = kDecodings.find(encoding);
  if (decoding == kDecodings.end()) return nullptr;
  using NewSample = Handed<GstFlowReturn, GstAppSink*>;
  GstElement* const bin = makeBin(decoding->second + kSink);
  const ObjectPtr<GstElement> sink(gst_bin_get_by_name(GST_BIN(bin), "sink"));
  GstAppSinkCallbacks callbacks = {};
  callbacks.new_sample = [](GstAppSink* from, gpointer data) {
    return NewSample::call(data, from);
  };
  auto* const newSample =
      new NewSample([self = shared_from_this()](GstAppSink* from) { return self->take(from); });
  gst_app_sink_set_callbacks(GST_APP_SINK(sink.get()), &callbacks, newSample, NewSample::destroy);
  return bin;
}

GstFlowReturn VideoReceiver::take(GstAppSink* sink) {
  const SamplePtr sample(gst_app_sink_pull_sample(sink));
  if (!sample) return GST_FLOW_EOS;
  if (const auto frame = frameOf(sample.get(), *pool_)) show(frame);
  return GST_FLOW_OK;
}

void VideoReceiver::show(const std::shared_ptr<support::Frame>& frame) {
  base::MutexLock lock(mutex_);
  ++decoded_.frames;
  decoded_.size = frame->size();
  if (!isShowing_ || !isDue(frame->capturedAt)) return;
  const support::Size size = shapedSize(frame->size(), reception_);
  const auto shown = size == frame->size() ? frame : scaler_.scale(*frame, size);
  shown->id = ++lastId_;
  shown->csrc = stream_->csrc();
  stream_->publish(shown);
}

bool VideoReceiver::isDue(support::Time time) {
  if (reception_.mostPerSecond == 0) return true;
  const support::Time period = periodOf(reception_.mostPerSecond);
  // Times that have nothing to do with those before, as after a pause, begin anew.
  if (time > nextDue_ + period || time < nextDue_ - 2 * period) nextDue_ = time;
  // Pictures arrive a little early or late, at most by half the time between two of 30 per second.
  constexpr support::Time kHalfOf30 = support::Time(std::chrono::seconds(1)) / 60;
  if (time < nextDue_ - std::min(period / 4, kHalfOf30)) return false;
  nextDue_ += period;
  return true;
}

void VideoReceiver::setReception(const support::Reception& reception) {
  base::MutexLock lock(mutex_);
  reception_ = reception;
}

FrameCounts VideoReceiver::decoded() const {
  base::MutexLock lock(mutex_);
  return decoded_;
}

void VideoReceiver::setShowing(bool isShowing) {
  base::MutexLock lock(mutex_);
  if (isShowing == isShowing_) return;
  isShowing_ = isShowing;
  if (!isShowing) stream_->clear();
}

}  // namespace webrtc
