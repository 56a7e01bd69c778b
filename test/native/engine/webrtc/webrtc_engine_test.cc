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
#include "test/native/engine/webrtc/broken_element.h"

namespace webrtc {
namespace {

using support::Time;
using testing::ElementsAre;
using testing::StartsWith;

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

TEST(WebrtcEngine, SaysWhichElementIsMissingAndWhichPackageHasIt) {
  gst_init(nullptr, nullptr);
  ::setenv("PULSE_SERVER", "unix:/nowhere", 1);
  const MissingElement missing("opusenc");
  const auto clock = std::make_shared<support::ManualClock>();
  const auto recorder = std::make_shared<support::NotificationRecorder>();
  const auto pool = std::make_shared<support::FramePool>(0);
  support::EngineManager manager(tsl::CreateParams(), clock, [&](support::EngineContext& context) {
    return std::make_unique<WebrtcEngine>(context, pool);
  });
  manager.RegisterNotifyCallback(recorder);
  manager.Initialize();
  tsl::ConnectParams params;
  params.uri = "janus+ws://127.0.0.1:1/?room=r";
  manager.ConnectCall(params);
  clock->pass(Time(0), manager.session()->context().loop);
  EXPECT_THAT(recorder->takeLines(),
              testing::IsSupersetOf({"not connected",
                                     "disconnect 1 500 GStreamer's element opusenc is missing: "
                                     "install gstreamer1.0-plugins-base"}));
  manager.DeInitialize();
}

}  // namespace
}  // namespace webrtc
