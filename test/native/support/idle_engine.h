// An engine that does nothing, to be derived from by those that do one thing.

#ifndef TEST_NATIVE_SUPPORT_IDLE_ENGINE_H_
#define TEST_NATIVE_SUPPORT_IDLE_ENGINE_H_

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "tesselclient/tesselclient.h"

namespace test {

class IdleEngine : public TSLM::TSLMManager {
 public:
  void RegisterNotifyCallback(std::shared_ptr<INotifyCallback>) override {}
  void Initialize() override {}
  void DeInitialize() override {}
  void ConnectCall(const tsl::ConnectParams&) override {}
  void DisconnectCall() override {}
  void MuteLocalVideo(bool) override {}
  void MuteLocalAudio(bool) override {}
  void SetRemoteAudioMute(bool) override {}
  void EnableCameraCapture(bool) override {}
  void SetAudioDebug(bool) override {}
  void UpdateMediaStreamState(const tsl::MediaStreamState&) override {}
  void SetAudioInDevice(const tsl::AudioInDevice&) override {}
  void SetAudioOutDevice(const tsl::AudioOutDevice&) override {}
  void SetVideoDevice(const tsl::VideoDevice&) override {}
  void SelectDevices(const tsl::DeviceSelectionParams&) override {}
  void SendAudioDeviceStats(const tsl::AudioDeviceStats&) override {}
  void StartPresentation(const tsl::ContentShareParams&) override {}
  void StopPresentation() override {}
  void RequestContentShareToken() override {}
  void ReleaseContentShareToken() override {}
  std::vector<tsl::ScreenMonitor> GetScreenMonitorDetails() override { return {}; }
  void UpdateVideoStreamsState(std::vector<tsl::VideoStreamInfo>&,
                               std::vector<std::vector<tsl::VideoStreamConstraints>>&) override {}
  void ConfigureMeetingStats(bool, unsigned short) override {}
  void GetMeetingStats(tsl::MeetingStats&) const override {}
  std::set<std::string> GetRequiredMeetingAttributes() override { return {}; }
  std::shared_ptr<ConfigData> GetConfigDataPtr() override { return nullptr; }
  void RegisterEvent(const std::string&, unsigned int, const std::string&,
                     const std::string&) override {}
  void UnregisterEvent(const std::string&) override {}
  std::shared_ptr<IFrameManager> GetFrameManager(const StreamKey&) override { return nullptr; }
};

}  // namespace test

#endif  // TEST_NATIVE_SUPPORT_IDLE_ENGINE_H_
