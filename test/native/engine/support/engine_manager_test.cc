#include "engine/support/engine_manager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <future>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "test/native/engine/support/manual_clock.h"
#include "test/native/engine/support/notification_recorder.h"

namespace support {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// The recorded calls of an engine, in order. Outlives the engine.
struct History {
  std::vector<std::string> calls;
  std::thread::id thread;
  std::function<void()> whenDisconnected = [] {};
  std::promise<void> deleted;
};

// Records the called operations.
class RecordingEngine final : public Engine {
 public:
  explicit RecordingEngine(History& history) : history_(history) {}
  ~RecordingEngine() override {
    add("deleted");
    history_.deleted.set_value();
  }

  void connect(const tsl::ConnectParams& params) override { add("connect " + params.uri); }
  void disconnect() override {
    add("disconnect");
    history_.whenDisconnected();
    add("disconnected");
  }
  void muteLocalVideo(bool mute) override { add("mute video", mute); }
  void muteLocalAudio(bool mute) override { add("mute audio", mute); }
  void muteRemoteAudio(bool mute) override { add("mute remote audio", mute); }
  void enableCamera(bool enable) override { add("camera", enable); }
  void setAudioDebug(bool enable) override { add("audio debug", enable); }
  void updateMediaState(const tsl::MediaStreamState& state) override {
    add("media state", state.incomingVideoEnabled);
  }
  void selectMicrophone(const tsl::AudioInDevice& device) override { add(device.id); }
  void selectSpeaker(const tsl::AudioOutDevice& device) override { add(device.id); }
  void selectCamera(const tsl::VideoDevice& device) override { add(device.id); }
  void startPresentation(const tsl::ContentShareParams& params) override {
    add("present " + std::to_string(params.windowId));
  }
  void stopPresentation() override { add("stop presenting"); }
  void requestToken() override { add("request token"); }
  void releaseToken() override { add("release token"); }
  void setLayout(
      const std::vector<tsl::VideoStreamInfo>& streams,
      const std::vector<std::vector<tsl::VideoStreamConstraints>>& constraints) override {
    add("layout " + std::to_string(streams.size()) + ' ' + std::to_string(constraints.size()));
  }
  void setMaxQualityIndex(std::int32_t index) override { add("index " + std::to_string(index)); }
  void registerEvent(const std::string& name, std::uint32_t expires, const std::string& mimeType,
                     const std::string& mimeSubType) override {
    add("register " + name + ' ' + std::to_string(expires) + ' ' + mimeType + '/' + mimeSubType);
  }
  void unregisterEvent(const std::string& name) override { add("unregister " + name); }
  void collectStatistics(Time window, tsl::MeetingStats& stats) override {
    stats.audio.transmitLevel = static_cast<double>(window.count()) / 1'000'000;
  }

 private:
  void add(std::string call) {
    history_.calls.push_back(std::move(call));
    history_.thread = std::this_thread::get_id();
  }
  void add(const std::string& call, bool value) { add(call + (value ? " on" : " off")); }

  History& history_;
};

class EngineManagerTest : public testing::Test {
 protected:
  void pass(Time span) { clock_->pass(span, manager_->session()->context().loop); }

  // Those since the last call, when all have been made.
  std::vector<std::string> takeCalls() {
    pass(Time(0));
    return std::exchange(history_.calls, {});
  }

  History history_;
  const std::shared_ptr<ManualClock> clock_ = std::make_shared<ManualClock>();
  const std::shared_ptr<NotificationRecorder> recorder_ = std::make_shared<NotificationRecorder>();
  std::unique_ptr<EngineManager> manager_ = std::make_unique<EngineManager>(
      tsl::CreateParams(), clock_,
      [this](EngineContext&) { return std::make_unique<RecordingEngine>(history_); });
};

TEST_F(EngineManagerTest, CallsEachOperationOnTheEnginesThreadInTheOrderOfTheCalls) {
  manager_->Initialize();
  tsl::ConnectParams call;
  call.uri = "here";
  manager_->ConnectCall(call);
  manager_->MuteLocalVideo(true);
  manager_->MuteLocalAudio(false);
  manager_->SetRemoteAudioMute(true);
  manager_->EnableCameraCapture(true);
  manager_->SetAudioDebug(true);
  manager_->UpdateMediaStreamState({.incomingVideoEnabled = true});
  manager_->SetAudioInDevice({"microphone", "", ""});
  manager_->SetAudioOutDevice({"speaker", "", ""});
  manager_->SetVideoDevice({"camera", ""});
  manager_->SelectDevices({{"c", ""}, {"m", "", ""}, {"s", "", ""}});
  EXPECT_THAT(takeCalls(),
              ElementsAre("connect here", "mute video on", "mute audio off", "mute remote audio on",
                          "camera on", "audio debug on", "media state on", "microphone", "speaker",
                          "camera", "c", "m", "s"));
  EXPECT_NE(history_.thread, std::this_thread::get_id());

  manager_->RequestContentShareToken();
  manager_->StartPresentation({.windowId = 7});
  manager_->StopPresentation();
  manager_->ReleaseContentShareToken();
  std::vector<tsl::VideoStreamInfo> streams(2);
  std::vector<std::vector<tsl::VideoStreamConstraints>> constraints(1);
  manager_->UpdateVideoStreamsState(streams, constraints);
  manager_->RegisterEvent("x", 9, "text", "plain");
  manager_->UnregisterEvent("y");
  manager_->DisconnectCall();
  EXPECT_THAT(takeCalls(), ElementsAre("request token", "present 7", "stop presenting",
                                       "release token", "layout 2 1", "register x 9 text/plain",
                                       "unregister y", "disconnect", "disconnected"));
}

TEST_F(EngineManagerTest, NotifiesAChangedQualityIndexAndTellsTheEngine) {
  manager_->RegisterNotifyCallback(recorder_);
  manager_->Initialize();
  manager_->GetConfigDataPtr()->update(R"({"maxVOQualityIndex": 2})");
  EXPECT_THAT(takeCalls(), ElementsAre("index 2"));
  EXPECT_THAT(recorder_->takeLines(), ElementsAre("initialised", "quality 2"));
}

TEST_F(EngineManagerTest, ReturnsPublishedValuesAtOnce) {
  manager_->Initialize();
  EngineContext& context = manager_->session()->context();
  context.monitors.set({{0, 0, 10, 20, 3}});
  context.requiredAttributes.set({"a"});
  const auto stream = std::make_shared<VideoStream>(StreamKey(TSLM_STREAM_REMOTE, 1), 5, nullptr);
  context.streams.add(stream);
  EXPECT_EQ(manager_->GetScreenMonitorDetails().at(0).engineValue, 3);
  EXPECT_THAT(manager_->GetRequiredMeetingAttributes(), ElementsAre("a"));
  EXPECT_EQ(manager_->GetFrameManager(stream->key()), stream);
}

TEST_F(EngineManagerTest, CollectsStatisticsInWindows) {
  manager_->Initialize();
  manager_->ConfigureMeetingStats(true, 200);
  pass(std::chrono::milliseconds(200));
  tsl::MeetingStats stats;
  manager_->GetMeetingStats(stats);
  EXPECT_EQ(stats.audio.transmitLevel, 200);
  manager_->ConfigureMeetingStats(false, 200);
  pass(Time(0));
  manager_->GetMeetingStats(stats);
  EXPECT_EQ(stats.audio.transmitLevel, 0);
}

TEST_F(EngineManagerTest, DropsOperationsWhileNoEngineRuns) {
  manager_->DisconnectCall();
  manager_->Initialize();
  EXPECT_THAT(takeCalls(), IsEmpty());
  manager_->DeInitialize();
  manager_->DisconnectCall();
  EXPECT_EQ(manager_->session(), nullptr);
  EXPECT_THAT(history_.calls, ElementsAre("deleted"));
}

TEST_F(EngineManagerTest, DeletesTheEngineBeforeDeInitializeReturns) {
  manager_->Initialize();
  // Another thread still uses the session.
  const auto session = manager_->session();
  manager_->DeInitialize();
  EXPECT_THAT(history_.calls, ElementsAre("deleted"));
}

TEST_F(EngineManagerTest, LetsAnOperationThatEndedTheEngineReturnFirst) {
  manager_->Initialize();
  history_.whenDisconnected = [this] { manager_.reset(); };
  manager_->DisconnectCall();
  history_.deleted.get_future().wait();
  EXPECT_THAT(history_.calls, ElementsAre("disconnect", "disconnected", "deleted"));
}

}  // namespace
}  // namespace support
