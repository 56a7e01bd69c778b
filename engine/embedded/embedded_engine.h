// The engine that simulates meetings.

#ifndef ENGINE_EMBEDDED_EMBEDDED_ENGINE_H_
#define ENGINE_EMBEDDED_EMBEDDED_ENGINE_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "engine/embedded/devices/local_media.h"
#include "engine/embedded/meeting/meeting.h"
#include "engine/embedded/streams/sent_stream.h"
#include "engine/support/engine.h"
#include "engine/support/event_subscriptions.h"
#include "engine/support/roster.h"
#include "engine/support/streams/frame_pool.h"
#include "tesselclient/tesselclient.h"

namespace embedded {

// Plays one meeting after the other, without network and devices. Belongs to the engine's thread.
class EmbeddedEngine final : public support::Engine {
 public:
  EmbeddedEngine(support::EngineContext& context, std::shared_ptr<support::FramePool> pool);
  EmbeddedEngine(const EmbeddedEngine&) = delete;
  EmbeddedEngine& operator=(const EmbeddedEngine&) = delete;

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
  bool isInCall() const { return meeting_ && meeting_->isJoined(); }
  void applyOutgoing(const tsl::MediaStreamState& state);
  void notifyShareStatus(ShareStatus status);

  support::EngineContext& context_;
  StreamMaker streams_;
  LocalMedia local_;
  std::unique_ptr<Meeting> meeting_;  // the present call or the last one
  support::EventSubscriptions subscriptions_;
  support::Roster roster_;
  int lastCallId_ = 0;
  bool isRemoteAudioMuted_ = false;
};

}  // namespace embedded

#endif  // ENGINE_EMBEDDED_EMBEDDED_ENGINE_H_
