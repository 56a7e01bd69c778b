#include "engine/embedded/engine.h"

#include <utility>

namespace embedded {
namespace {

// Empty when the plan names no clip.
std::shared_ptr<const Y4mClip> openClip(const MeetingPlan& plan) {
  if (plan.clipPath.empty()) return nullptr;
  try {
    return std::make_shared<const Y4mClip>(plan.clipPath);
  } catch (const ClipError& error) {
    const bool isUnreadable = error.kind() == ClipError::Kind::kUnreadable;
    throw JoinRefused(isUnreadable ? kClipUnreadable : kClipUnsupported, error.what());
  }
}

}  // namespace

Engine::Engine(std::shared_ptr<const Clock> clock, std::shared_ptr<Log> log,
               std::shared_ptr<FramePool> pool, std::shared_ptr<Configuration> configuration,
               std::shared_ptr<INotifyCallback> callback)
    : parts_{log, std::move(pool), Notifier(log), {}, TaskLoop(std::move(clock), log)},
      configuration_(std::move(configuration)),
      localVideo_(parts_, [this] { return meeting_ ? meeting_->localLevel() : 0; }) {
  parts_.notifier.setCallback(std::move(callback));
}

void Engine::start() {
  // The configuration outlives the engine.
  configuration_->observeIndex([weak = weak_from_this()](std::int32_t index) {
    if (const auto engine = weak.lock()) engine->applyQualityIndex(index);
  });
  parts_.loop.post([this] {
    parts_.log->write("initialised");
    parts_.notifier.notify(&INotifyCallback::NotifyInitCompleted);
  });
  parts_.loop.start(shared_from_this());
}

void Engine::stop() {
  parts_.notifier.close();
  parts_.loop.stop();
  parts_.streams.endAll();
  parts_.log->write("de-initialised");
}

std::shared_ptr<IFrameManager> Engine::frameManager(const StreamKey& key) const {
  return parts_.streams.find(key);
}

void Engine::connect(const tsl::ConnectParams& params) {
  parts_.loop.post([this, params] { join(params); });
}

void Engine::applyQualityIndex(std::int32_t index) {
  parts_.loop.post([this, index] {
    parts_.notifier.notify(&INotifyCallback::NotifyUpdateVOQualityIndex,
                           static_cast<VSPVoQualityIndex>(index));
  });
}

void Engine::join(const tsl::ConnectParams& params) {
  const int callId = ++lastCallId_;
  parts_.log->write("call " + std::to_string(callId) + " to " + params.uri);
  if (meeting_ && !meeting_->isOver()) {
    // The present call goes on; only the new one ends before it began.
    parts_.notifier.notify(&INotifyCallback::NotifyCallDisconnect, callId, "already in a call",
                           kAlreadyInACall);
    return;
  }
  try {
    MeetingPlan plan = parseMeetingUri(params.uri);
    auto clip = openClip(plan);
    meeting_ = std::make_unique<Meeting>(parts_, callId, std::move(plan), std::move(clip), params);
  } catch (const JoinRefused& refusal) {
    parts_.log->write(std::string("refused: ") + refusal.what());
    parts_.notifier.notify(&INotifyCallback::NotifyCallConnectionStatus, false);
    parts_.notifier.notify(&INotifyCallback::NotifyCallDisconnect, callId, refusal.what(),
                           refusal.code());
    return;
  }
  localVideo_.setMuted(params.mediaStreamState.outgoingVideoMuted);
  meeting_->join();
}

void Engine::disconnect() {
  parts_.loop.post([this] {
    if (meeting_) meeting_->leave();
  });
}

void Engine::muteLocalVideo(bool mute) {
  parts_.loop.post([this, mute] { setLocalVideoMuted(mute); });
}

void Engine::muteLocalAudio(bool mute) {
  parts_.loop.post([this, mute] { setLocalAudioMuted(mute); });
}

void Engine::enableCamera(bool enable) {
  parts_.loop.post([this, enable] { localVideo_.setCapturing(enable); });
}

void Engine::setLocalVideoMuted(bool muted) {
  localVideo_.setMuted(muted);
  parts_.notifier.notify(&INotifyCallback::NotifyMediaMuteState, MediaType::kVideo, muted);
}

void Engine::setLocalAudioMuted(bool muted) {
  if (meeting_) meeting_->setLocalAudioMuted(muted);
  parts_.notifier.notify(&INotifyCallback::NotifyMediaMuteState, MediaType::kAudio, muted);
}

}  // namespace embedded
