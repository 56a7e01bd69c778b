#include "engine/webrtc/device_pipeline.h"

#include <chrono>
#include <memory>
#include <system_error>
#include <thread>
#include <utility>

namespace webrtc {
namespace {

using namespace std::chrono_literals;

// Far longer than a server takes that answers, and shorter than anybody waits for the end of a
// call.
constexpr auto kLongestEnd = 1s;

}  // namespace

DevicePipeline::DevicePipeline(support::TaskLoop& loop, Ending ending, Failed failed,
                               Started started)
    : ending_(ending), failed_(std::move(failed)), started_(std::move(started)), inbox_(loop) {
  // What is posted is dropped once this object has gone; the rest of the handler may outlive it.
  handleMessages(parts_.pipeline.get(),
                 [this, post = inbox_.poster(), started = started_](GstMessage* message) {
                   if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
                     post([this, reason = errorText(message)] { fail(reason); });
                   } else if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS) {
                     post([this] { fail("the device has ended"); });
                   } else if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ASYNC_DONE && started) {
                     // A copy: the handler may end this object.
                     post([started] { started(); });
                   }
                 });
}

DevicePipeline::~DevicePipeline() {
  auto parts = std::make_shared<Parts>(std::move(parts_));
  if (ending_ == Ending::kComplete) {
    end(*parts);
    return;
  }
  std::packaged_task<void()> task([parts] { end(*parts); });
  const std::future<void> ended = task.get_future();
  try {
    std::thread(std::move(task)).detach();
    ended.wait_for(kLongestEnd);
  } catch (const std::system_error&) {
    // There is no other thread that could.
    end(*parts);
  }
}

void DevicePipeline::end(Parts& parts) {
  // A flush of its pad ends the wait of a source for its device, but one that comes before the wait
  // has no effect. An event for the element would itself wait for the change of state.
  constexpr auto kInterval = 10ms;
  if (parts.opening.valid()) {
    const ObjectPtr<GstPad> pad(gst_element_get_static_pad(parts.source.get(), "src"));
    while (parts.opening.wait_for(kInterval) != std::future_status::ready) {
      gst_pad_send_event(pad.get(), gst_event_new_flush_start());
    }
  }
  parts.pipeline.reset();
}

void DevicePipeline::start(GstElement* source, GstElement* sink) {
  gst_bin_add_many(GST_BIN(parts_.pipeline.get()), source, sink, nullptr);
  parts_.source = share(source);
  const bool isLinked = gst_element_link(source, sink) != FALSE;
  const auto open = [this, isLinked, pipeline = parts_.pipeline.get(), post = inbox_.poster()] {
    const bool isStarted =
        isLinked && gst_element_set_state(pipeline, GST_STATE_PLAYING) != GST_STATE_CHANGE_FAILURE;
    if (!isStarted) post([this] { fail("the device does not start"); });
  };
  parts_.opening = std::async(std::launch::async, open);
}

void DevicePipeline::fail(const std::string& reason) {
  if (std::exchange(hasFailed_, true)) return;
  // The handler may end this object.
  const Failed failed = failed_;
  failed(reason);
}

}  // namespace webrtc
