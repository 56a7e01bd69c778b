#include "engine/webrtc/pipeline.h"

#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>

#include <stdexcept>
#include <utility>

namespace webrtc {

void StopPipeline::operator()(GstElement* pipeline) const {
  gst_element_set_state(pipeline, GST_STATE_NULL);
  gst_object_unref(pipeline);
}

PipelinePtr makePipeline() {
  PipelinePtr pipeline(GST_ELEMENT(gst_object_ref_sink(gst_pipeline_new(nullptr))));
  // The system's clock is the monotonic one, as the engine's.
  const ObjectPtr<GstClock> clock(gst_system_clock_obtain());
  gst_pipeline_use_clock(GST_PIPELINE(pipeline.get()), clock.get());
  gst_element_set_start_time(pipeline.get(), GST_CLOCK_TIME_NONE);
  gst_element_set_base_time(pipeline.get(), 0);
  return pipeline;
}

GstElement* makeElement(const char* factory, const char* name) {
  GstElement* const element = gst_element_factory_make(factory, name);
  if (!element) throw std::runtime_error(std::string("GStreamer has no element ") + factory);
  return element;
}

GstElement* makeBin(const std::string& description) {
  GError* raised = nullptr;
  GstElement* const bin = gst_parse_bin_from_description(description.c_str(), TRUE, &raised);
  const ErrorPtr error(raised);
  if (error) {
    if (bin) gst_object_unref(bin);
    throw std::runtime_error("GStreamer cannot make \"" + description + "\": " + error->message);
  }
  return bin;
}

void handleMessages(GstElement* pipeline, std::function<void(GstMessage*)> handler) {
  using Handler = Handed<void, GstMessage*>;
  const ObjectPtr<GstBus> bus(gst_element_get_bus(pipeline));
  gst_bus_set_sync_handler(
      bus.get(),
      [](GstBus*, GstMessage* message, gpointer data) {
        Handler::call(data, message);
        gst_message_unref(message);
        return GST_BUS_DROP;
      },
      new Handler(std::move(handler)), Handler::destroy);
}

std::string errorText(GstMessage* message) {
  GError* raised = nullptr;
  gst_message_parse_error(message, &raised, nullptr);
  const ErrorPtr error(raised);
  return std::string(GST_OBJECT_NAME(GST_MESSAGE_SRC(message))) + ": " + textOf(error);
}

void handleBuffers(GstPad* pad, std::function<void()> handler) {
  using Handler = Handed<void>;
  gst_pad_add_probe(
      pad, GST_PAD_PROBE_TYPE_BUFFER,
      [](GstPad*, GstPadProbeInfo*, gpointer data) {
        Handler::call(data);
        return GST_PAD_PROBE_OK;
      },
      new Handler(std::move(handler)), Handler::destroy);
}

void handleSamples(GstElement* sink, std::function<void(GstSample*)> handler) {
  using Handler = Handed<GstFlowReturn, GstAppSink*>;
  auto* const newSample = new Handler([handler = std::move(handler)](GstAppSink* from) {
    const SamplePtr sample(gst_app_sink_pull_sample(from));
    if (!sample) return GST_FLOW_EOS;
    handler(sample.get());
    return GST_FLOW_OK;
  });
  GstAppSinkCallbacks callbacks = {};
  callbacks.new_sample = [](GstAppSink* from, gpointer data) { return Handler::call(data, from); };
  gst_app_sink_set_callbacks(GST_APP_SINK(sink), &callbacks, newSample, Handler::destroy);
}

void push(GstSample* sample, GstElement* source) {
  gst_app_src_push_buffer(GST_APP_SRC(source), gst_buffer_ref(gst_sample_get_buffer(sample)));
}

void passOn(GstElement* sink, GstElement* source) {
  handleSamples(sink, [kept = std::shared_ptr<GstElement>(share(source))](GstSample* sample) {
    push(sample, kept.get());
  });
}

}  // namespace webrtc
