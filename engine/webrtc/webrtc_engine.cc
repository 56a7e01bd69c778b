#include "engine/webrtc/webrtc_engine.h"

#include <utility>

#include "engine/webrtc/call_uri.h"
#include "engine/webrtc/elements.h"

namespace webrtc {
namespace {

void openClips(CallTarget& target) {
  try {
    if (target.camera.kind == CameraSource::Kind::kClip) {
      target.camera.clip = std::make_shared<const support::Y4mClip>(target.camera.path);
    }
    if (target.microphone.kind == MicrophoneSource::Kind::kClip) {
      target.microphone.clip = std::make_shared<const SoundClip>(target.microphone.path);
    }
  } catch (const support::ClipError& error) {
    const bool isUnreadable = error.kind() == support::ClipError::Kind::kUnreadable;
    throw CallFailure(isUnreadable ? kClipUnreadable : kClipUnsupported, error.what());
  }
}

}  // namespace

WebrtcEngine::WebrtcEngine(support::EngineContext& context,
                           std::shared_ptr<support::FramePool> pool)
    : context_(context),
      pool_(std::move(pool)),
      devices_(context, [this](DeviceType type) { deviceChanged(type); }),
      screens_(context),
      localVideo_(context, devices_, pool_, [this] { cameraChanged(); }),
      roster_(context.loop, context.notifier, [this] { return people(); }),
      exitGuard_(context.loop, [this] {
        isEnding_ = true;
        // First: without the call a device would take the place of its card or clip.
        localVideo_.setCapturing(false);
        call_.reset();
        context_.log->write("the process ends: the camera is closed");
      }) {
  // After the notification that initialisation is complete, which the application waits for.
  context_.loop.post([this] { context_.loop.post([this] { warmUp(); }); });
}

WebrtcEngine::~WebrtcEngine() {
  call_.reset();
  // GLib keeps threads for a while, in case that somebody needs one again.
  g_thread_pool_stop_unused_threads();
}

void WebrtcEngine::warmUp() {
  if (isEnding_) return;
  screens_.start();
  try {
    warmUpElements();
    devices_.start();
  } catch (const CallFailure& failure) {
    context_.log->write(std::string("no call can be held: ") + failure.what());
  }
  ExitGuard::arm();
}

void WebrtcEngine::deviceChanged(DeviceType type) {
  if (type == DeviceType::kVideo) {
    localVideo_.deviceChanged();
  } else if (call_) {
    call_->deviceChanged(type);
  }
}

void WebrtcEngine::connect(const tsl::ConnectParams& params) {
  const int callId = ++lastCallId_;
  if (call_ && !call_->isOver()) {
    // The present call goes on; only the new one ends before it began.
    context_.notifier.notify(&INotifyCallback::NotifyCallDisconnect, callId, "already in a call",
                             kAlreadyInACall);
    return;
  }
  try {
    CallTarget target = parseCallUri(params.uri);
    context_.log->write("call " + std::to_string(callId) + " to " + target.url + ", room " +
                        target.room);
    requireElements();
    openClips(target);
    devices_.start();
    ExitGuard::arm();
    call_ = std::make_unique<Call>(
        context_, pool_, localVideo_, devices_, callId, std::move(target), params,
        Call::Handlers{
            .peopleChanged = [this] { roster_.update(); },
            .moderated = [this](MediaType type, bool isMuted) { moderate(type, isMuted); }});
  } catch (const CallFailure& failure) {
    refuse(callId, failure);
    return;
  } catch (const std::exception& error) {
    refuse(callId, {kEngineFailed, error.what()});
    return;
  }
  try {
    setMuted(params.mediaStreamState.outgoingAudioMuted,
             params.mediaStreamState.outgoingVideoMuted);
    call_->setRemoteAudioMuted(isRemoteAudioMuted_);
    call_->setAudioDebug(isAudioDebugged_);
    tellVideoMuted();
    call_->join();
  } catch (const std::exception& error) {
    call_->abort(error.what());
  }
}

void WebrtcEngine::refuse(int callId, const CallFailure& failure) {
  context_.log->write(std::string("refused: ") + failure.what());
  context_.notifier.notify(&INotifyCallback::NotifyCallConnectionStatus, false);
  context_.notifier.notify(&INotifyCallback::NotifyCallDisconnect, callId, failure.what(),
                           failure.code());
}

std::vector<support::Person> WebrtcEngine::people() const {
  return call_ ? call_->people() : std::vector<support::Person>();
}

void WebrtcEngine::disconnect() {
  if (call_) call_->leave();
}

void WebrtcEngine::muteLocalVideo(bool mute) {
  mutes_[MediaType::kVideo].byApplication = mute;
  muteAndNotify(MediaType::kVideo);
}

void WebrtcEngine::muteAndNotify(MediaType type) {
  const bool isMuted = mutes_[type].isMuted();
  if (type == MediaType::kVideo) {
    localVideo_.setMuted(isMuted);
  } else if (call_) {
    call_->setAudioMuted(isMuted);
  }
  context_.notifier.notify(&INotifyCallback::NotifyMediaMuteState, type, isMuted);
}

void WebrtcEngine::moderate(MediaType type, bool isMuted) {
  Mute& mute = mutes_[type];
  const bool wasMuted = mute.isMuted();
  mute.byRoom = isMuted;
  if (mute.isMuted() != wasMuted) muteAndNotify(type);
}

void WebrtcEngine::cameraChanged() {
  // Now the libraries of the camera are there.
  if (localVideo_.isShowing()) ExitGuard::arm();
  tellVideoMuted();
}

void WebrtcEngine::tellVideoMuted() {
  if (call_) call_->setVideoMuted(!localVideo_.isShowing());
}

void WebrtcEngine::muteLocalAudio(bool mute) {
  mutes_[MediaType::kAudio].byApplication = mute;
  muteAndNotify(MediaType::kAudio);
}

void WebrtcEngine::muteRemoteAudio(bool mute) {
  isRemoteAudioMuted_ = mute;
  if (call_) call_->setRemoteAudioMuted(mute);
}

void WebrtcEngine::enableCamera(bool enable) { localVideo_.setCapturing(enable); }

void WebrtcEngine::setAudioDebug(bool enable) {
  isAudioDebugged_ = enable;
  if (call_) call_->setAudioDebug(enable);
}

void WebrtcEngine::updateMediaState(const tsl::MediaStreamState& state) {
  setMuted(state.outgoingAudioMuted, state.outgoingVideoMuted);
  if (!call_) return;
  call_->setIncoming(incomingOf(state));
  call_->setContentReceived(state.contentStreamEnabled);
}

void WebrtcEngine::setMuted(bool isAudioMuted, bool isVideoMuted) {
  if (isVideoMuted != mutes_[MediaType::kVideo].byApplication) muteLocalVideo(isVideoMuted);
  if (isAudioMuted != mutes_[MediaType::kAudio].byApplication) muteLocalAudio(isAudioMuted);
}

void WebrtcEngine::selectMicrophone(const tsl::AudioInDevice& device) {
  devices_.select(DeviceType::kAudioIn, device.id);
}

void WebrtcEngine::selectSpeaker(const tsl::AudioOutDevice& device) {
  devices_.select(DeviceType::kAudioOut, device.id);
}

void WebrtcEngine::selectCamera(const tsl::VideoDevice& device) { localVideo_.select(device); }

void WebrtcEngine::startPresentation(const tsl::ContentShareParams& params) {
  if (ContentRoom* const room = content()) {
    room->start(params);
  } else {
    context_.notifier.notify(&INotifyCallback::NotifyScreenShareStatus, ShareStatus::kDenied);
  }
}

void WebrtcEngine::stopPresentation() {
  if (ContentRoom* const room = content()) room->stop();
}

void WebrtcEngine::requestToken() {
  if (ContentRoom* const room = content()) {
    room->requestToken();
  } else {
    context_.notifier.notify(&INotifyCallback::NotifyScreenShareStatus, ShareStatus::kTokenDenied);
  }
}

void WebrtcEngine::releaseToken() {
  if (ContentRoom* const room = content()) room->releaseToken();
}

void WebrtcEngine::setLayout(
    const std::vector<tsl::VideoStreamInfo>& streams,
    const std::vector<std::vector<tsl::VideoStreamConstraints>>& constraints) {
  if (call_) call_->setLayout(streams, constraints);
}

void WebrtcEngine::setMaxQualityIndex(std::int32_t index) {
  if (call_) call_->setTopRung(index);
}

void WebrtcEngine::registerEvent(const std::string& name, std::uint32_t expires,
                                 const std::string& mimeType, const std::string& mimeSubType) {
  if (support::Roster::isRequested(name, mimeType, mimeSubType)) {
    roster_.subscribe(expires);
  } else {
    context_.log->write("there is no event " + name);
  }
}

void WebrtcEngine::unregisterEvent(const std::string& name) {
  if (name == support::Roster::kEventName) roster_.unsubscribe();
}

void WebrtcEngine::collectStatistics(support::Time window, tsl::MeetingStats& stats) {
  if (call_) call_->collectStatistics(window, stats);
}

}  // namespace webrtc

std::unique_ptr<support::Engine> support::makeEngine(EngineContext& context,
                                                     std::shared_ptr<FramePool> pool) {
  return std::make_unique<webrtc::WebrtcEngine>(context, std::move(pool));
}
