// What an engine library implements behind the facade.

#ifndef ENGINE_SUPPORT_ENGINE_H_
#define ENGINE_SUPPORT_ENGINE_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "engine/support/clock.h"
#include "engine/support/configuration.h"
#include "engine/support/log.h"
#include "engine/support/notifier.h"
#include "engine/support/published.h"
#include "engine/support/streams/frame_pool.h"
#include "engine/support/streams/stream_table.h"
#include "engine/support/task_loop.h"
#include "tesselclient/records.h"

namespace support {

// What the facade has ready for an engine, and what it answers the application from. Outlives the
// engine. Each member says which threads may use it.
struct EngineContext {
  const std::shared_ptr<const Log> log;
  const std::shared_ptr<Configuration> configuration;
  Notifier notifier;
  StreamTable streams;
  // Answers of the facade.
  Published<std::vector<tsl::ScreenMonitor>> monitors = {};
  Published<std::set<std::string>> requiredAttributes = {};
  Published<tsl::MeetingStats> statistics = {};
  TaskLoop loop;  // the engine's thread
};

// An engine between Initialize and DeInitialize. Owned by an EngineSession. Every operation is
// called on the engine's thread, in the order of the application's calls; what an operation brings
// about is notified. The engine is made before its thread starts and deleted after the thread has
// ended; its destructor ends all threads that the engine started itself.
class Engine {
 public:
  virtual ~Engine() = default;

  virtual void connect(const tsl::ConnectParams& params) = 0;
  virtual void disconnect() = 0;

  virtual void muteLocalVideo(bool mute) = 0;
  virtual void muteLocalAudio(bool mute) = 0;
  virtual void muteRemoteAudio(bool mute) = 0;
  virtual void enableCamera(bool enable) = 0;
  virtual void setAudioDebug(bool enable) = 0;
  virtual void updateMediaState(const tsl::MediaStreamState& state) = 0;
  virtual void selectMicrophone(const tsl::AudioInDevice& device) = 0;
  virtual void selectSpeaker(const tsl::AudioOutDevice& device) = 0;
  virtual void selectCamera(const tsl::VideoDevice& device) = 0;

  virtual void startPresentation(const tsl::ContentShareParams& params) = 0;
  virtual void stopPresentation() = 0;
  virtual void requestToken() = 0;
  virtual void releaseToken() = 0;

  virtual void setLayout(
      const std::vector<tsl::VideoStreamInfo>& streams,
      const std::vector<std::vector<tsl::VideoStreamConstraints>>& constraints) = 0;
  // The configuration's maxVOQualityIndex has changed; that is already notified.
  virtual void setMaxQualityIndex(std::int32_t index) = 0;

  virtual void registerEvent(const std::string& name, std::uint32_t expires,
                             const std::string& mimeType, const std::string& mimeSubType) = 0;
  virtual void unregisterEvent(const std::string& name) = 0;

  // Fills in what was counted since the last call, in a window of this length; all but the load of
  // the processors.
  virtual void collectStatistics(Time window, tsl::MeetingStats& stats) = 0;
};

// Makes an engine, on the thread that initialises it.
using EngineFactory = std::function<std::unique_ptr<Engine>(EngineContext& context)>;

// The factory of the library's own engine. Each engine defines it. `pool` is shared by all engines
// of the process.
std::unique_ptr<Engine> makeEngine(EngineContext& context, std::shared_ptr<FramePool> pool);

}  // namespace support

#endif  // ENGINE_SUPPORT_ENGINE_H_
