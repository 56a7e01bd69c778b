#include "engine/embedded/embedded_manager.h"

#include <utility>

namespace embedded {

EmbeddedManager::EmbeddedManager(const tsl::CreateParams& params,
                                 std::shared_ptr<const support::Clock> clock,
                                 std::shared_ptr<support::FramePool> pool)
    : clock_(std::move(clock)),
      pool_(std::move(pool)),
      log_(std::make_shared<support::Log>(params.szLogPath, params.szLogPrefix)),
      configuration_(std::make_shared<support::Configuration>(log_)) {
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

void EmbeddedManager::SetRemoteAudioMute(bool mute) {
  if (const auto running = engine()) running->muteRemoteAudio(mute);
}

void EmbeddedManager::EnableCameraCapture(bool enable) {
  if (const auto running = engine()) running->enableCamera(enable);
}

void EmbeddedManager::SetAudioDebug(bool enable) {
  if (const auto running = engine()) running->setAudioDebug(enable);
}

void EmbeddedManager::UpdateMediaStreamState(const tsl::MediaStreamState& state) {
  if (const auto running = engine()) running->updateMediaState(state);
}

void EmbeddedManager::SetAudioInDevice(const tsl::AudioInDevice& device) {
  if (const auto running = engine()) running->selectMicrophone(device);
}

void EmbeddedManager::SetAudioOutDevice(const tsl::AudioOutDevice& device) {
  if (const auto running = engine()) running->selectSpeaker(device);
}

void EmbeddedManager::SetVideoDevice(const tsl::VideoDevice& device) {
  if (const auto running = engine()) running->selectCamera(device);
}

void EmbeddedManager::SelectDevices(const tsl::DeviceSelectionParams& params) {
  SetVideoDevice(params.videoDevice);
  SetAudioInDevice(params.audioInDevice);
  SetAudioOutDevice(params.audioOutDevice);
}

void EmbeddedManager::SendAudioDeviceStats(const tsl::AudioDeviceStats& stats) {
  if (const auto running = engine()) running->noteAudioDevices(stats);
}

void EmbeddedManager::StartPresentation(const tsl::ContentShareParams& params) {
  if (const auto running = engine()) running->startPresentation(params);
}

void EmbeddedManager::StopPresentation() {
  if (const auto running = engine()) running->stopPresentation();
}

void EmbeddedManager::RequestContentShareToken() {
  if (const auto running = engine()) running->requestToken();
}

void EmbeddedManager::ReleaseContentShareToken() {
  if (const auto running = engine()) running->releaseToken();
}

std::vector<tsl::ScreenMonitor> EmbeddedManager::GetScreenMonitorDetails() {
  const auto running = engine();
  return running ? running->monitors() : std::vector<tsl::ScreenMonitor>();
}

void EmbeddedManager::UpdateVideoStreamsState(
    std::vector<tsl::VideoStreamInfo>& streams,
    std::vector<std::vector<tsl::VideoStreamConstraints>>& constraints) {
  if (const auto running = engine()) running->setWishes(streams, constraints);
}

void EmbeddedManager::ConfigureMeetingStats(bool enable, unsigned short timerDuration) {
  if (const auto running = engine()) running->configureStatistics(enable, timerDuration);
}

void EmbeddedManager::GetMeetingStats(tsl::MeetingStats& stats) const {
  const auto running = engine();
  stats = running ? running->statistics() : tsl::MeetingStats();
}

std::set<std::string> EmbeddedManager::GetRequiredMeetingAttributes() {
  const auto running = engine();
  return running ? running->requiredAttributes() : std::set<std::string>();
}

std::shared_ptr<ConfigData> EmbeddedManager::GetConfigDataPtr() { return configuration_; }

void EmbeddedManager::RegisterEvent(const std::string& eventName, unsigned int expires,
                                    const std::string& mimeType, const std::string& mimeSubType) {
  if (const auto running = engine())
    running->registerEvent(eventName, expires, mimeType, mimeSubType);
}

void EmbeddedManager::UnregisterEvent(const std::string& eventName) {
  if (const auto running = engine()) running->unregisterEvent(eventName);
}

std::shared_ptr<IFrameManager> EmbeddedManager::GetFrameManager(const StreamKey& key) {
  const auto running = engine();
  return running ? running->frameManager(key) : nullptr;
}

}  // namespace embedded
