#include "engine/webrtc/call_audio.h"

#include <utility>

#include "engine/webrtc/pipeline.h"
#include "engine/webrtc/sound_clip.h"

namespace webrtc {
namespace {

// The canceller of echoes hears there what is played.
constexpr const char* kEchoProbe = "tessel-echo-probe";

// An element of the device's, which holds a few pieces of 10 ms each.
GstElement* makeSoundElement(const Device& device) {
  GstElement* const element = device.makeElement();
  constexpr gint64 kBufferUs = 60'000;
  constexpr gint64 kPieceUs = 10'000;
  g_object_set(element, "buffer-time", kBufferUs, "latency-time", kPieceUs, "provide-clock", FALSE,
               nullptr);
  return element;
}

}  // namespace

CallAudio::CallAudio(support::TaskLoop& loop, Devices& devices, MicrophoneSource source)
    : loop_(loop), devices_(devices), source_(std::move(source)) {
  play();
}

void CallAudio::captureInto(ObjectPtr<GstElement> target) {
  target_ = std::move(target);
  capture();
}

void CallAudio::deviceChanged(DeviceType type) {
  if (type == DeviceType::kAudioOut) play();
  if (type == DeviceType::kAudioIn && isDeviceCaptured()) capture();
}

bool CallAudio::isDeviceCaptured() const {
  return target_ && source_.kind == MicrophoneSource::Kind::kDevice;
}

// The canceller must hear this speaker, but none is worth an interruption of the microphone that
// does not work.
void CallAudio::played() {
  if (!hearsPlayer_ && isDeviceCaptured()) capture();
}

void CallAudio::play() {
  speaker_.setOutput(nullptr);
  player_.reset();
  hearsPlayer_ = false;
  const Device* const device = devices_.used(DeviceType::kAudioOut);
  if (!device) return;
  // Nothing but the elements of the pipelines is used by their threads.
  player_.emplace(
      loop_, DevicePipeline::Ending::kPrompt,
      [this](const std::string& reason) { devices_.fail(DeviceType::kAudioOut, reason); },
      [this] { played(); });
  GstElement* const bin =
      makeBin(std::string(kMixedSource) + " ! webrtcechoprobe name=" + kEchoProbe +
              " ! audioconvert ! audioresample");
  echoProbe_.reset(gst_bin_get_by_name(GST_BIN(bin), kEchoProbe));
  ObjectPtr<GstElement> source(gst_bin_get_by_name(GST_BIN(bin), "source"));
  player_->start(bin, makeSoundElement(*device));
  speaker_.setOutput(std::move(source));
}

void CallAudio::capture() {
  hearsPlayer_ = player_.has_value();
  microphone_.reset();
  microphone_.emplace(loop_, DevicePipeline::Ending::kPrompt, [this](const std::string& reason) {
    devices_.fail(DeviceType::kAudioIn, reason);
  });
  // A clip must be held back to its own pace.
  const bool isClip = source_.kind == MicrophoneSource::Kind::kClip;
  GstElement* const bin =
      makeBin(processing() + kVoiceFormat + " ! appsink name=sink max-buffers=50 drop=true " +
              "enable-last-sample=false sync=" + (isClip ? "true" : "false"));
  const ObjectPtr<GstElement> sink(gst_bin_get_by_name(GST_BIN(bin), "sink"));
  passOn(sink.get(), target_.get());
  microphone_->start(makeSource(), bin);
}

GstElement* CallAudio::makeSource() {
  switch (source_.kind) {
    case MicrophoneSource::Kind::kTone:
      return makeBin("audiotestsrc is-live=true wave=sine volume=0.3 samplesperbuffer=480 freq=" +
                     std::to_string(source_.hertz));
    case MicrophoneSource::Kind::kClip:
      return makeLoop(source_.clip);
    case MicrophoneSource::Kind::kDevice:
      break;
  }
  if (const Device* const device = devices_.used(DeviceType::kAudioIn)) {
    return makeSoundElement(*device);
  }
  return makeBin("audiotestsrc is-live=true wave=silence samplesperbuffer=480");
}

std::string CallAudio::processing() const {
  std::string conversion = "audioconvert ! audioresample ! ";
  const bool isVoice = source_.kind == MicrophoneSource::Kind::kDevice &&
                       devices_.used(DeviceType::kAudioIn) != nullptr;
  if (!isVoice) return conversion;
  return conversion + kVoiceFormat + " ! webrtcdsp echo-cancel=" + (echoProbe_ ? "true" : "false") +
         " probe=" + kEchoProbe + " ! ";
}

}  // namespace webrtc
