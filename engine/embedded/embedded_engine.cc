#include "engine/embedded/embedded_engine.h"

#include <utility>

#include "engine/embedded/meeting/meeting_uri.h"

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

EmbeddedEngine::EmbeddedEngine(support::EngineContext& context,
                               std::shared_ptr<support::FramePool> pool)
    : context_(context),
      streams_(context.loop, context.streams, context.notifier, context.log, std::move(pool)),
      local_(streams_, context.notifier, context.log,
             [this] { return meeting_ ? meeting_->localLevel() : 0; }),
      subscriptions_(context.loop, context.notifier, context.log),
      roster_(context.loop, context.notifier,
              [this] { return meeting_ ? meeting_->people() : std::vector<support::Person>(); }) {
  context_.monitors.set(usualMonitors());
}

void EmbeddedEngine::connect(const tsl::ConnectParams& params) {
  const int callId = ++lastCallId_;
  if (meeting_ && !meeting_->isOver()) {
    // The present call goes on; only the new one ends before it began.
    context_.notifier.notify(&INotifyCallback::NotifyCallDisconnect, callId, "already in a call",
                             kAlreadyInACall);
    return;
  }
  try {
    MeetingPlan plan = parseMeetingUri(params.uri);
    // Only now: a uri of another kind may hold secrets.
    context_.log->write("call " + std::to_string(callId) + " to " + params.uri);
    auto clip = openClip(plan);
    meeting_ = std::make_unique<Meeting>(context_, streams_, local_, callId, std::move(plan),
                                         std::move(clip), params, [this] { roster_.update(); });
  } catch (const JoinRefused& refusal) {
    context_.log->write(std::string("refused: ") + refusal.what());
    context_.notifier.notify(&INotifyCallback::NotifyCallConnectionStatus, false);
    context_.notifier.notify(&INotifyCallback::NotifyCallDisconnect, callId, refusal.what(),
                             refusal.code());
    return;
  }
  applyOutgoing(params.mediaStreamState);
  meeting_->join();
}

void EmbeddedEngine::disconnect() {
  if (meeting_) meeting_->leave();
}

void EmbeddedEngine::muteLocalVideo(bool mute) {
  local_.setVideoMuted(mute);
  roster_.update();
}

void EmbeddedEngine::muteLocalAudio(bool mute) {
  local_.setAudioMuted(mute);
  roster_.update();
}

void EmbeddedEngine::muteRemoteAudio(bool mute) { isRemoteAudioMuted_ = mute; }

void EmbeddedEngine::enableCamera(bool enable) { local_.setCapturing(enable); }

void EmbeddedEngine::setAudioDebug(bool enable) { local_.setDebugging(enable); }

void EmbeddedEngine::updateMediaState(const tsl::MediaStreamState& state) {
  applyOutgoing(state);
  if (meeting_) meeting_->setIncoming(incomingOf(state));
  roster_.update();
}

void EmbeddedEngine::selectMicrophone(const tsl::AudioInDevice& device) {
  local_.selectMicrophone(device.id);
}

void EmbeddedEngine::selectSpeaker(const tsl::AudioOutDevice& device) {
  local_.selectSpeaker(device.id);
}

void EmbeddedEngine::selectCamera(const tsl::VideoDevice& device) { local_.selectCamera(device); }

void EmbeddedEngine::startPresentation(const tsl::ContentShareParams& params) {
  if (isInCall()) {
    meeting_->content().start(params);
  } else {
    notifyShareStatus(ShareStatus::kDenied);
  }
  roster_.update();
}

void EmbeddedEngine::stopPresentation() {
  if (isInCall()) meeting_->content().stop();
  roster_.update();
}

void EmbeddedEngine::requestToken() {
  if (isInCall()) {
    meeting_->content().requestToken();
  } else {
    notifyShareStatus(ShareStatus::kTokenDenied);
  }
}

void EmbeddedEngine::releaseToken() {
  if (isInCall()) meeting_->content().releaseToken();
  roster_.update();
}

void EmbeddedEngine::setLayout(
    const std::vector<tsl::VideoStreamInfo>& streams,
    const std::vector<std::vector<tsl::VideoStreamConstraints>>& constraints) {
  if (meeting_) meeting_->setLayout(streams, constraints);
}

void EmbeddedEngine::setMaxQualityIndex(std::int32_t index) {
  if (meeting_) meeting_->setTopRung(index);
}

void EmbeddedEngine::registerEvent(const std::string& name, std::uint32_t expires,
                                   const std::string& mimeType, const std::string& mimeSubType) {
  unregisterEvent(name);
  if (support::Roster::isRequested(name, mimeType, mimeSubType)) {
    roster_.subscribe(expires);
  } else {
    subscriptions_.add(name, expires, mimeType, mimeSubType);
  }
}

void EmbeddedEngine::unregisterEvent(const std::string& name) {
  subscriptions_.remove(name);
  if (name == support::Roster::kEventName) roster_.unsubscribe();
}

void EmbeddedEngine::collectStatistics(support::Time window, tsl::MeetingStats& stats) {
  // Also what was sent outside a call, so that it does not count for the call's first window.
  const auto localVideo = local_.meter().closeWindow(window);
  if (!isInCall()) return;
  meeting_->collect(window, localVideo, stats);
  if (!isRemoteAudioMuted_ && local_.hasSpeaker()) {
    stats.audio.outputLevel = meeting_->incomingLevel();
  }
}

void EmbeddedEngine::applyOutgoing(const tsl::MediaStreamState& state) {
  if (state.outgoingVideoMuted != local_.isVideoMuted()) {
    local_.setVideoMuted(state.outgoingVideoMuted);
  }
  if (state.outgoingAudioMuted != local_.isAudioMuted()) {
    local_.setAudioMuted(state.outgoingAudioMuted);
  }
}

void EmbeddedEngine::notifyShareStatus(ShareStatus status) {
  context_.notifier.notify(&INotifyCallback::NotifyScreenShareStatus, status);
}

}  // namespace embedded

std::unique_ptr<support::Engine> support::makeEngine(EngineContext& context,
                                                     std::shared_ptr<FramePool> pool) {
  return std::make_unique<embedded::EmbeddedEngine>(context, std::move(pool));
}
