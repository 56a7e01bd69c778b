// Pipelines, and what they are put together from.

#ifndef ENGINE_WEBRTC_PIPELINE_H_
#define ENGINE_WEBRTC_PIPELINE_H_

#include <gst/gst.h>

#include <functional>
#include <memory>
#include <string>

#include "engine/webrtc/glib.h"

namespace webrtc {

// Stops a pipeline, which waits for its threads, before it goes.
struct StopPipeline {
  void operator()(GstElement* pipeline) const;
};
using PipelinePtr = std::unique_ptr<GstElement, StopPipeline>;

// An empty pipeline. Its timestamps are times of the engine's clock, so that buffers can pass from
// one pipeline to another.
PipelinePtr makePipeline();

// A new element, which belongs to whatever bin it is put into. Throws std::runtime_error when its
// plugin is missing.
GstElement* makeElement(const char* factory, const char* name = nullptr);

// What gst_parse_launch makes of `description`, as a bin with ghost pads for what is not linked.
GstElement* makeBin(const std::string& description);

// Calls `handler` for each message of the pipeline's elements, on whatever thread posts it, until
// the pipeline goes.
void handleMessages(GstElement* pipeline, std::function<void(GstMessage*)> handler);
// What an error message says.
std::string errorText(GstMessage* message);

// Calls `handler` for each buffer that flows through `pad`, on the thread of that, until the pad
// goes.
void handleBuffers(GstPad* pad, std::function<void()> handler);

// Calls `handler` for each sample that the appsink `sink` gets, on the sink's thread, until the
// sink goes. A sample for which it throws is lost.
void handleSamples(GstElement* sink, std::function<void(GstSample*)> handler);
// Puts the sample's buffer into the appsrc `source`.
void push(GstSample* sample, GstElement* source);
// Every buffer that the appsink `sink` gets goes on into the appsrc `source`, which is kept alive.
// The two may be in different pipelines.
void passOn(GstElement* sink, GstElement* source);

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_PIPELINE_H_
