// One engine between Initialize and DeInitialize.

#ifndef ENGINE_EMBEDDED_ENGINE_H_
#define ENGINE_EMBEDDED_ENGINE_H_

#include <memory>
#include <optional>
#include <string>

#include "engine/embedded/configuration.h"
#include "engine/embedded/engine_parts.h"
#include "engine/embedded/local_video.h"
#include "engine/embedded/meeting.h"
#include "tesselclient/tesselclient.h"

namespace embedded {

// The operations may be called from any thread: what they do happens on the engine's thread, in
// the order of the calls, and everything but `parts_` belongs to that thread. Owned by the facade
// and, while it runs, by its own thread.
class Engine : public std::enable_shared_from_this<Engine> {
 public:
  Engine(std::shared_ptr<const Clock> clock, std::shared_ptr<Log> log,
         std::shared_ptr<FramePool> pool, std::shared_ptr<Configuration> configuration,
         std::shared_ptr<INotifyCallback> callback);
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;

  // Starts the thread, which begins by notifying that initialisation is complete. Called once.
  void start();
  // Ends all threads; nothing is notified or delivered after it. Called once.
  void stop();

  // For whoever drives the clock.
  TaskLoop& loop() { return parts_.loop; }
  Notifier& notifier() { return parts_.notifier; }
  std::shared_ptr<IFrameManager> frameManager(const StreamKey& key) const;

  void connect(const tsl::ConnectParams& params);
  void disconnect();
  void muteLocalVideo(bool mute);
  void muteLocalAudio(bool mute);
  void enableCamera(bool enable);

 private:
  void applyQualityIndex(std::int32_t index);
  void join(const tsl::ConnectParams& params);
  void setLocalVideoMuted(bool muted);
  void setLocalAudioMuted(bool muted);

  EngineParts parts_;
  const std::shared_ptr<Configuration> configuration_;
  std::unique_ptr<Meeting> meeting_;  // the present call or the last one
  LocalVideo localVideo_;
  int lastCallId_ = 0;
};

}  // namespace embedded

#endif  // ENGINE_EMBEDDED_ENGINE_H_
