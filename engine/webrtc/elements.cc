#include "engine/webrtc/elements.h"

#include <gst/gst.h>

#include <array>
#include <string>

#include "engine/webrtc/call_end.h"
#include "engine/webrtc/exit_guard.h"
#include "engine/webrtc/glib.h"
#include "engine/webrtc/pipeline.h"

namespace webrtc {
namespace {

struct NeededElement {
  const char* factory;
  const char* package;
};

constexpr const char* kBase = "gstreamer1.0-plugins-base";
constexpr const char* kGood = "gstreamer1.0-plugins-good";
constexpr const char* kBad = "gstreamer1.0-plugins-bad";
constexpr const char* kPulse = "gstreamer1.0-pulseaudio";

// Threads of pipelines that have gone are kept for the next ones, but not for the usual 15 seconds.
constexpr guint kLongestIdleMs = 500;

constexpr std::array kNeededElements = {
    NeededElement{"appsrc", kBase},
    NeededElement{"appsink", kBase},
    NeededElement{"audioconvert", kBase},
    NeededElement{"audiomixer", kBase},
    NeededElement{"audioresample", kBase},
    NeededElement{"audiotestsrc", kBase},
    NeededElement{"videoconvert", kBase},
    NeededElement{"videotestsrc", kBase},
    NeededElement{"opusdec", kBase},
    NeededElement{"opusenc", kBase},
    NeededElement{"wavparse", kGood},
    NeededElement{"volume", kBase},
    NeededElement{"level", kGood},
    NeededElement{"rtpbin", kGood},
    NeededElement{"jpegdec", kGood},
    NeededElement{"rtpopusdepay", kGood},
    NeededElement{"rtpopuspay", kGood},
    NeededElement{"rtph264depay", kGood},
    NeededElement{"rtph264pay", kGood},
    NeededElement{"rtpvp8depay", kGood},
    NeededElement{"rtpvp8pay", kGood},
    NeededElement{"vp8dec", kGood},
    NeededElement{"vp8enc", kGood},
    NeededElement{"dtlssrtpdec", kBad},
    NeededElement{"h264parse", kBad},
    NeededElement{"openh264dec", kBad},
    NeededElement{"openh264enc", kBad},
    NeededElement{"srtpenc", kBad},
    NeededElement{"webrtcbin", kBad},
    NeededElement{"webrtcdsp", kBad},
    NeededElement{"nicesrc", "gstreamer1.0-nice"},
};

// Without these a call has no sound of its own, and goes on.
constexpr std::array kSoundElements = {NeededElement{"pulsesrc", kPulse},
                                       NeededElement{"pulsesink", kPulse}};

bool isThere(const char* factory) {
  const ObjectPtr<GstElementFactory> found(gst_element_factory_find(factory));
  return found != nullptr;
}

void initialise() {
  GError* raised = nullptr;
  // The first time; later calls do nothing.
  const bool isReady = gst_init_check(nullptr, nullptr, &raised) != FALSE;
  const ErrorPtr error(raised);
  g_thread_pool_set_max_idle_time(kLongestIdleMs);
  if (!isReady) throw CallFailure(kEngineFailed, "GStreamer does not start: " + textOf(error));
}

}  // namespace

std::vector<ElementState> examineElements() {
  initialise();
  std::vector<ElementState> states;
  const auto add = [&states](const auto& elements) {
    for (const auto& [factory, package] : elements) {
      states.push_back({factory, package, isThere(factory)});
    }
  };
  add(kNeededElements);
  add(kSoundElements);
  return states;
}

void requireElements() {
  initialise();
  for (const auto& [factory, package] : kNeededElements) {
    if (isThere(factory)) continue;
    throw CallFailure(kEngineFailed, std::string("GStreamer's element ") + factory +
                                         " is missing: install " + package);
  }
}

void warmUpElements() {
  requireElements();
  const PipelinePtr pipeline = makePipeline();
  const auto add = [&pipeline](GstElement* element) {
    gst_bin_add(GST_BIN(pipeline.get()), element);
    return element;
  };
  // The first dtlssrtpdec makes the certificate of all connections of the process, which takes half
  // a second of a processor.
  for (const auto& [factory, package] : kNeededElements) {
    const ObjectPtr<GstElement> loaded(GST_ELEMENT(gst_object_ref_sink(makeElement(factory))));
    ExitGuard::arm();
  }
  GstElement* const webrtc = add(makeElement("webrtcbin"));
  GstElement* const sender =
      add(makeBin("videotestsrc num-buffers=1 ! vp8enc deadline=1 threads=1 ! rtpvp8pay"));
  gst_element_link(sender, webrtc);
  gst_element_set_state(pipeline.get(), GST_STATE_PAUSED);
}

}  // namespace webrtc
