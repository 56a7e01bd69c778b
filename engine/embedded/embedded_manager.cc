#include "engine/embedded/embedded_manager.h"

#include <utility>

namespace embedded {

EmbeddedManager::EmbeddedManager(const tsl::CreateParams& params,
                                 std::shared_ptr<const Clock> clock,
                                 std::shared_ptr<FramePool> pool)
    : clock_(std::move(clock)),
      pool_(std::move(pool)),
      log_(std::make_shared<Log>(params.szLogPath, params.szLogPrefix)),
      configuration_(std::make_shared<Configuration>(log_)) {
  log_->write("engine created for " + params.szUserAgent + ", version " + params.szAppVersion);
  configuration_->load(params.szConfigPath);
}

EmbeddedManager::~EmbeddedManager() { EmbeddedManager::DeInitialize(); }

std::shared_ptr<Engine> EmbeddedManager::engine() const {
  base::MutexLock lock(mutex_);
  return engine_;
}

void EmbeddedManager::RegisterNotifyCallback(std::shared_ptr<INotifyCallback> callback) {
  if (const auto running = engine()) running->notifier().setCallback(callback);
  base::MutexLock lock(mutex_);
  callback_.swap(callback);
}

void EmbeddedManager::Initialize() {
  base::MutexLock lock(mutex_);
  if (engine_) return;
  const auto engine = std::make_shared<Engine>(clock_, log_, pool_, configuration_, callback_);
  engine->start();
  engine_ = engine;
}

void EmbeddedManager::DeInitialize() {
  std::shared_ptr<Engine> ended;
  {
    base::MutexLock lock(mutex_);
    ended.swap(engine_);
  }
  if (ended) ended->stop();
}

void EmbeddedManager::ConnectCall(const tsl::ConnectParams& params) {
  if (const auto running = engine()) running->connect(params);
}

void EmbeddedManager::DisconnectCall() {
  if (const auto running = engine()) running->disconnect();
}

void EmbeddedManager::MuteLocalVideo(bool mute) {
  if (const auto running = engine()) running->muteLocalVideo(mute);
}

void EmbeddedManager::MuteLocalAudio(bool mute) {
  if (const auto running = engine()) running->muteLocalAudio(mute);
}

void EmbeddedManager::SetRemoteAudioMute(bool) {}

void EmbeddedManager::EnableCameraCapture(bool enable) {
  if (const auto running = engine()) running->enableCamera(enable);
}

void EmbeddedManager::SetAudioDebug(bool) {}
void EmbeddedManager::UpdateMediaStreamState(const tsl::MediaStreamState&) {}
void EmbeddedManager::SetAudioInDevice(const tsl::AudioInDevice&) {}
void EmbeddedManager::SetAudioOutDevice(const tsl::AudioOutDevice&) {}
void EmbeddedManager::SetVideoDevice(const tsl::VideoDevice&) {}
void EmbeddedManager::SelectDevices(const tsl::DeviceSelectionParams&) {}
void EmbeddedManager::SendAudioDeviceStats(const tsl::AudioDeviceStats&) {}
void EmbeddedManager::StartPresentation(const tsl::ContentShareParams&) {}
void EmbeddedManager::StopPresentation() {}
void EmbeddedManager::RequestContentShareToken() {}
void EmbeddedManager::ReleaseContentShareToken() {}
std::vector<tsl::ScreenMonitor> EmbeddedManager::GetScreenMonitorDetails() { return {}; }
void EmbeddedManager::UpdateVideoStreamsState(
    std::vector<tsl::VideoStreamInfo>&, std::vector<std::vector<tsl::VideoStreamConstraints>>&) {}
void EmbeddedManager::ConfigureMeetingStats(bool, unsigned short) {}
void EmbeddedManager::GetMeetingStats(tsl::MeetingStats&) const {}
std::set<std::string> EmbeddedManager::GetRequiredMeetingAttributes() { return {}; }

std::shared_ptr<ConfigData> EmbeddedManager::GetConfigDataPtr() { return configuration_; }

void EmbeddedManager::RegisterEvent(const std::string&, unsigned int, const std::string&,
                                    const std::string&) {}
void EmbeddedManager::UnregisterEvent(const std::string&) {}

std::shared_ptr<IFrameManager> EmbeddedManager::GetFrameManager(const StreamKey& key) {
  const auto running = engine();
  return running ? running->frameManager(key) : nullptr;
}

}  // namespace embedded
