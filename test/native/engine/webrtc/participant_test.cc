// A remote participant for whom no connection can be made.

#include "engine/webrtc/participant.h"

#include <gst/gst.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>

#include "engine/support/engine_manager.h"
#include "engine/support/streams/stream_keys.h"
#include "engine/webrtc/webrtc_engine.h"
#include "test/native/engine/support/manual_clock.h"
#include "test/native/engine/support/temporary_directory.h"
#include "test/native/engine/webrtc/broken_element.h"

namespace webrtc {
namespace {

using namespace std::chrono_literals;

std::size_t count(const std::string& text, const std::string& part) {
  std::size_t found = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
    ++found;
  }
  return found;
}

TEST(Participant, IsRequestedAgainWhenTheFirstConnectionCannotBeMade) {
  gst_init(nullptr, nullptr);
  ::setenv("PULSE_SERVER", "unix:/nowhere", 1);
  const support::TemporaryDirectory directory;
  tsl::CreateParams created;
  created.szLogPath = directory.path();
  const auto clock = std::make_shared<support::ManualClock>();
  const auto pool = std::make_shared<support::FramePool>(0);
  support::EngineManager manager(created, clock, [&](support::EngineContext& context) {
    return std::make_unique<WebrtcEngine>(context, pool);
  });
  manager.Initialize();
  support::EngineContext& context = manager.session()->context();
  const auto run = [&](const support::TaskLoop::Task& task) {
    context.loop.post(task);
    clock->pass(0s, context.loop);
  };
  const IceOptions ice;
  std::optional<JanusSession> session;
  std::optional<Speaker> speaker;
  std::optional<Participant> participant;
  run([&] {
    session.emplace(context.loop, WebSocketTarget{"ws://127.0.0.1:1/", "p", ""}, "", 0,
                    JanusSession::Handlers{.opened = [] {}, .ended = [](auto, const auto&) {}});
    speaker.emplace();
  });
  {
    const MissingElement missing("webrtcbin");
    run([&] {
      Feed feed;
      feed.id = "p1";
      participant.emplace(context, pool, *session, *speaker, ice, Json::object(), feed,
                          support::remoteStream(0), Incoming(), [] {});
    });
  }
  clock->pass(500ms, context.loop);
  run([&] {
    participant.reset();
    speaker.reset();
    session.reset();
  });
  manager.DeInitialize();
  const std::string log = support::TemporaryDirectory::read(directory.path() / "tesselclient.log");
  EXPECT_EQ(count(log, "participant 0 is not received: GStreamer has no element webrtcbin"), 1U);
  EXPECT_EQ(count(log, "participant 0 is requested again"), 1U);
}

}  // namespace
}  // namespace webrtc
