// The engine for real meetings.

#ifndef ENGINE_WEBRTC_WEBRTC_ENGINE_H_
#define ENGINE_WEBRTC_WEBRTC_ENGINE_H_

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "engine/support/engine.h"
#include "engine/support/roster.h"
#include "engine/support/streams/frame_pool.h"
#include "engine/webrtc/call.h"
#include "engine/webrtc/devices.h"
#include "engine/webrtc/exit_guard.h"
#include "engine/webrtc/local_video.h"
#include "engine/webrtc/screens.h"
#include "tesselclient/tesselclient.h"

namespace webrtc {

// Joins one room of an SFU after the other. Belongs to the engine's thread.
class WebrtcEngine final : public support::Engine {
 public:
  WebrtcEngine(support::EngineContext& context, std::shared_ptr<support::FramePool> pool);
  ~WebrtcEngine() override;
  WebrtcEngine(const WebrtcEngine&) = delete;
  WebrtcEngine& operator=(const WebrtcEngine&) = delete;

  void connect(const tsl::ConnectParams& params) override;
  void disconnect() override;

  void muteLocalVideo(bool mute) override;
  void muteLocalAudio(bool mute) override;
  void muteRemoteAudio(bool mute) override;
  void enableCamera(bool enable) override;
  void setAudioDebug(bool enable) override;
  void updateMediaState(const tsl::MediaStreamState& state) override;
  void selectMicrophone(const tsl::AudioInDevice& device) override;
  void selectSpeaker(const tsl::AudioOutDevice& device) override;
  void selectCamera(const tsl::VideoDevice& device) override;

  void startPresentation(const tsl::ContentShareParams& params) override;
  void stopPresentation() override;
  void requestToken() override;
  void releaseToken() override;

  void setLayout(const std::vector<tsl::VideoStreamInfo>& streams,
                 const std::vector<std::vector<tsl::VideoStreamConstraints>>& constraints) override;
  void setMaxQualityIndex(std::int32_t index) override;

  void registerEvent(const std::string& name, std::uint32_t expires, const std::string& mimeType,
                     const std::string& mimeSubType) override;
  void unregisterEvent(const std::string& name) override;

  void collectStatistics(support::Time window, tsl::MeetingStats& stats) override;

 private:
  struct Mute {
    bool byApplication = false;
    bool byRoom = false;

    bool isMuted() const { return byApplication || byRoom; }
  };

  // What cannot be made ready is logged; a call then says what is missing.
  void warmUp();
  // Null outside a call.
  ContentRoom* content() { return call_ ? call_->content() : nullptr; }
  void deviceChanged(DeviceType type);
  void cameraChanged();
  void setMuted(bool isAudioMuted, bool isVideoMuted);
  // The room has muted or unmuted something of ours.
  void moderate(MediaType type, bool isMuted);
  void muteAndNotify(MediaType type);
  // Without a camera that captures the video counts as muted, so that the others clear its picture.
  void tellVideoMuted();
  std::vector<support::Person> people() const;
  void refuse(int callId, const CallFailure& failure);

  support::EngineContext& context_;
  const std::shared_ptr<support::FramePool> pool_;
  Devices devices_;
  Screens screens_;
  LocalVideo localVideo_;
  std::map<MediaType, Mute> mutes_;
  bool isRemoteAudioMuted_ = false;
  bool isAudioDebugged_ = false;
  int lastCallId_ = 0;
  std::unique_ptr<Call> call_;  // the present call or the last one
  support::Roster roster_;
  bool isEnding_ = false;      // the process exits
  const ExitGuard exitGuard_;  // last: it uses the rest
};

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_WEBRTC_ENGINE_H_
