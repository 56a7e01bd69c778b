// The facade of every engine of ours.

#ifndef ENGINE_SUPPORT_ENGINE_MANAGER_H_
#define ENGINE_SUPPORT_ENGINE_MANAGER_H_

#include <memory>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "base/mutex.h"
#include "engine/support/clock.h"
#include "engine/support/configuration.h"
#include "engine/support/engine.h"
#include "engine/support/engine_session.h"
#include "engine/support/log.h"
#include "tesselclient/tesselclient.h"

namespace support {

// Makes an engine at Initialize and ends it at DeInitialize. In between, each operation is called
// on the engine's thread, and what is asked is answered at once from what the engine has published;
// outside that time operations do nothing and answers are empty. Owned by whoever asked for it. All
// operations may be called from any thread, also from a notification or a frame receiver; so may
// the destructor, which ends the engine like DeInitialize.
class EngineManager final : public TSLM::TSLMManager {
 public:
  EngineManager(const tsl::CreateParams& params, std::shared_ptr<const Clock> clock,
                EngineFactory makeEngine);
  ~EngineManager() override;
  EngineManager(const EngineManager&) = delete;
  EngineManager& operator=(const EngineManager&) = delete;

  // Empty outside Initialize and DeInitialize.
  std::shared_ptr<EngineSession> session() const EXCLUDES(mutex_);

  void RegisterNotifyCallback(std::shared_ptr<INotifyCallback> callback) override EXCLUDES(mutex_);
  void Initialize() override EXCLUDES(mutex_);
  void DeInitialize() override EXCLUDES(mutex_);

  void ConnectCall(const tsl::ConnectParams& params) override;
  void DisconnectCall() override;

  void MuteLocalVideo(bool mute) override;
  void MuteLocalAudio(bool mute) override;
  void SetRemoteAudioMute(bool mute) override;
  void EnableCameraCapture(bool enable) override;
  void SetAudioDebug(bool enable) override;
  void UpdateMediaStreamState(const tsl::MediaStreamState& state) override;
  void SetAudioInDevice(const tsl::AudioInDevice& device) override;
  void SetAudioOutDevice(const tsl::AudioOutDevice& device) override;
  void SetVideoDevice(const tsl::VideoDevice& device) override;
  void SelectDevices(const tsl::DeviceSelectionParams& params) override;
  void SendAudioDeviceStats(const tsl::AudioDeviceStats& stats) override;

  void StartPresentation(const tsl::ContentShareParams& params) override;
  void StopPresentation() override;
  void RequestContentShareToken() override;
  void ReleaseContentShareToken() override;
  std::vector<tsl::ScreenMonitor> GetScreenMonitorDetails() override;

  void UpdateVideoStreamsState(
      std::vector<tsl::VideoStreamInfo>& streams,
      std::vector<std::vector<tsl::VideoStreamConstraints>>& constraints) override;

  void ConfigureMeetingStats(bool enable, unsigned short timerDuration) override;
  void GetMeetingStats(tsl::MeetingStats& stats) const override;
  std::set<std::string> GetRequiredMeetingAttributes() override;

  std::shared_ptr<ConfigData> GetConfigDataPtr() override;
  void RegisterEvent(const std::string& eventName, unsigned int expires,
                     const std::string& mimeType, const std::string& mimeSubType) override;
  void UnregisterEvent(const std::string& eventName) override;

  std::shared_ptr<IFrameManager> GetFrameManager(const StreamKey& key) override;

 private:
  // As EngineSession::call(); does nothing without a session.
  template <typename... Parameters>
  void call(void (Engine::*operation)(Parameters...),
            std::type_identity_t<Parameters>... arguments) const {
    if (const auto session = this->session()) session->call(operation, arguments...);
  }

  const std::shared_ptr<const Clock> clock_;
  const EngineFactory makeEngine_;
  const std::shared_ptr<const Log> log_;
  const std::shared_ptr<Configuration> configuration_;

  mutable base::Mutex mutex_;
  std::shared_ptr<INotifyCallback> callback_ GUARDED_BY(mutex_);
  std::shared_ptr<EngineSession> session_ GUARDED_BY(mutex_);
};

}  // namespace support

#endif  // ENGINE_SUPPORT_ENGINE_MANAGER_H_
