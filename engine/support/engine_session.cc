#include "engine/support/engine_session.h"

#include <chrono>

namespace support {

EngineSession::EngineSession(std::shared_ptr<const Clock> clock,
                             const std::shared_ptr<const Log>& log,
                             std::shared_ptr<Configuration> configuration,
                             std::shared_ptr<INotifyCallback> callback,
                             const EngineFactory& makeEngine)
    : context_{.log = log,
               .configuration = std::move(configuration),
               .notifier = Notifier(log),
               .streams = {},
               .loop = TaskLoop(std::move(clock), log)},
      engine_(makeEngine(context_)),
      statistics_(context_.loop, context_.statistics,
                  [this](Time window, tsl::MeetingStats& stats) {
                    engine_->collectStatistics(window, stats);
                  }) {
  context_.notifier.setCallback(std::move(callback));
}

void EngineSession::start() {
  // The configuration outlives the session.
  context_.configuration->observeIndex([weak = weak_from_this()](std::int32_t index) {
    if (const auto session = weak.lock()) session->setMaxQualityIndex(index);
  });
  context_.loop.post([this] {
    context_.log->write("initialised");
    context_.notifier.notify(&INotifyCallback::NotifyInitCompleted);
  });
  context_.loop.start(shared_from_this());
}

void EngineSession::stop() {
  const bool isOwnThread = context_.loop.isCurrentThread();
  context_.notifier.close();
  context_.loop.stop();
  // An operation of the engine may be what led here.
  if (!isOwnThread) engine_.reset();
  context_.streams.endAll();
  context_.log->write("de-initialised");
}

void EngineSession::configureStatistics(bool enable, std::uint16_t milliseconds) {
  context_.loop.post([this, enable, milliseconds] {
    if (enable) {
      statistics_.switchOn(std::chrono::milliseconds(milliseconds));
    } else {
      statistics_.switchOff();
    }
  });
}

void EngineSession::setMaxQualityIndex(std::int32_t index) {
  context_.loop.post([this, index] {
    context_.notifier.notify(&INotifyCallback::NotifyUpdateVOQualityIndex,
                             static_cast<VSPVoQualityIndex>(index));
    engine_->setMaxQualityIndex(index);
  });
}

}  // namespace support
