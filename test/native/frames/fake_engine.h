// An engine for tests of the stream manager: it has nothing but frame managers.

#ifndef TEST_NATIVE_FRAMES_FAKE_ENGINE_H_
#define TEST_NATIVE_FRAMES_FAKE_ENGINE_H_

#include <gmock/gmock.h>

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "tesselclient/tesselclient.h"

namespace test {

class FakeEngine : public TSLM::TSLMManager {
 public:
  MOCK_METHOD(std::shared_ptr<IFrameManager>, GetFrameManager, (const StreamKey&), (override));

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
};

class MockFrameManager : public IFrameManager {
 public:
  MOCK_METHOD(void, GetFrame, (std::uint32_t, VideoFrame&), (override));
  MOCK_METHOD(void, ReleaseFrame, (std::int64_t), (override));
  MOCK_METHOD(void, EnableFrameCapture, (), (override));
  MOCK_METHOD(void, DisableFrameCapture, (), (override));
  MOCK_METHOD(void, ReservedSlot6, (), (override));
  MOCK_METHOD(void, ReservedSlot7, (), (override));
  MOCK_METHOD(void, SetFrameReceiver, (std::shared_ptr<IFrameRecieveCallback>), (override));
};

// A frame without memory of its own.
class FakePicture : public QVXCommon::IVideoFrame {
 public:
  std::uint32_t frameWidth() const override { return 0; }
  std::uint32_t frameHeight() const override { return 0; }
  const std::uint8_t* frameBuffer() const override { return nullptr; }
  std::uint32_t frameValueA() const override { return 0; }
  std::uint32_t frameValueB() const override { return 0; }
  std::uint32_t frameValueC() const override { return 0; }
  std::uint64_t frameBufferSize() const override { return 0; }
};

class FakeReceiver : public IFrameRecieveCallback {
 public:
  void NotifyFrameArrived(std::shared_ptr<QVXCommon::IVideoFrame>, unsigned int,
                          const StreamKey&) override {}
};

}  // namespace test

#endif  // TEST_NATIVE_FRAMES_FAKE_ENGINE_H_
