// The engine's interface, implemented by passing everything on to ScriptedEngine.

#include <atomic>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tesselclient/tesselclient.h"
#include "test/engine/scripted_engine.h"

namespace scripted {
namespace {

// Counts its owner as one of the process's live objects.
class LiveCount {
 public:
  explicit LiveCount(std::atomic<std::int64_t>& count) : count_(count) { ++count_; }
  ~LiveCount() { --count_; }
  LiveCount(const LiveCount&) = delete;
  LiveCount& operator=(const LiveCount&) = delete;

 private:
  std::atomic<std::int64_t>& count_;
};

class ScriptedConfigData final : public ConfigData {
 public:
  explicit ScriptedConfigData(std::int64_t engine) : engine_(engine) {}

  bool isVesperCapable() override {
    if (control_.received("isVesperCapable", {}, engine_)) return false;
    return control_.results().isVesperCapable;
  }
  std::int32_t maxVOQualityIndex() override {
    if (control_.received("maxVOQualityIndex", {}, engine_)) return 0;
    return control_.results().maxVOQualityIndex;
  }
  void update(const std::string& configText) override {
    control_.received("update", {named("configText", configText)}, engine_);
  }

 private:
  ScriptedEngine& control_ = ScriptedEngine::instance();
  LiveCount live_{control_.liveCounts.configurations};
  const std::int64_t engine_;
};

class ScriptedFrameManager final : public IFrameManager {
 public:
  ScriptedFrameManager(std::int64_t engine, std::shared_ptr<Stream> stream)
      : engine_(engine), stream_(std::move(stream)) {}

  void GetFrame(std::uint32_t frameId, VideoFrame& frame) override {
    if (received("GetFrame", {named("frameId", frameId)})) return;
    stream_->getFrame(frameId, frame);
  }
  void ReleaseFrame(std::int64_t frameId) override {
    received("ReleaseFrame", {named("frameId", frameId)});
  }
  void EnableFrameCapture() override { received("EnableFrameCapture", {}); }
  void DisableFrameCapture() override { received("DisableFrameCapture", {}); }
  void ReservedSlot6() override { received("ReservedSlot6", {}); }
  void ReservedSlot7() override { received("ReservedSlot7", {}); }
  void SetFrameReceiver(std::shared_ptr<IFrameRecieveCallback> receiver) override {
    received("SetFrameReceiver", {named("receiver", receiver)});
    stream_->setReceiver(std::move(receiver));
  }

 private:
  bool received(const char* operation, Record args) {
    args.insert(args.begin(), named("key", stream_->key()));
    return control_.received(operation, std::move(args), engine_);
  }

  ScriptedEngine& control_ = ScriptedEngine::instance();
  LiveCount live_{control_.liveCounts.frameManagers};
  const std::int64_t engine_;
  const std::shared_ptr<Stream> stream_;
};

class ScriptedManager final : public TSLM::TSLMManager {
 public:
  explicit ScriptedManager(std::int64_t number) : number_(number) {}
  ~ScriptedManager() override { received("~TSLMManager"); }
  ScriptedManager(const ScriptedManager&) = delete;
  ScriptedManager& operator=(const ScriptedManager&) = delete;

  void RegisterNotifyCallback(std::shared_ptr<INotifyCallback> callback) override {
    received("RegisterNotifyCallback", {named("callback", callback)});
    control_.registerCallback(number_, std::move(callback));
  }
  void Initialize() override {
    received("Initialize");
    control_.initialise(number_);
  }
  void DeInitialize() override { received("DeInitialize"); }

  void ConnectCall(const tsl::ConnectParams& params) override {
    received("ConnectCall", {named("params", params)});
  }
  void DisconnectCall() override { received("DisconnectCall"); }

  void MuteLocalVideo(bool mute) override { received("MuteLocalVideo", {named("mute", mute)}); }
  void MuteLocalAudio(bool mute) override { received("MuteLocalAudio", {named("mute", mute)}); }
  void SetRemoteAudioMute(bool mute) override {
    received("SetRemoteAudioMute", {named("mute", mute)});
  }
  void EnableCameraCapture(bool enable) override {
    received("EnableCameraCapture", {named("enable", enable)});
  }
  void SetAudioDebug(bool enable) override { received("SetAudioDebug", {named("enable", enable)}); }
  void UpdateMediaStreamState(const tsl::MediaStreamState& state) override {
    received("UpdateMediaStreamState", {named("state", state)});
  }
  void SetAudioInDevice(const tsl::AudioInDevice& device) override {
    received("SetAudioInDevice", {named("device", device)});
  }
  void SetAudioOutDevice(const tsl::AudioOutDevice& device) override {
    received("SetAudioOutDevice", {named("device", device)});
  }
  void SetVideoDevice(const tsl::VideoDevice& device) override {
    received("SetVideoDevice", {named("device", device)});
  }
  void SelectDevices(const tsl::DeviceSelectionParams& params) override {
    received("SelectDevices", {named("params", params)});
  }
  void SendAudioDeviceStats(const tsl::AudioDeviceStats& stats) override {
    received("SendAudioDeviceStats", {named("stats", stats)});
  }

  void StartPresentation(const tsl::ContentShareParams& params) override {
    received("StartPresentation", {named("params", params)});
  }
  void StopPresentation() override { received("StopPresentation"); }
  void RequestContentShareToken() override { received("RequestContentShareToken"); }
  void ReleaseContentShareToken() override { received("ReleaseContentShareToken"); }
  std::vector<tsl::ScreenMonitor> GetScreenMonitorDetails() override {
    if (received("GetScreenMonitorDetails")) return {};
    return control_.results().screenMonitors;
  }

  void UpdateVideoStreamsState(
      std::vector<tsl::VideoStreamInfo>& streams,
      std::vector<std::vector<tsl::VideoStreamConstraints>>& constraints) override {
    received("UpdateVideoStreamsState",
             {named("streams", streams), named("constraints", constraints)});
  }

  void ConfigureMeetingStats(bool enable, unsigned short timerDuration) override {
    received("ConfigureMeetingStats",
             {named("enable", enable), named("timerDuration", timerDuration)});
  }
  void GetMeetingStats(tsl::MeetingStats& stats) const override {
    if (received("GetMeetingStats")) return;
    stats = control_.results().meetingStats;
  }
  std::set<std::string> GetRequiredMeetingAttributes() override {
    if (received("GetRequiredMeetingAttributes")) return {};
    return control_.results().requiredMeetingAttributes;
  }

  std::shared_ptr<ConfigData> GetConfigDataPtr() override {
    if (received("GetConfigDataPtr")) return nullptr;
    return std::make_shared<ScriptedConfigData>(number_);
  }
  void RegisterEvent(const std::string& eventName, unsigned int expires,
                     const std::string& mimeType, const std::string& mimeSubType) override {
    received("RegisterEvent", {named("eventName", eventName), named("expires", expires),
                               named("mimeType", mimeType), named("mimeSubType", mimeSubType)});
  }
  void UnregisterEvent(const std::string& eventName) override {
    received("UnregisterEvent", {named("eventName", eventName)});
  }

  std::shared_ptr<IFrameManager> GetFrameManager(const StreamKey& key) override {
    if (received("GetFrameManager", {named("key", key)})) return nullptr;
    std::shared_ptr<Stream> stream = control_.streamWithFrameManager(key);
    if (stream == nullptr) return nullptr;
    return std::make_shared<ScriptedFrameManager>(number_, std::move(stream));
  }

 private:
  bool received(const char* operation, Record args = {}) const {
    return control_.received(operation, std::move(args), number_);
  }

  ScriptedEngine& control_ = ScriptedEngine::instance();
  LiveCount live_{control_.liveCounts.engines};
  const std::int64_t number_;
};

}  // namespace
}  // namespace scripted

TSLM::TSLMManager* TSLM::TSLMManager::CreateTSLMManager(const tsl::CreateParams& params) {
  auto& control = scripted::ScriptedEngine::instance();
  const std::int64_t number = control.nextEngineNumber();
  if (control.received("CreateTSLMManager", {scripted::named("params", params)}, number)) {
    return nullptr;
  }
  return new scripted::ScriptedManager(number);
}

void TSLM::TSLMManager::DestroyTSLMManager() {
  scripted::ScriptedEngine::instance().received("DestroyTSLMManager", {}, 0);
}
