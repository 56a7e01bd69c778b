#include "engine/webrtc/webrtc_engine.h"

#include <gmock/gmock.h>
#include <gst/gst.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "engine/support/engine_manager.h"
#include "test/native/engine/support/manual_clock.h"
#include "test/native/engine/support/notification_recorder.h"

namespace webrtc {
namespace {

using support::Time;
using testing::ElementsAre;
using testing::StartsWith;

// An element without any property.
using BareElement = GstElement;
using BareElementClass = GstElementClass;
// NOLINTNEXTLINE: the macro's own code
G_DEFINE_TYPE(BareElement, bare_element, GST_TYPE_ELEMENT)
void bare_element_init(BareElement*) {}
void bare_element_class_init(BareElementClass* klass) {
  gst_element_class_set_static_metadata(klass, "bare", "Test", "Does nothing", "tessel");
}

// A bare element takes the place of one of GStreamer's while this object lives.
class BrokenElement {
 public:
  explicit BrokenElement(const char* name) : name_(name), working_(feature()) {
    gst_registry_remove_feature(gst_registry_get(), working_.get());
    gst_element_register(nullptr, name, GST_RANK_NONE, bare_element_get_type());
  }
  ~BrokenElement() {
    gst_registry_remove_feature(gst_registry_get(), feature().get());
    auto* const working = GST_PLUGIN_FEATURE(gst_object_ref(working_.get()));
    gst_registry_add_feature(gst_registry_get(), working);
  }
  BrokenElement(const BrokenElement&) = delete;
  BrokenElement& operator=(const BrokenElement&) = delete;

 private:
  ObjectPtr<GstPluginFeature> feature() const {
    return ObjectPtr<GstPluginFeature>(
        gst_registry_find_feature(gst_registry_get(), name_, GST_TYPE_ELEMENT_FACTORY));
  }

  const char* const name_;
  const ObjectPtr<GstPluginFeature> working_;
};

TEST(WebrtcEngine, EndsACallThatCannotBegin) {
  gst_init(nullptr, nullptr);
  ::setenv("PULSE_SERVER", "unix:/nowhere", 1);
  // It is there, as the engine finds before it joins.
  const BrokenElement broken("audiomixer");
  const auto clock = std::make_shared<support::ManualClock>();
  const auto recorder = std::make_shared<support::NotificationRecorder>();
  const auto pool = std::make_shared<support::FramePool>(0);
  support::EngineManager manager(tsl::CreateParams(), clock, [&](support::EngineContext& context) {
    return std::make_unique<WebrtcEngine>(context, pool);
  });
  manager.RegisterNotifyCallback(recorder);
  manager.Initialize();
  support::TaskLoop& loop = manager.session()->context().loop;
  clock->pass(Time(0), loop);
  recorder->takeLines();
  tsl::ConnectParams params;
  params.uri = "janus+ws://127.0.0.1:1/?room=r";
  // After a call that goes on the second one would be refused with another code.
  for (const char* const end : {"disconnect 1 500 ", "disconnect 2 500 "}) {
    manager.ConnectCall(params);
    clock->pass(Time(0), loop);
    auto lines = recorder->takeLines();
    std::erase_if(lines, [](const std::string& line) { return line.starts_with("mute"); });
    EXPECT_THAT(lines, ElementsAre("not connected", StartsWith(end)));
  }
  manager.DeInitialize();
}

}  // namespace
}  // namespace webrtc
