#include "engine/webrtc/pipeline.h"

#include <stdexcept>

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

}  // namespace webrtc
