#include "engine/webrtc/speaker.h"

#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>

#include <span>
#include <string>
#include <utility>

#include "engine/webrtc/audio_level.h"
#include "engine/webrtc/opus_repair.h"

namespace webrtc {
namespace {

constexpr const char* kFormat = "audio/x-raw,format=S16LE,rate=48000,channels=2,layout=interleaved";

// How much later than expected audio may come and still be heard: the time for which the jitter
// buffer waits for a packet, the packet that the decoder holds back, and some for the way from
// there. The picture is about as late.
constexpr GstClockTime kJitter = 80 * GST_MSECOND;

// What is longer counts as several lost packets.
constexpr GstClockTime kLongestPacket = 40 * GST_MSECOND;

// A silent voice that is always there keeps the device running while nobody speaks.
std::string mixing() {
  return std::string("audiomixer name=mixer start-time-selection=first min-upstream-latency=") +
         std::to_string(kJitter) + " ! " + kFormat +
         " ! volume name=volume ! level interval=200000000 ! appsink name=mix sync=false "
         "max-buffers=50 drop=true "
         "enable-last-sample=false audiotestsrc is-live=true wave=silence samplesperbuffer=480 ! " +
         kFormat + " ! mixer.";
}

// The decoder holds each packet back until the next one: the repair data for a lost packet comes
// with the one that follows it.
constexpr const char* kDecoding =
    "rtpopusdepay ! opusdec name=decoder plc=true use-inband-fec=true ! level interval=200000000 ! "
    "audioconvert ! audioresample ! "
    "appsink name=sink sync=false max-buffers=50 drop=true enable-last-sample=false";

using DecoderProbe = Handed<GstPadProbeReturn, GstPadProbeInfo*>;

// The jitter buffer measures a lost packet's length by the arrival of those around it. The decoder
// knows it exactly, by that of the packet before, and uses that when it is told none: audio would
// be shifted otherwise, and repair data of another length not be used.
void omitLength(GstPadProbeInfo* info) {
  GstClockTime start = 0;
  GstClockTime length = 0;
  gst_event_parse_gap(GST_PAD_PROBE_INFO_EVENT(info), &start, &length);
  if (length > kLongestPacket) return;
  gst_event_unref(GST_PAD_PROBE_INFO_EVENT(info));
  info->data = gst_event_new_gap(start, GST_CLOCK_TIME_NONE);
}

bool carriesRepairData(GstBuffer* packet) {
  GstMapInfo mapped;
  if (!gst_buffer_map(packet, &mapped, GST_MAP_READ)) return false;
  const bool hasData = hasRepairData(std::span(mapped.data, mapped.size));
  gst_buffer_unmap(packet, &mapped);
  return hasData;
}

}  // namespace

// A mix is ready that much later than it is to be heard: the wait for late packets, and two pieces.
const char* const kMixedSource =
    "appsrc name=source is-live=true format=time max-time=1000000000 leaky-type=downstream "
    "min-latency=100000000 "
    "caps=audio/x-raw,format=S16LE,rate=48000,channels=2,layout=interleaved";

Speaker::Speaker() : pipeline_(makePipeline()) {
  GstElement* const bin = makeBin(mixing());
  mixer_.reset(gst_bin_get_by_name(GST_BIN(bin), "mixer"));
  const ObjectPtr<GstElement> sink(gst_bin_get_by_name(GST_BIN(bin), "mix"));
  handleSamples(sink.get(), [this](GstSample* sample) { passMixOn(sample); });
  handleMessages(pipeline_.get(), [this](GstMessage* message) {
    if (const auto level = levelOf(message)) level_ = *level;
  });
  gst_bin_add(GST_BIN(pipeline_.get()), bin);
  gst_element_set_state(pipeline_.get(), GST_STATE_PLAYING);
}

void Speaker::setOutput(ObjectPtr<GstElement> source) {
  base::MutexLock lock(mutex_);
  output_ = std::move(source);
}

unsigned Speaker::level() const {
  base::MutexLock lock(mutex_);
  return output_ ? level_.load() : 0;
}

void Speaker::passMixOn(GstSample* sample) {
  base::MutexLock lock(mutex_);
  if (output_) push(sample, output_.get());
}

std::unique_ptr<SpeakerInput> Speaker::addInput() {
  const ObjectPtr<GstObject> bin(gst_element_get_parent(mixer_.get()));
  return std::make_unique<SpeakerInput>(GST_BIN(bin.get()), mixer_.get());
}

void Speaker::setMuted(bool isMuted) {
  const ObjectPtr<GstElement> volume(gst_bin_get_by_name(GST_BIN(pipeline_.get()), "volume"));
  g_object_set(volume.get(), "mute", static_cast<gboolean>(isMuted), nullptr);
}

SpeakerInput::SpeakerInput(GstBin* pipeline, GstElement* mixer)
    : pipeline_(pipeline),
      mixer_(mixer),
      source_(GST_ELEMENT(gst_object_ref_sink(makeElement("appsrc")))),
      mixerPad_(gst_element_request_pad_simple(mixer, "sink_%u")) {
  const CapsPtr caps(gst_caps_from_string(kFormat));
  // Buffers keep the times at which they came through the network.
  g_object_set(source_.get(), "caps", caps.get(), "is-live", TRUE, "format", GST_FORMAT_TIME,
               "min-latency", static_cast<gint64>(kJitter), "max-time", GST_SECOND, "leaky-type",
               GST_APP_LEAKY_TYPE_DOWNSTREAM, nullptr);
  gst_bin_add(pipeline_, source_.get());
  const ObjectPtr<GstPad> pad(gst_element_get_static_pad(source_.get(), "src"));
  gst_pad_link(pad.get(), mixerPad_.get());
  gst_element_sync_state_with_parent(source_.get());
}

SpeakerInput::~SpeakerInput() {
  // First, so that the source cannot be waiting for the mixer.
  gst_element_release_request_pad(mixer_, mixerPad_.get());
  // A pipeline that is still about to start would start the source again.
  gst_element_set_locked_state(source_.get(), TRUE);
  gst_element_set_state(source_.get(), GST_STATE_NULL);
  gst_bin_remove(pipeline_, source_.get());
}

GstElement* SpeakerInput::makeDecoder() const {
  GstElement* const bin = makeBin(kDecoding);
  const ObjectPtr<GstElement> sink(gst_bin_get_by_name(GST_BIN(bin), "sink"));
  const ObjectPtr<GstElement> decoder(gst_bin_get_by_name(GST_BIN(bin), "decoder"));
  const ObjectPtr<GstPad> pad(gst_element_get_static_pad(decoder.get(), "sink"));
  const auto probe = [count = repairedPackets_, isLost = false](GstPadProbeInfo* info) mutable {
    if ((info->type & GST_PAD_PROBE_TYPE_BUFFER) != 0) {
      const bool wasLost = std::exchange(isLost, false);
      if (wasLost && carriesRepairData(GST_PAD_PROBE_INFO_BUFFER(info))) ++*count;
    } else if (GST_EVENT_TYPE(GST_PAD_PROBE_INFO_EVENT(info)) == GST_EVENT_GAP) {
      isLost = true;
      omitLength(info);
    }
    return GST_PAD_PROBE_OK;
  };
  gst_pad_add_probe(
      pad.get(), GstPadProbeType(GST_PAD_PROBE_TYPE_BUFFER | GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM),
      [](GstPad*, GstPadProbeInfo* info, gpointer data) { return DecoderProbe::call(data, info); },
      new DecoderProbe(probe), DecoderProbe::destroy);
  const CapsPtr caps(gst_caps_from_string(kFormat));
  gst_app_sink_set_caps(GST_APP_SINK(sink.get()), caps.get());
  passOn(sink.get(), source_.get());
  return bin;
}

}  // namespace webrtc
