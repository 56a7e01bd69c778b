// The engine's facade.

#ifndef TESSELCLIENT_TSLM_MANAGER_H_
#define TESSELCLIENT_TSLM_MANAGER_H_

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "tesselclient/notify_callback.h"
#include "tesselclient/records.h"
#include "tesselclient/types.h"
#include "tesselclient/video_frame.h"

// The engine's configuration, shared with its threads. All operations may be called from any
// thread.
//
// The order of the virtual operations is an ABI promise; test/native/engine/engine_abi_test.cc
// fixes it.
class TESSELCLIENT_API ConfigData {
 public:
  virtual ~ConfigData() = default;

  virtual bool isVesperCapable() = 0;
  virtual std::int32_t maxVOQualityIndex() = 0;
  // A text that the engine does not understand changes nothing.
  virtual void update(const std::string& configText) = 0;
};

namespace TSLM {

// One engine. Its owner calls it from one thread; outcomes come back as notifications on engine
// threads. Deleting it ends its threads; operations called after DeInitialize, or before
// Initialize, do nothing.
//
// The order of the virtual operations is an ABI promise; test/native/engine/engine_abi_test.cc
// fixes it.
class TESSELCLIENT_API TSLMManager {
 public:
  virtual ~TSLMManager() = default;

  // Makes an engine; the caller owns it. Defined by each engine library.
  static TSLMManager* CreateTSLMManager(const tsl::CreateParams& params);
  // Ends what all engines of the process share. It deletes no engine, and may be called more than
  // once. Defined by each engine library.
  static void DestroyTSLMManager();

  virtual void RegisterNotifyCallback(std::shared_ptr<INotifyCallback> callback) = 0;
  virtual void Initialize() = 0;
  virtual void DeInitialize() = 0;

  virtual void ConnectCall(const tsl::ConnectParams& params) = 0;
  virtual void DisconnectCall() = 0;

  virtual void MuteLocalVideo(bool mute) = 0;
  virtual void MuteLocalAudio(bool mute) = 0;
  virtual void SetRemoteAudioMute(bool mute) = 0;
  virtual void EnableCameraCapture(bool enable) = 0;
  virtual void SetAudioDebug(bool enable) = 0;
  virtual void UpdateMediaStreamState(const tsl::MediaStreamState& state) = 0;
  virtual void SetAudioInDevice(const tsl::AudioInDevice& device) = 0;
  virtual void SetAudioOutDevice(const tsl::AudioOutDevice& device) = 0;
  virtual void SetVideoDevice(const tsl::VideoDevice& device) = 0;
  virtual void SelectDevices(const tsl::DeviceSelectionParams& params) = 0;
  virtual void SendAudioDeviceStats(const tsl::AudioDeviceStats& stats) = 0;

  virtual void StartPresentation(const tsl::ContentShareParams& params) = 0;
  virtual void StopPresentation() = 0;
  virtual void RequestContentShareToken() = 0;
  virtual void ReleaseContentShareToken() = 0;
  virtual std::vector<tsl::ScreenMonitor> GetScreenMonitorDetails() = 0;

  // `constraints` holds one entry for each number of visible tiles, each one entry for each tile.
  virtual void UpdateVideoStreamsState(
      std::vector<tsl::VideoStreamInfo>& streams,
      std::vector<std::vector<tsl::VideoStreamConstraints>>& constraints) = 0;

  // `timerDuration` is in milliseconds.
  virtual void ConfigureMeetingStats(bool enable, unsigned short timerDuration) = 0;
  virtual void GetMeetingStats(tsl::MeetingStats& stats) const = 0;
  virtual std::set<std::string> GetRequiredMeetingAttributes() = 0;

  virtual std::shared_ptr<ConfigData> GetConfigDataPtr() = 0;
  // `expires` is in seconds.
  virtual void RegisterEvent(const std::string& eventName, unsigned int expires,
                             const std::string& mimeType, const std::string& mimeSubType) = 0;
  virtual void UnregisterEvent(const std::string& eventName) = 0;

  // Empty when the stream has none.
  virtual std::shared_ptr<IFrameManager> GetFrameManager(const StreamKey& key) = 0;
};

}  // namespace TSLM

#endif  // TESSELCLIENT_TSLM_MANAGER_H_
