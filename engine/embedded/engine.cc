#include "engine/embedded/engine.h"

#include <utility>

namespace embedded {
namespace {

// Empty when the plan names no clip.
std::shared_ptr<const support::Y4mClip> openClip(const MeetingPlan& plan) {
  if (plan.clipPath.empty()) return nullptr;
  try {
    return std::make_shared<const support::Y4mClip>(plan.clipPath);
  } catch (const support::ClipError& error) {
    const bool isUnreadable = error.kind() == support::ClipError::Kind::kUnreadable;
    throw JoinRefused(isUnreadable ? kClipUnreadable : kClipUnsupported, error.what());
  }
}

}  // namespace

Engine::Engine(std::shared_ptr<const support::Clock> clock,
               const std::shared_ptr<support::Log>& log, std::shared_ptr<support::FramePool> pool,
               std::shared_ptr<support::Configuration> configuration,
               std::shared_ptr<INotifyCallback> callback)
    : parts_{.log = log,
             .pool = std::move(pool),
             .notifier = support::Notifier(log),
             .streams = {},
             .monitors = support::Published(usualMonitors()),
             .requiredAttributes = {},
             .statistics = {},
             .loop = support::TaskLoop(std::move(clock), log)},
      configuration_(std::move(configuration)),
      local_(parts_, [this] { return meeting_ ? meeting_->localLevel() : 0; }),
      subscriptions_(parts_.loop, parts_.notifier, parts_.log),
      statistics_(parts_.loop, parts_.statistics,
                  [this](support::Time window, auto& stats) { collect(window, stats); }) {
  parts_.notifier.setCallback(std::move(callback));
}

void Engine::start() {
  // The configuration outlives the engine.
  configuration_->observeIndex([weak = weak_from_this()](int index) {
    if (const auto engine = weak.lock()) engine->applyTopRung(index);
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

void Engine::connect(const tsl::ConnectParams& params) {
  tsl::ConnectParams kept = params;
  // There is no network, so nobody needs the servers and their passwords.
  kept.turnServers.clear();
  parts_.loop.post([this, kept = std::move(kept)] { join(kept); });
}

void Engine::disconnect() {
  parts_.loop.post([this] {
    if (meeting_) meeting_->leave();
  });
}

void Engine::muteLocalVideo(bool mute) {
  parts_.loop.post([this, mute] { local_.setVideoMuted(mute); });
}

void Engine::muteLocalAudio(bool mute) {
  parts_.loop.post([this, mute] { local_.setAudioMuted(mute); });
}

void Engine::muteRemoteAudio(bool mute) {
  parts_.loop.post([this, mute] { isRemoteAudioMuted_ = mute; });
}

void Engine::enableCamera(bool enable) {
  parts_.loop.post([this, enable] { local_.setCapturing(enable); });
}

void Engine::setAudioDebug(bool enable) {
  parts_.loop.post([this, enable] { local_.setDebugging(enable); });
}

void Engine::updateMediaState(const tsl::MediaStreamState& state) {
  parts_.loop.post([this, state] {
    applyOutgoing(state);
    if (meeting_) meeting_->setIncoming(incomingOf(state));
  });
}

void Engine::selectMicrophone(const tsl::AudioInDevice& device) {
  parts_.loop.post([this, id = device.id] { local_.selectMicrophone(id); });
}

void Engine::selectSpeaker(const tsl::AudioOutDevice& device) {
  parts_.loop.post([this, id = device.id] { local_.selectSpeaker(id); });
}

void Engine::selectCamera(const tsl::VideoDevice& device) {
  parts_.loop.post([this, device] { local_.selectCamera(device); });
}

void Engine::noteAudioDevices(const tsl::AudioDeviceStats& stats) {
  const auto state = [](bool isMuted, float volume) {
    return std::to_string(volume) + (isMuted ? ", muted" : "");
  };
  parts_.log->write("speaker volume " + state(stats.isSpeakerMuted, stats.speakerVolume) +
                    "; microphone volume " + state(stats.isMicMuted, stats.micVolume));
}

void Engine::startPresentation(const tsl::ContentShareParams& params) {
  parts_.loop.post([this, params] {
    if (isInCall()) {
      meeting_->content().start(params);
    } else {
      parts_.notifier.notify(&INotifyCallback::NotifyScreenShareStatus, ShareStatus::kDenied);
    }
  });
}

void Engine::stopPresentation() {
  parts_.loop.post([this] {
    if (isInCall()) meeting_->content().stop();
  });
}

void Engine::requestToken() {
  parts_.loop.post([this] {
    if (isInCall()) {
      meeting_->content().requestToken();
    } else {
      parts_.notifier.notify(&INotifyCallback::NotifyScreenShareStatus, ShareStatus::kTokenDenied);
    }
  });
}

void Engine::releaseToken() {
  parts_.loop.post([this] {
    if (isInCall()) meeting_->content().releaseToken();
  });
}

void Engine::setWishes(const std::vector<tsl::VideoStreamInfo>& streams,
                       const std::vector<std::vector<tsl::VideoStreamConstraints>>& constraints) {
  parts_.loop.post([this, streams, constraints] {
    if (meeting_) meeting_->setWishes(streams, constraints);
  });
}

void Engine::configureStatistics(bool enable, std::uint16_t milliseconds) {
  parts_.loop.post([this, enable, milliseconds] {
    if (enable) {
      statistics_.switchOn(std::chrono::milliseconds(milliseconds));
    } else {
      statistics_.switchOff();
    }
  });
}

void Engine::registerEvent(const std::string& name, std::uint32_t expires,
                           const std::string& mimeType, const std::string& mimeSubType) {
  parts_.loop.post([this, name, expires, mimeType, mimeSubType] {
    subscriptions_.add(name, expires, mimeType, mimeSubType);
  });
}

void Engine::unregisterEvent(const std::string& name) {
  parts_.loop.post([this, name] { subscriptions_.remove(name); });
}

std::shared_ptr<IFrameManager> Engine::frameManager(const StreamKey& key) const {
  return parts_.streams.find(key);
}

void Engine::applyTopRung(int rung) {
  parts_.loop.post([this, rung] {
    parts_.notifier.notify(&INotifyCallback::NotifyUpdateVOQualityIndex,
                           static_cast<VSPVoQualityIndex>(rung));
    if (meeting_) meeting_->setTopRung(rung);
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
    meeting_ = std::make_unique<Meeting>(parts_, local_, callId, std::move(plan), std::move(clip),
                                         params, configuration_->maxVOQualityIndex());
  } catch (const JoinRefused& refusal) {
    parts_.log->write(std::string("refused: ") + refusal.what());
    parts_.notifier.notify(&INotifyCallback::NotifyCallConnectionStatus, false);
    parts_.notifier.notify(&INotifyCallback::NotifyCallDisconnect, callId, refusal.what(),
                           refusal.code());
    return;
  }
  applyOutgoing(params.mediaStreamState);
  meeting_->join();
}

void Engine::applyOutgoing(const tsl::MediaStreamState& state) {
  if (state.outgoingVideoMuted != local_.isVideoMuted()) {
    local_.setVideoMuted(state.outgoingVideoMuted);
  }
  if (state.outgoingAudioMuted != local_.isAudioMuted()) {
    local_.setAudioMuted(state.outgoingAudioMuted);
  }
}

void Engine::collect(support::Time window, tsl::MeetingStats& stats) {
  // Also what was sent outside a call, so that it does not count for the call's first window.
  const auto localVideo = local_.meter().closeWindow(window);
  if (!isInCall()) return;
  meeting_->collect(window, localVideo, stats);
  if (!isRemoteAudioMuted_ && local_.sounds()) {
    stats.audio.outputLevel = meeting_->incomingLevel();
  }
}

}  // namespace embedded
