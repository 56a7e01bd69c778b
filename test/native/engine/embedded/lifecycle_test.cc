// The start and the end of engines.

#include <atomic>
#include <functional>
#include <future>
#include <latch>
#include <stdexcept>
#include <thread>

#include "engine/support/streams/stream_keys.h"
#include "test/native/engine/embedded/engine_test.h"

namespace embedded {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

using Manager = std::unique_ptr<TSLM::TSLMManager>;

tsl::ConnectParams demoCall() {
  tsl::ConnectParams params;
  params.uri = "tessel:demo";
  params.mediaStreamState.incomingVideoEnabled = true;
  return params;
}

// On the real clock.
Manager makeManager() { return Manager(TSLM::TSLMManager::CreateTSLMManager(tsl::CreateParams())); }

void callEverything(TSLM::TSLMManager& manager) {
  manager.ConnectCall(demoCall());
  manager.MuteLocalVideo(true);
  manager.MuteLocalAudio(true);
  manager.SetRemoteAudioMute(true);
  manager.EnableCameraCapture(true);
  manager.SetAudioDebug(true);
  manager.UpdateMediaStreamState({});
  manager.SetAudioInDevice({});
  manager.SetAudioOutDevice({});
  manager.SetVideoDevice({});
  manager.SelectDevices({});
  manager.SendAudioDeviceStats({});
  manager.RequestContentShareToken();
  manager.StartPresentation({});
  manager.StopPresentation();
  manager.ReleaseContentShareToken();
  manager.GetScreenMonitorDetails();
  std::vector<tsl::VideoStreamInfo> streams(1);
  std::vector<std::vector<tsl::VideoStreamConstraints>> constraints(1);
  manager.UpdateVideoStreamsState(streams, constraints);
  manager.ConfigureMeetingStats(true, 100);
  tsl::MeetingStats stats;
  manager.GetMeetingStats(stats);
  manager.GetRequiredMeetingAttributes();
  manager.GetConfigDataPtr()->update(R"({"maxVOQualityIndex": 1})");
  manager.RegisterEvent("x", 3600, "application", "json");
  manager.UnregisterEvent("x");
  manager.GetFrameManager(support::kLocalStream);
  manager.DisconnectCall();
}

// Runs a function at the first stream that is added.
class StreamTrigger final : public support::SilentCallback {
 public:
  void setAction(std::function<void()> action) { action_ = std::move(action); }
  void NotifyStreamAdded(StreamKey, unsigned) override {
    if (++added_ > 1) return;
    action_();
    done_.set_value();
  }
  void waitUntilDone() { done_.get_future().wait(); }
  int added() const { return added_; }

 private:
  std::function<void()> action_;
  std::atomic<int> added_ = 0;
  std::promise<void> done_;
};

TEST(Lifecycle, InitialisationIsNotifiedOnAThreadOfTheEngine) {
  class Witness final : public support::SilentCallback {
   public:
    void NotifyInitCompleted() override { thread.set_value(std::this_thread::get_id()); }
    std::promise<std::thread::id> thread;
  };
  const auto witness = std::make_shared<Witness>();
  const Manager manager = makeManager();
  manager->RegisterNotifyCallback(witness);
  manager->Initialize();
  EXPECT_NE(witness->thread.get_future().get(), std::this_thread::get_id());
}

TEST(Lifecycle, OperationsBeforeInitialiseAndAfterDeInitialiseDoNothing) {
  const auto recorder = std::make_shared<support::NotificationRecorder>();
  const Manager manager = makeManager();
  manager->RegisterNotifyCallback(recorder);
  callEverything(*manager);
  EXPECT_EQ(manager->GetFrameManager(support::kLocalStream), nullptr);
  manager->Initialize();
  manager->DeInitialize();
  recorder->takeLines();
  callEverything(*manager);
  EXPECT_EQ(manager->GetFrameManager(support::kLocalStream), nullptr);
  EXPECT_THAT(recorder->takeLines(), IsEmpty());
}

TEST(Lifecycle, DeletingTheFacadeEndsARunningEngine) {
  class Witness final : public support::SilentCallback {
   public:
    explicit Witness(const std::atomic<bool>& isOver) : isOver_(isOver) {}
    void NotifyMicLevel(unsigned) override {
      if (isOver_) lateCalls++;
      called_.count_down();
    }
    void waitUntilCalled() { called_.wait(); }
    std::atomic<int> lateCalls = 0;

   private:
    const std::atomic<bool>& isOver_;
    std::latch called_{3};
  };
  std::atomic<bool> isOver = false;
  const auto witness = std::make_shared<Witness>(isOver);
  Manager manager = makeManager();
  manager->RegisterNotifyCallback(witness);
  manager->Initialize();
  manager->EnableCameraCapture(true);
  manager->ConnectCall(demoCall());
  witness->waitUntilCalled();
  manager.reset();
  isOver = true;
  // Nobody but the test holds the callback: the engine is gone with all its threads.
  EXPECT_EQ(witness.use_count(), 1);
  EXPECT_EQ(witness->lateCalls, 0);
}

TEST(Lifecycle, ANotificationMayEndTheEngine) {
  const auto trigger = std::make_shared<StreamTrigger>();
  const Manager manager = makeManager();
  trigger->setAction([&] {
    manager->DeInitialize();
    manager->DeInitialize();
  });
  manager->RegisterNotifyCallback(trigger);
  manager->Initialize();
  manager->ConnectCall(demoCall());
  trigger->waitUntilDone();
  // The other participants of the meeting are not notified any more.
  EXPECT_EQ(trigger->added(), 1);
}

TEST(Lifecycle, ANotificationMayDeleteTheFacade) {
  const auto trigger = std::make_shared<StreamTrigger>();
  Manager manager = makeManager();
  trigger->setAction([&] { manager.reset(); });
  manager->RegisterNotifyCallback(trigger);
  manager->Initialize();
  manager->ConnectCall(demoCall());
  trigger->waitUntilDone();
  EXPECT_EQ(manager, nullptr);
}

TEST(Lifecycle, AFrameMayEndTheEngine) {
  class Ender final : public IFrameRecieveCallback {
   public:
    explicit Ender(TSLM::TSLMManager& manager) : manager_(manager) {}
    void NotifyFrameArrived(std::shared_ptr<QVXCommon::IVideoFrame>, unsigned,
                            const StreamKey&) override {
      manager_.DeInitialize();
      done.set_value();
    }
    std::promise<void> done;

   private:
    TSLM::TSLMManager& manager_;
  };
  const Manager manager = makeManager();
  const auto ender = std::make_shared<Ender>(*manager);
  manager->Initialize();
  manager->GetFrameManager(support::kLocalStream)->SetFrameReceiver(ender);
  manager->EnableCameraCapture(true);
  ender->done.get_future().wait();
  EXPECT_EQ(manager->GetFrameManager(support::kLocalStream), nullptr);
}

TEST(Lifecycle, DestroyTSLMManagerDoesNotAffectRunningEngines) {
  const auto trigger = std::make_shared<StreamTrigger>();
  trigger->setAction([] {});
  const Manager manager = makeManager();
  manager->RegisterNotifyCallback(trigger);
  manager->Initialize();
  TSLM::TSLMManager::DestroyTSLMManager();
  TSLM::TSLMManager::DestroyTSLMManager();
  manager->ConnectCall(demoCall());
  trigger->waitUntilDone();
}

TEST(Lifecycle, SeveralEnginesRunSideBySide) {
  const auto first = std::make_shared<StreamTrigger>();
  const auto second = std::make_shared<StreamTrigger>();
  Manager ended = makeManager();
  const Manager lasting = makeManager();
  for (const auto& [manager, trigger] : {std::pair(&*ended, first), std::pair(&*lasting, second)}) {
    trigger->setAction([] {});
    manager->RegisterNotifyCallback(trigger);
    manager->Initialize();
  }
  ended->ConnectCall(demoCall());
  first->waitUntilDone();
  ended.reset();
  lasting->ConnectCall(demoCall());
  second->waitUntilDone();
}

using LifecycleTest = EngineTest;

TEST_F(LifecycleTest, AnEngineMayBeInitialisedAgain) {
  connect("tessel:demo?participants=1");
  manager_->DeInitialize();
  manager_->DeInitialize();
  takeLines();
  manager_->Initialize();
  manager_->Initialize();
  connect("tessel:demo?participants=1");
  EXPECT_THAT(takeLines(), ElementsAre("initialised", "connected", "added remote 0"));
  EXPECT_EQ(frameOf(support::remoteStream(0)).frameId, 1U);
}

TEST_F(LifecycleTest, AFrameOutlivesItsEngine) {
  connect("tessel:demo?participants=1");
  const VideoFrame frame = frameOf(support::remoteStream(0));
  manager_->DeInitialize();
  EXPECT_EQ(codeOf(frame)->number, 1U);
}

TEST_F(LifecycleTest, ACallbackThatThrowsChangesNothing) {
  class Thrower final : public support::SilentCallback {
    void NotifyCallConnectionStatus(bool) override { throw std::runtime_error("no"); }
    void NotifyStreamAdded(StreamKey, unsigned) override { throw 1; }
  };
  manager_->RegisterNotifyCallback(std::make_shared<Thrower>());
  connect("tessel:demo?participants=2");
  EXPECT_EQ(frameOf(support::remoteStream(1)).frameId, 1U);
}

TEST_F(LifecycleTest, AnEngineWithoutACallbackRuns) {
  manager_->RegisterNotifyCallback(nullptr);
  connect("tessel:demo?participants=1");
  EXPECT_EQ(frameOf(support::remoteStream(0)).frameId, 1U);
}

TEST_F(LifecycleTest, NotificationsGoToTheCallbackThatWasRegisteredLast) {
  const auto other = std::make_shared<support::NotificationRecorder>();
  manager_->RegisterNotifyCallback(other);
  connect("tessel:demo?participants=0");
  EXPECT_THAT(takeLines(), IsEmpty());
  EXPECT_THAT(other->takeLines(), ElementsAre("connected"));
}

}  // namespace
}  // namespace embedded
