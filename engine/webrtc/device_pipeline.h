// What runs on one device.

#ifndef ENGINE_WEBRTC_DEVICE_PIPELINE_H_
#define ENGINE_WEBRTC_DEVICE_PIPELINE_H_

#include <gst/gst.h>

#include <functional>
#include <future>
#include <string>

#include "engine/webrtc/glib.h"
#include "engine/webrtc/inbox.h"
#include "engine/webrtc/pipeline.h"

namespace webrtc {

// A pipeline that captures with one device, or plays on it. It is apart from every connection, so
// that nothing but the device is lost when the device vanishes. Belongs to the engine's thread.
class DevicePipeline {
 public:
  // Called once, on the engine's thread, when the device does not work or does not work any more.
  using Failed = std::function<void(std::string reason)>;
  // Called on the engine's thread when the device works. May be empty.
  using Started = std::function<void()>;

  // How it ends.
  enum class Ending {
    kComplete,  // waits for the pipeline's threads
    // The same, unless a server does not answer: then these are left behind for as long. Nothing of
    // theirs may use an object that does not belong to the pipeline.
    kPrompt,
  };

  DevicePipeline(support::TaskLoop& loop, Ending ending, Failed failed, Started started = nullptr);
  // Nothing is told any more.
  ~DevicePipeline();
  DevicePipeline(const DevicePipeline&) = delete;
  DevicePipeline& operator=(const DevicePipeline&) = delete;

  // Takes both elements, and has what comes out of `source` flow into `sink`. Called once. Does not
  // wait for the device: one that vanishes meanwhile may answer nothing for half a minute.
  void start(GstElement* source, GstElement* sink);

 private:
  struct Parts {
    PipelinePtr pipeline = makePipeline();
    ObjectPtr<GstElement> source = nullptr;
    std::future<void> opening = {};  // last: its thread uses the rest
  };

  static void end(Parts& parts);
  void fail(const std::string& reason);

  const Ending ending_;
  const Failed failed_;
  const Started started_;
  bool hasFailed_ = false;
  Inbox inbox_;
  Parts parts_;
};

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_DEVICE_PIPELINE_H_
