#include "engine/webrtc/device_pipeline.h"

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

void DevicePipeline::start(GstElement* source, GstElement* sink) {
  gst_bin_add_many(GST_BIN(pipeline_.get()), source, sink, nullptr);
  const bool isStarted =
      gst_element_link(source, sink) &&
      gst_element_set_state(pipeline_.get(), GST_STATE_PLAYING) != GST_STATE_CHANGE_FAILURE;
  if (!isStarted) inbox_.poster()([this] { fail("the device does not start"); });
}

void DevicePipeline::fail(const std::string& reason) {
  if (std::exchange(hasFailed_, true)) return;
  // The handler may end this object.
  const Failed failed = failed_;
  failed(reason);
}

}  // namespace webrtc
