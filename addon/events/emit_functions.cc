#include "addon/events/emit_functions.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "addon/napi/status.h"
#include "addon/napi/values.h"

namespace events {
namespace {

// One function for each event, in the order of TesselEvent. The first argument is the emitter, the
// others are the payload's properties. An undefined value that has no text is left out.
constexpr std::string_view kEmittingScript = R"('use strict'; [
  (emitter, type, streamIndex, csrc) => {
    emitter.emit("streamAdded", { type, streamIndex, csrc });
  },
  (emitter, type, streamIndex, csrc) => {
    emitter.emit("streamRemoved", { type, streamIndex, csrc });
  },
  (emitter, type, streamIndex, csrc) => {
    emitter.emit("streamUpdated", { type, streamIndex, csrc });
  },
  (emitter, event, enable) => {
    emitter.emit("gracefulEvent", { event, enable });
  },
  (emitter, connected) => {
    emitter.emit("callConnectionStatus", { connected });
  },
  (emitter, status) => {
    emitter.emit("screenShareStatus", status === undefined ? {} : { status });
  },
  (emitter, isReceiving, presenterGuid) => {
    emitter.emit("contentReceive", { isReceiving, presenterGuid });
  },
  (emitter, callId, reason, code) => {
    emitter.emit("callDisconnect", { callId, reason, code });
  },
  (emitter, mediaType, muted) => {
    emitter.emit("mediaMuteState", mediaType === undefined ? { muted } : { mediaType, muted });
  },
  (emitter, level) => {
    emitter.emit("micLevel", { level });
  },
  (emitter, mediaType, up) => {
    emitter.emit("noRtpMedia", mediaType === undefined ? { up } : { mediaType, up });
  },
  (emitter, id, type) => {
    emitter.emit("deviceChange", type === undefined ? { id } : { id, type });
  },
  (emitter, eventName, eventBody) => {
    emitter.emit("eventNotify", { eventName, eventBody });
  },
  (emitter, VSPVOQI) => {
    emitter.emit("vspUpdateVOQI", { VSPVOQI });
  },
])";

struct EventName {
  TesselEvent event;
  std::string_view name;
};

constexpr std::array kEventNames = {
    EventName{TesselEvent::kStreamAdded, "streamAdded"},
    EventName{TesselEvent::kStreamRemoved, "streamRemoved"},
    EventName{TesselEvent::kStreamUpdated, "streamUpdated"},
    EventName{TesselEvent::kGracefulEvent, "gracefulEvent"},
    EventName{TesselEvent::kCallConnectionStatus, "callConnectionStatus"},
    EventName{TesselEvent::kScreenShareStatus, "screenShareStatus"},
    EventName{TesselEvent::kContentReceive, "contentReceive"},
    EventName{TesselEvent::kCallDisconnect, "callDisconnect"},
    EventName{TesselEvent::kMediaMuteState, "mediaMuteState"},
    EventName{TesselEvent::kMicLevel, "micLevel"},
    EventName{TesselEvent::kNoRtpMedia, "noRtpMedia"},
    EventName{TesselEvent::kDeviceChange, "deviceChange"},
    EventName{TesselEvent::kEventNotify, "eventNotify"},
    EventName{TesselEvent::kVspUpdateVoqi, "vspUpdateVOQI"},
};

constexpr bool isInOrderOfEvents() {
  std::size_t index = 0;
  for (const EventName& entry : kEventNames) {
    if (static_cast<std::size_t>(entry.event) != index++) return false;
  }
  return true;
}
static_assert(isInOrderOfEvents());

// Whether the n-th call of "emit" in the script emits the n-th event, and there are no more.
constexpr bool scriptIsInOrderOfNames() {
  constexpr std::string_view kCall = "emitter.emit(\"";
  std::size_t position = 0;
  for (const EventName& entry : kEventNames) {
    position = kEmittingScript.find(kCall, position);
    if (position == std::string_view::npos) return false;
    position += kCall.size();
    if (!kEmittingScript.substr(position).starts_with(entry.name)) return false;
    position += entry.name.size();
    if (kEmittingScript.at(position) != '"') return false;
  }
  return kEmittingScript.find(kCall, position) == std::string_view::npos;
}
static_assert(scriptIsInOrderOfNames());

}  // namespace

EmitFunctions::EmitFunctions(Napi::Env env) {
  napi_value functions = nullptr;
  napi::checkStatus(env,
                    napi_run_script(env, napi::toJavascript(env, kEmittingScript), &functions));
  napi::forEachElement(Napi::Value(env, functions), [this](Napi::Value function) {
    functions_.push_back(Napi::Persistent(function.As<Napi::Function>()));
  });
}

void EmitFunctions::emit(Napi::Object emitter, TesselEvent event,
                         std::initializer_list<napi_value> values) const {
  std::array<napi_value, 4> arguments = {emitter};
  std::copy(values.begin(), values.end(), arguments.begin() + 1);
  const Napi::Function function = functions_[static_cast<std::size_t>(event)].Value();
  const Napi::Env env = emitter.Env();
  napi::checkStatus(env, napi_call_function(env, emitter, function, 1 + values.size(),
                                            arguments.data(), nullptr));
}

}  // namespace events
