// The events: their names, and the shapes of their payloads.

#ifndef ADDON_EVENTS_EMIT_FUNCTIONS_H_
#define ADDON_EVENTS_EMIT_FUNCTIONS_H_

#include <napi.h>

#include <initializer_list>
#include <vector>

namespace events {

// In the order of the functions in emit_functions.cc.
enum class TesselEvent {
  kStreamAdded,
  kStreamRemoved,
  kStreamUpdated,
  kGracefulEvent,
  kCallConnectionStatus,
  kScreenShareStatus,
  kContentReceive,
  kCallDisconnect,
  kMediaMuteState,
  kMicLevel,
  kNoRtpMedia,
  kDeviceChange,
  kEventNotify,
  kVspUpdateVoqi,
};

// One JavaScript function for each event, which builds the payload and calls the emitter's "emit".
// One call from native code replaces one for each property, the method's look-up and the method: it
// about triples the rate of events (see docs/performance.md). Belongs to one TesselEventHandler;
// JavaScript thread only.
class EmitFunctions {
 public:
  explicit EmitFunctions(Napi::Env env);

  // Emits `event` on `emitter`. `values` are the payload's properties in their order; an undefined
  // one is left out of the payload where the event allows it. Throws what "emit" throws.
  void emit(Napi::Object emitter, TesselEvent event,
            std::initializer_list<napi_value> values) const;

 private:
  std::vector<Napi::FunctionReference> functions_;  // by event
};

}  // namespace events

#endif  // ADDON_EVENTS_EMIT_FUNCTIONS_H_
