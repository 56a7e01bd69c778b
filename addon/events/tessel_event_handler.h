// The engine's notifications as JavaScript events.

#ifndef ADDON_EVENTS_TESSEL_EVENT_HANDLER_H_
#define ADDON_EVENTS_TESSEL_EVENT_HANDLER_H_

#include <napi.h>

#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "addon/events/emit_functions.h"
#include "addon/events/javascript_dispatcher.h"
#include "base/mutex.h"
#include "tesselclient/notify_callback.h"

namespace frames {
class StreamManager;
}

namespace events {

// The addon's sink for the engine's notifications. Each is copied into a closure on the engine's
// thread and emitted on the JavaScript thread, in the order of posting, as an event of the emitter
// that JavaScript supplied. It also carries the start-up handshake between the engine, which
// reports that it is initialised, and the wrapper's constructor, which waits for that.
//
// One per engine, shared by the TesselWrapper and the engine. Notifications come from any engine
// thread; setEmitter(), WaitForInitEvent() and detach() are called on the JavaScript thread. The
// engine may hold the handler longer than the wrapper does, and release it on any thread, once the
// wrapper has called detach() and closed the dispatcher.
class TesselEventHandler : public INotifyCallback {
 public:
  // The stream manager is accepted and not kept.
  TesselEventHandler(std::shared_ptr<JavascriptDispatcher> dispatcher,
                     const std::shared_ptr<frames::StreamManager>& streamManager);

  // Emits on `emitter` from now on, holding it weakly: JavaScript keeps it alive. Without an
  // emitter, or when it was collected, there are no listeners, and events are dropped without an
  // error.
  void setEmitter(Napi::Object emitter);

  // Blocks until the engine has reported that it is initialised, with no limit of time.
  void WaitForInitEvent() EXCLUDES(mutex_);

  // Releases everything that belongs to JavaScript.
  void detach();

  void NotifyInitCompleted() override EXCLUDES(mutex_);
  void NotifyStreamAdded(std::pair<TSLM_STREAM_INDEX, int> stream, unsigned int csrc) override;
  void NotifyStreamRemoved(std::pair<TSLM_STREAM_INDEX, int> stream, unsigned int csrc) override;
  void NotifyStreamUpdated(std::pair<TSLM_STREAM_INDEX, int> stream, unsigned int csrc) override;
  void NotifyGracefulEvent(std::string event, bool enable) override;
  void NotifyCallConnectionStatus(bool connected) override;
  void NotifyScreenShareStatus(ShareStatus status) override;
  void NotifyContentReceiveStatus(bool isReceiving, std::string presenterGuid) override;
  void NotifyCallDisconnect(int callId, std::string reason, int code) override;
  void NotifyMediaMuteState(MediaType type, bool muted) override;
  void NotifyMicLevel(unsigned int level) override;
  void NotifyRtpMediaState(MediaType type, bool up) override;
  void NotifyDeviceChange(std::string id, DeviceType type) override;
  void NotifyEvent(const std::string& eventName, const std::string& eventBody) override;
  void NotifyUpdateVOQualityIndex(VSPVoQualityIndex index) override;

  // Operations without a slot in the engine's interface; deliberately without effect.
  // NOLINTNEXTLINE(performance-unnecessary-value-param): the engine's contract says by value
  void NotifyMessage(std::string, std::string) {}
  void NotifyPresentationStop() {}

 private:
  void postStreamEvent(TesselEvent event, std::pair<TSLM_STREAM_INDEX, int> stream,
                       unsigned int csrc);
  void emitEvent(TesselEvent event, std::initializer_list<napi_value> values) const;

  const std::shared_ptr<JavascriptDispatcher> dispatcher_;

  base::Mutex mutex_;
  base::CondVar condition_;  // initCompleted_ became true
  bool initCompleted_ GUARDED_BY(mutex_) = false;

  // JavaScript thread only.
  Napi::ObjectReference emitter_;  // weak
  std::optional<EmitFunctions> emitFunctions_;
};

}  // namespace events

#endif  // ADDON_EVENTS_TESSEL_EVENT_HANDLER_H_
