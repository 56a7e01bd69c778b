#include "engine/support/engine_manager.h"

#include <utility>

namespace support {

EngineManager::EngineManager(const tsl::CreateParams& params, std::shared_ptr<const Clock> clock,
                             EngineFactory makeEngine)
    : clock_(std::move(clock)),
      makeEngine_(std::move(makeEngine)),
      log_(std::make_shared<const Log>(params.szLogPath, params.szLogPrefix)),
      configuration_(std::make_shared<Configuration>(log_)) {
  log_->write("engine created for " + params.szUserAgent + ", version " + params.szAppVersion);
  configuration_->load(params.szConfigPath);
}

EngineManager::~EngineManager() { EngineManager::DeInitialize(); }

std::shared_ptr<EngineSession> EngineManager::session() const {
  base::MutexLock lock(mutex_);
  return session_;
}

void EngineManager::RegisterNotifyCallback(std::shared_ptr<INotifyCallback> callback) {
  if (const auto session = this->session()) session->context().notifier.setCallback(callback);
  base::MutexLock lock(mutex_);
  callback_.swap(callback);
}

void EngineManager::Initialize() {
  base::MutexLock lock(mutex_);
  if (session_) return;
  const auto session =
      std::make_shared<EngineSession>(clock_, log_, configuration_, callback_, makeEngine_);
  session->start();
  session_ = session;
}

void EngineManager::DeInitialize() {
  std::shared_ptr<EngineSession> ended;
  {
    base::MutexLock lock(mutex_);
    ended.swap(session_);
  }
  if (ended) ended->stop();
}

void EngineManager::ConnectCall(const tsl::ConnectParams& params) {
  call(&Engine::connect, params);
}

void EngineManager::DisconnectCall() { call(&Engine::disconnect); }

void EngineManager::MuteLocalVideo(bool mute) { call(&Engine::muteLocalVideo, mute); }

void EngineManager::MuteLocalAudio(bool mute) { call(&Engine::muteLocalAudio, mute); }

void EngineManager::SetRemoteAudioMute(bool mute) { call(&Engine::muteRemoteAudio, mute); }

void EngineManager::EnableCameraCapture(bool enable) { call(&Engine::enableCamera, enable); }

void EngineManager::SetAudioDebug(bool enable) { call(&Engine::setAudioDebug, enable); }

void EngineManager::UpdateMediaStreamState(const tsl::MediaStreamState& state) {
  call(&Engine::updateMediaState, state);
}

void EngineManager::SetAudioInDevice(const tsl::AudioInDevice& device) {
  call(&Engine::selectMicrophone, device);
}

void EngineManager::SetAudioOutDevice(const tsl::AudioOutDevice& device) {
  call(&Engine::selectSpeaker, device);
}

void EngineManager::SetVideoDevice(const tsl::VideoDevice& device) {
  call(&Engine::selectCamera, device);
}

void EngineManager::SelectDevices(const tsl::DeviceSelectionParams& params) {
  call(&Engine::selectCamera, params.videoDevice);
  call(&Engine::selectMicrophone, params.audioInDevice);
  call(&Engine::selectSpeaker, params.audioOutDevice);
}

void EngineManager::SendAudioDeviceStats(const tsl::AudioDeviceStats& stats) {
  if (!session()) return;
  const auto state = [](bool isMuted, float volume) {
    return std::to_string(volume) + (isMuted ? ", muted" : "");
  };
  log_->write("speaker volume " + state(stats.isSpeakerMuted, stats.speakerVolume) +
              "; microphone volume " + state(stats.isMicMuted, stats.micVolume));
}

void EngineManager::StartPresentation(const tsl::ContentShareParams& params) {
  call(&Engine::startPresentation, params);
}

void EngineManager::StopPresentation() { call(&Engine::stopPresentation); }

void EngineManager::RequestContentShareToken() { call(&Engine::requestToken); }

void EngineManager::ReleaseContentShareToken() { call(&Engine::releaseToken); }

std::vector<tsl::ScreenMonitor> EngineManager::GetScreenMonitorDetails() {
  const auto session = this->session();
  return session ? session->context().monitors.get() : std::vector<tsl::ScreenMonitor>();
}

void EngineManager::UpdateVideoStreamsState(
    std::vector<tsl::VideoStreamInfo>& streams,
    std::vector<std::vector<tsl::VideoStreamConstraints>>& constraints) {
  call(&Engine::setLayout, streams, constraints);
}

void EngineManager::ConfigureMeetingStats(bool enable, unsigned short timerDuration) {
  if (const auto session = this->session()) session->configureStatistics(enable, timerDuration);
}

void EngineManager::GetMeetingStats(tsl::MeetingStats& stats) const {
  const auto session = this->session();
  stats = session ? session->context().statistics.get() : tsl::MeetingStats();
}

std::set<std::string> EngineManager::GetRequiredMeetingAttributes() {
  const auto session = this->session();
  return session ? session->context().requiredAttributes.get() : std::set<std::string>();
}

std::shared_ptr<ConfigData> EngineManager::GetConfigDataPtr() { return configuration_; }

void EngineManager::RegisterEvent(const std::string& eventName, unsigned int expires,
                                  const std::string& mimeType, const std::string& mimeSubType) {
  call(&Engine::registerEvent, eventName, expires, mimeType, mimeSubType);
}

void EngineManager::UnregisterEvent(const std::string& eventName) {
  call(&Engine::unregisterEvent, eventName);
}

std::shared_ptr<IFrameManager> EngineManager::GetFrameManager(const StreamKey& key) {
  const auto session = this->session();
  return session ? session->context().streams.find(key) : nullptr;
}

}  // namespace support
