#include "addon/events/tessel_event_handler.h"

#include "addon/napi/values.h"
#include "base/diagnostic_line.h"

using napi::toJavascript;

namespace events {
namespace {

// Each text function returns null for a value without a text.

const char* typeFromStreamIndex(std::pair<TSLM_STREAM_INDEX, int> stream) {
  switch (stream.first) {
    case TSLM_STREAM_LOCAL:
      return "local";
    case TSLM_STREAM_REMOTE:
      return "remote";
    case TSLM_STREAM_CONTENT:
      return "content";
  }
  return "unknown";
}

const char* textOf(ShareStatus status) {
  switch (status) {
    case ShareStatus::kStarted:
      return "started";
    case ShareStatus::kFailed:
      return "failed";
    case ShareStatus::kDenied:
      return "denied";
    case ShareStatus::kTokenGranted:
      return "token_granted";
    case ShareStatus::kTokenDenied:
      return "token_denied";
    case ShareStatus::kStopped:
      return "stopped";
    case ShareStatus::kTokenRelinquished:
      return "token_relinquished";
  }
  return nullptr;
}

const char* textOf(DeviceType type) {
  switch (type) {
    case DeviceType::kVideo:
      return "video";
    case DeviceType::kAudioIn:
      return "audioIn";
    case DeviceType::kAudioOut:
      return "audioOut";
  }
  return nullptr;
}

const char* rtpMediaText(MediaType type) {
  switch (type) {
    case MediaType::kVideo:
      return "video";
    case MediaType::kAudio:
      return "audio";
    case MediaType::kContent:
      return "content";
  }
  return nullptr;
}

// Only what the local participant can mute has a text in the mute state.
const char* muteMediaText(MediaType type) {
  return type == MediaType::kContent ? nullptr : rtpMediaText(type);
}

napi_value textOrUndefined(Napi::Env env, const char* text) {
  if (text == nullptr) return env.Undefined();
  return toJavascript(env, text);
}

}  // namespace

TesselEventHandler::TesselEventHandler(
    std::shared_ptr<JavascriptDispatcher> dispatcher,
    const std::shared_ptr<frames::StreamManager>& /*streamManager*/)
    : dispatcher_(std::move(dispatcher)) {}

void TesselEventHandler::setEmitter(Napi::Object emitter) {
  if (!emitFunctions_) emitFunctions_.emplace(emitter.Env());
  emitter_ = napi::weakReference(emitter);
}

void TesselEventHandler::detach() {
  emitter_.Reset();
  emitFunctions_.reset();
}

void TesselEventHandler::WaitForInitEvent() {
  base::DiagnosticLine("TesselEventHandler::WaitForInitEvent");
  const base::MutexLock lock(mutex_);
  while (!initCompleted_) condition_.Wait(mutex_);
}

void TesselEventHandler::NotifyInitCompleted() {
  base::DiagnosticLine("TesselEventHandler::NotifyInitCompleted received");
  {
    const base::MutexLock lock(mutex_);
    initCompleted_ = true;
  }
  condition_.NotifyOne();
}

void TesselEventHandler::emitEvent(TesselEvent event,
                                   std::initializer_list<napi_value> values) const {
  const Napi::Object emitter = emitter_.Value();
  if (!emitter.IsEmpty()) emitFunctions_->emit(emitter, event, values);
}

// The closures hold the handler's plain address: the wrapper closes the dispatcher, which drops
// them, before it lets go of the handler.

void TesselEventHandler::postStreamEvent(TesselEvent event,
                                         std::pair<TSLM_STREAM_INDEX, int> stream,
                                         unsigned int csrc) {
  dispatcher_->async([this, event, stream, csrc](Napi::Env env) {
    emitEvent(event, {toJavascript(env, typeFromStreamIndex(stream)),
                      toJavascript(env, stream.second), toJavascript(env, csrc)});
  });
}

void TesselEventHandler::NotifyStreamAdded(std::pair<TSLM_STREAM_INDEX, int> stream,
                                           unsigned int csrc) {
  postStreamEvent(TesselEvent::kStreamAdded, stream, csrc);
}

void TesselEventHandler::NotifyStreamRemoved(std::pair<TSLM_STREAM_INDEX, int> stream,
                                             unsigned int csrc) {
  postStreamEvent(TesselEvent::kStreamRemoved, stream, csrc);
}

void TesselEventHandler::NotifyStreamUpdated(std::pair<TSLM_STREAM_INDEX, int> stream,
                                             unsigned int csrc) {
  postStreamEvent(TesselEvent::kStreamUpdated, stream, csrc);
}

void TesselEventHandler::NotifyGracefulEvent(std::string event, bool enable) {
  dispatcher_->async([this, event = std::move(event), enable](Napi::Env env) {
    emitEvent(TesselEvent::kGracefulEvent, {toJavascript(env, event), toJavascript(env, enable)});
  });
}

void TesselEventHandler::NotifyCallConnectionStatus(bool connected) {
  dispatcher_->async([this, connected](Napi::Env env) {
    emitEvent(TesselEvent::kCallConnectionStatus, {toJavascript(env, connected)});
  });
}

void TesselEventHandler::NotifyScreenShareStatus(ShareStatus status) {
  dispatcher_->async([this, status](Napi::Env env) {
    emitEvent(TesselEvent::kScreenShareStatus, {textOrUndefined(env, textOf(status))});
  });
}

void TesselEventHandler::NotifyContentReceiveStatus(bool isReceiving, std::string presenterGuid) {
  dispatcher_->async([this, isReceiving, guid = std::move(presenterGuid)](Napi::Env env) {
    emitEvent(TesselEvent::kContentReceive,
              {toJavascript(env, isReceiving), toJavascript(env, guid)});
  });
}

void TesselEventHandler::NotifyCallDisconnect(int callId, std::string reason, int code) {
  dispatcher_->async([this, callId, reason = std::move(reason), code](Napi::Env env) {
    emitEvent(TesselEvent::kCallDisconnect,
              {toJavascript(env, callId), toJavascript(env, reason), toJavascript(env, code)});
  });
}

void TesselEventHandler::NotifyMediaMuteState(MediaType type, bool muted) {
  dispatcher_->async([this, type, muted](Napi::Env env) {
    emitEvent(TesselEvent::kMediaMuteState,
              {textOrUndefined(env, muteMediaText(type)), toJavascript(env, muted)});
  });
}

void TesselEventHandler::NotifyMicLevel(unsigned int level) {
  dispatcher_->async([this, level](Napi::Env env) {
    emitEvent(TesselEvent::kMicLevel, {toJavascript(env, level)});
  });
}

void TesselEventHandler::NotifyRtpMediaState(MediaType type, bool up) {
  dispatcher_->async([this, type, up](Napi::Env env) {
    emitEvent(TesselEvent::kNoRtpMedia,
              {textOrUndefined(env, rtpMediaText(type)), toJavascript(env, up)});
  });
}

void TesselEventHandler::NotifyDeviceChange(std::string id, DeviceType type) {
  dispatcher_->async([this, id = std::move(id), type](Napi::Env env) {
    emitEvent(TesselEvent::kDeviceChange,
              {toJavascript(env, id), textOrUndefined(env, textOf(type))});
  });
}

void TesselEventHandler::NotifyEvent(const std::string& eventName, const std::string& eventBody) {
  dispatcher_->async([this, name = eventName, body = eventBody](Napi::Env env) {
    emitEvent(TesselEvent::kEventNotify, {toJavascript(env, name), toJavascript(env, body)});
  });
}

void TesselEventHandler::NotifyUpdateVOQualityIndex(VSPVoQualityIndex index) {
  dispatcher_->async([this, index](Napi::Env env) {
    emitEvent(TesselEvent::kVspUpdateVoqi, {toJavascript(env, static_cast<std::int32_t>(index))});
  });
}

}  // namespace events
