// One engine between Initialize and DeInitialize.

#ifndef ENGINE_EMBEDDED_ENGINE_H_
#define ENGINE_EMBEDDED_ENGINE_H_

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "engine/embedded/engine_parts.h"
#include "engine/embedded/local_media.h"
#include "engine/embedded/meeting.h"
#include "engine/support/configuration.h"
#include "engine/support/event_subscriptions.h"
#include "engine/support/statistics.h"
#include "tesselclient/tesselclient.h"

namespace embedded {

// The operations may be called from any thread: what they do happens on the engine's thread, in
// the order of the calls, and everything but `parts_` belongs to that thread. Owned by the facade
// and, while it runs, by its own thread.
class Engine : public std::enable_shared_from_this<Engine> {
 public:
  Engine(std::shared_ptr<const support::Clock> clock, const std::shared_ptr<support::Log>& log,
         std::shared_ptr<support::FramePool> pool,
         std::shared_ptr<support::Configuration> configuration,
         std::shared_ptr<INotifyCallback> callback);
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;

  // Starts the thread, which begins by notifying that initialisation is complete. Called once.
  void start();
  // Ends all threads; nothing is notified or delivered after it. Called once.
  void stop();

  // For whoever drives the clock.
  support::TaskLoop& loop() { return parts_.loop; }
  support::Notifier& notifier() { return parts_.notifier; }

  void connect(const tsl::ConnectParams& params);
  void disconnect();

  void muteLocalVideo(bool mute);
  void muteLocalAudio(bool mute);
  void muteRemoteAudio(bool mute);
  void enableCamera(bool enable);
  void setAudioDebug(bool enable);
  void updateMediaState(const tsl::MediaStreamState& state);
  void selectMicrophone(const tsl::AudioInDevice& device);
  void selectSpeaker(const tsl::AudioOutDevice& device);
  void selectCamera(const tsl::VideoDevice& device);
  void noteAudioDevices(const tsl::AudioDeviceStats& stats);

  void startPresentation(const tsl::ContentShareParams& params);
  void stopPresentation();
  void requestToken();
  void releaseToken();

  void setWishes(const std::vector<tsl::VideoStreamInfo>& streams,
                 const std::vector<std::vector<tsl::VideoStreamConstraints>>& constraints);
  void configureStatistics(bool enable, std::uint16_t milliseconds);
  void registerEvent(const std::string& name, std::uint32_t expires, const std::string& mimeType,
                     const std::string& mimeSubType);
  void unregisterEvent(const std::string& name);

  // Answered at once.
  std::shared_ptr<IFrameManager> frameManager(const StreamKey& key) const;
  std::vector<tsl::ScreenMonitor> monitors() const { return parts_.monitors.get(); }
  std::set<std::string> requiredAttributes() const { return parts_.requiredAttributes.get(); }
  tsl::MeetingStats statistics() const { return parts_.statistics.get(); }

 private:
  void applyTopRung(int rung);
  void join(const tsl::ConnectParams& params);
  void applyOutgoing(const tsl::MediaStreamState& state);
  bool isInCall() const { return meeting_ && meeting_->isJoined(); }
  void collect(support::Time window, tsl::MeetingStats& stats);

  EngineParts parts_;
  const std::shared_ptr<support::Configuration> configuration_;
  LocalMedia local_;
  std::unique_ptr<Meeting> meeting_;  // the present call or the last one
  support::EventSubscriptions subscriptions_;
  support::Statistics statistics_;
  int lastCallId_ = 0;
  bool isRemoteAudioMuted_ = false;
};

}  // namespace embedded

#endif  // ENGINE_EMBEDDED_ENGINE_H_
