// An addon with bugs in functions that GStreamer calls on threads of its own, to prove that the
// sanitizers see those of the engine for real meetings, although GStreamer is built without them.

#include <napi.h>

#include <array>

#include "engine/webrtc/glib.h"
#include "engine/webrtc/pipeline.h"

namespace {

// Pushes a buffer through each of some pipelines, whose threads call `received` for it.
void receiveOnThreads(const std::function<void(GstBuffer*, GstPad*)>& received) {
  gst_init(nullptr, nullptr);
  std::array<webrtc::PipelinePtr, 4> pipelines;
  for (auto& pipeline : pipelines) {
    pipeline = webrtc::makePipeline();
    GstElement* const bin =
        webrtc::makeBin("audiotestsrc num-buffers=1 ! fakesink name=sink signal-handoffs=true");
    const webrtc::ObjectPtr<GstElement> sink(gst_bin_get_by_name(GST_BIN(bin), "sink"));
    webrtc::connect(sink.get(), "handoff", received);
    gst_bin_add(GST_BIN(pipeline.get()), bin);
  }
  for (auto& pipeline : pipelines) gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
  for (auto& pipeline : pipelines) {
    const webrtc::ObjectPtr<GstBus> bus(gst_element_get_bus(pipeline.get()));
    const webrtc::MessagePtr end(
        gst_bus_timed_pop_filtered(bus.get(), GST_CLOCK_TIME_NONE, GST_MESSAGE_EOS));
  }
}

void dataRace(const Napi::CallbackInfo&) {
  volatile int count = 0;
  receiveOnThreads([&count](GstBuffer*, GstPad*) { count = count + 1; });
}

void heapUseAfterFree(const Napi::CallbackInfo&) {
  int* volatile freed = new int(1);
  delete freed;
  receiveOnThreads([&freed](GstBuffer*, GstPad*) { *freed = 2; });
}

Napi::Object initialise(Napi::Env env, Napi::Object exports) {
  exports["dataRace"] = Napi::Function::New(env, dataRace);
  exports["heapUseAfterFree"] = Napi::Function::New(env, heapUseAfterFree);
  return exports;
}

NODE_API_MODULE(webrtc_canary, initialise)

}  // namespace
