// The facade of the embedded engine.

#ifndef ENGINE_EMBEDDED_EMBEDDED_MANAGER_H_
#define ENGINE_EMBEDDED_EMBEDDED_MANAGER_H_

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "base/mutex.h"
#include "engine/embedded/engine.h"
#include "engine/support/configuration.h"
#include "tesselclient/tesselclient.h"

namespace embedded {

// Holds an engine between Initialize and DeInitialize and passes the operations on to it; outside
// that time they do nothing. Owned by whoever asked for it. All operations may be called from any
// thread, also from a notification or a frame receiver; so may the destructor, which ends the
// engine like DeInitialize.
class EmbeddedManager final : public TSLM::TSLMManager {
 public:
  EmbeddedManager(const tsl::CreateParams& params, std::shared_ptr<const support::Clock> clock,
                  std::shared_ptr<support::FramePool> pool);
  ~EmbeddedManager() override;
  EmbeddedManager(const EmbeddedManager&) = delete;
  EmbeddedManager& operator=(const EmbeddedManager&) = delete;

  // The running engine; empty outside Initialize and DeInitialize.
  std::shared_ptr<Engine> engine() const EXCLUDES(mutex_);

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
  const std::shared_ptr<const support::Clock> clock_;
  const std::shared_ptr<support::FramePool> pool_;
  const std::shared_ptr<support::Log> log_;
  const std::shared_ptr<support::Configuration> configuration_;

  mutable base::Mutex mutex_;
  std::shared_ptr<INotifyCallback> callback_ GUARDED_BY(mutex_);
  std::shared_ptr<Engine> engine_ GUARDED_BY(mutex_);
};

}  // namespace embedded

#endif  // ENGINE_EMBEDDED_EMBEDDED_MANAGER_H_
