// An engine with its thread.

#ifndef ENGINE_SUPPORT_ENGINE_SESSION_H_
#define ENGINE_SUPPORT_ENGINE_SESSION_H_

#include <cstdint>
#include <memory>
#include <type_traits>
#include <utility>

#include "engine/support/engine.h"
#include "engine/support/statistics.h"
#include "tesselclient/tesselclient.h"

namespace support {

// What there is between Initialize and DeInitialize. Owned by the facade and, while it runs, by the
// engine's thread. start() and stop() belong to the facade; all other operations may be called from
// any thread.
class EngineSession : public std::enable_shared_from_this<EngineSession> {
 public:
  EngineSession(std::shared_ptr<const Clock> clock, const std::shared_ptr<const Log>& log,
                std::shared_ptr<Configuration> configuration,
                std::shared_ptr<INotifyCallback> callback, const EngineFactory& makeEngine);
  EngineSession(const EngineSession&) = delete;
  EngineSession& operator=(const EngineSession&) = delete;

  // Starts the thread, which begins by notifying that initialisation is complete. Called once.
  void start();
  // Ends all threads; nothing is notified or delivered after it. Called once. On the engine's own
  // thread, from a notification, the engine is deleted only when that thread ends.
  void stop();

  EngineContext& context() { return context_; }

  // Has the engine's thread call an operation of the engine, for example call(&Engine::connect,
  // params). Dropped when the session was stopped.
  template <typename... Parameters>
  void call(void (Engine::*operation)(Parameters...),
            std::type_identity_t<std::decay_t<Parameters>>... arguments) {
    context_.loop.post(
        [this, operation, ... kept = std::move(arguments)] { ((*engine_).*operation)(kept...); });
  }
  void configureStatistics(bool enable, std::uint16_t milliseconds);

 private:
  void setMaxQualityIndex(std::int32_t index);

  EngineContext context_;
  // Belong to the engine's thread.
  std::unique_ptr<Engine> engine_;
  Statistics statistics_;
};

}  // namespace support

#endif  // ENGINE_SUPPORT_ENGINE_SESSION_H_
