#include "engine/webrtc/device_pipeline.h"

#include <chrono>
#include <utility>

namespace webrtc {

DevicePipeline::DevicePipeline(support::TaskLoop& loop, Failed failed)
    : failed_(std::move(failed)), inbox_(loop), pipeline_(makePipeline()) {
  handleMessages(pipeline_.get(), [this, post = inbox_.poster()](GstMessage* message) {
    if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
      post([this, reason = errorText(message)] { fail(reason); });
    } else if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS) {
      post([this] { fail("the device has ended"); });
    }
  });
}

DevicePipeline::~DevicePipeline() {
  // A flush of its pad ends the wait of a source for its device, but one that comes before the wait
  // has no effect. An event for the element would itself wait for the change of state.
  constexpr auto kInterval = std::chrono::milliseconds(10);
  if (!opening_.valid()) return;
  const ObjectPtr<GstPad> pad(gst_element_get_static_pad(source_.get(), "src"));
  while (opening_.wait_for(kInterval) != std::future_status::ready) {
    gst_pad_send_event(pad.get(), gst_event_new_flush_start());
  }
}

void DevicePipeline::start(GstElement* source, GstElement* sink) {
  gst_bin_add_many(GST_BIN(pipeline_.get()), source, sink, nullptr);
  source_ = share(source);
  const bool isLinked = gst_element_link(source, sink) != FALSE;
  opening_ = std::async(std::launch::async, [this, isLinked, post = inbox_.poster()] {
    const bool isStarted = isLinked && gst_element_set_state(pipeline_.get(), GST_STATE_PLAYING) !=
                                           GST_STATE_CHANGE_FAILURE;
    if (!isStarted) post([this] { fail("the device does not start"); });
  });
}

void DevicePipeline::fail(const std::string& reason) {
  if (std::exchange(hasFailed_, true)) return;
  // The handler may end this object.
  const Failed failed = failed_;
  failed(reason);
}

}  // namespace webrtc
