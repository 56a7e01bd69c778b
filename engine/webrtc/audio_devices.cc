#include "engine/webrtc/audio_devices.h"

#include "engine/webrtc/glib.h"
#include "engine/webrtc/pipeline.h"

namespace webrtc {
namespace {

// Samples of 10 ms at a time, of which the device holds a few.
constexpr const char* kDeviceTimes = " buffer-time=60000 latency-time=10000 provide-clock=false";
// The canceller of echoes hears there what is played.
constexpr const char* kEchoProbe = "tessel-echo-probe";
constexpr const char* kVoiceFormat = "audio/x-raw,format=S16LE,rate=48000";

// As a value in a description of elements.
std::string quoted(const std::string& text) {
  std::string value = "\"";
  for (const char character : text) {
    if (character == '"' || character == '\\') value += '\\';
    value += character;
  }
  return value + '"';
}

// Whether the element's device can be opened.
bool isThere(const char* factory, const std::string& device) {
  const ObjectPtr<GstElement> element(gst_element_factory_make(factory, nullptr));
  if (!element) return false;
  gst_object_ref_sink(element.get());
  if (!device.empty()) g_object_set(element.get(), "device", device.c_str(), nullptr);
  const bool isOpen =
      gst_element_set_state(element.get(), GST_STATE_READY) == GST_STATE_CHANGE_SUCCESS;
  gst_element_set_state(element.get(), GST_STATE_NULL);
  return isOpen;
}

std::string element(const char* factory, const std::string& device) {
  const std::string choice = device.empty() ? "" : " device=" + quoted(device);
  return factory + choice + kDeviceTimes;
}

}  // namespace

std::string speakerElements(const std::string& device) {
  if (!isThere("pulsesink", device)) return "fakesink sync=true";
  return std::string(kVoiceFormat) + " ! webrtcechoprobe name=" + kEchoProbe +
         " ! audioconvert ! " + element("pulsesink", device);
}

std::string microphoneElements(const MicrophoneSource& source, const std::string& device) {
  switch (source.kind) {
    case MicrophoneSource::Kind::kTone:
      return "audiotestsrc is-live=true wave=sine volume=0.3 samplesperbuffer=480 freq=" +
             std::to_string(source.hertz);
    case MicrophoneSource::Kind::kDevice:
      break;
  }
  if (!isThere("pulsesrc", device)) {
    return "audiotestsrc is-live=true wave=silence samplesperbuffer=480";
  }
  const bool isEchoKnown = isThere("pulsesink", "");
  return element("pulsesrc", device) + " ! audioconvert ! audioresample ! " + kVoiceFormat +
         ",channels=1 ! webrtcdsp echo-cancel=" + (isEchoKnown ? "true" : "false") +
         " probe=" + kEchoProbe;
}

}  // namespace webrtc
