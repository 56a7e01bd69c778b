// The event handler as a JavaScript class, for tests of operations that a wrapper does not use:
// setting another emitter, or none, and waiting for an engine that is already ready.

#include <napi.h>

#include <atomic>
#include <memory>
#include <thread>
#include <utility>

#include "addon/events/javascript_dispatcher.h"
#include "addon/events/tessel_event_handler.h"
#include "addon/frames/stream_manager.h"

using events::JavascriptDispatcher;
using events::TesselEventHandler;
using frames::StreamManager;

namespace {

// Runs `work` on a thread of its own, as the engine does, and waits for its end.
template <typename Work>
void onEngineThread(Work&& work) {
  std::thread(std::forward<Work>(work)).join();
}

class EventHandler : public Napi::ObjectWrap<EventHandler> {
 public:
  explicit EventHandler(const Napi::CallbackInfo& info)
      : ObjectWrap(info), dispatcher_(std::make_shared<JavascriptDispatcher>(info.Env())) {
    auto streamManager = std::make_shared<StreamManager>(nullptr);
    streamManager_ = streamManager;
    handler_ = std::make_shared<TesselEventHandler>(dispatcher_, std::move(streamManager));
  }

  static Napi::Function define(Napi::Env env) {
    return DefineClass(
        env, "EventHandler",
        {
            InstanceMethod<&EventHandler::setEmitter>("setEmitter"),
            InstanceMethod<&EventHandler::notifyMicLevel>("notifyMicLevel"),
            InstanceMethod<&EventHandler::notifyWithoutEffect>("notifyWithoutEffect"),
            InstanceMethod<&EventHandler::notifyInitCompleted>("notifyInitCompleted"),
            InstanceMethod<&EventHandler::waitForInitEvent>("waitForInitEvent"),
            InstanceMethod<&EventHandler::completesBeforeWaitEnds>("completesBeforeWaitEnds"),
            InstanceMethod<&EventHandler::holdsStreamManager>("holdsStreamManager"),
            InstanceMethod<&EventHandler::delivered>("delivered"),
            InstanceMethod<&EventHandler::close>("close"),
        });
  }

 private:
  void setEmitter(const Napi::CallbackInfo& info) {
    handler_->setEmitter(info[0].As<Napi::Object>());
  }

  void notifyMicLevel(const Napi::CallbackInfo& info) {
    onEngineThread(
        [&, level = info[0].As<Napi::Number>().Uint32Value()] { handler_->NotifyMicLevel(level); });
  }

  void notifyWithoutEffect(const Napi::CallbackInfo&) {
    onEngineThread([&] {
      handler_->NotifyMessage("message", "text");
      handler_->NotifyPresentationStop();
    });
  }

  void notifyInitCompleted(const Napi::CallbackInfo&) {
    onEngineThread([&] { handler_->NotifyInitCompleted(); });
  }

  void waitForInitEvent(const Napi::CallbackInfo&) { handler_->WaitForInitEvent(); }

  // Waits while a thread reports completion; whether that had begun when the wait ended.
  Napi::Value completesBeforeWaitEnds(const Napi::CallbackInfo& info) {
    std::atomic<bool> completing = false;
    std::thread engine([&] {
      completing = true;
      handler_->NotifyInitCompleted();
    });
    handler_->WaitForInitEvent();
    const bool result = completing;
    engine.join();
    return Napi::Boolean::New(info.Env(), result);
  }

  Napi::Value holdsStreamManager(const Napi::CallbackInfo& info) {
    return Napi::Boolean::New(info.Env(), !streamManager_.expired());
  }

  // A promise, fulfilled when all that was posted before has been emitted.
  Napi::Value delivered(const Napi::CallbackInfo& info) {
    const auto deferred = Napi::Promise::Deferred::New(info.Env());
    dispatcher_->async([deferred](Napi::Env env) { deferred.Resolve(env.Undefined()); });
    return deferred.Promise();
  }

  // To be called at the end, as the process does not end before.
  void close(const Napi::CallbackInfo&) {
    dispatcher_->close();
    handler_->detach();
  }

  const std::shared_ptr<JavascriptDispatcher> dispatcher_;
  std::weak_ptr<StreamManager> streamManager_;
  std::shared_ptr<TesselEventHandler> handler_;
};

Napi::Object init(Napi::Env env, Napi::Object exports) {
  exports.Set("EventHandler", EventHandler::define(env));
  return exports;
}

NODE_API_MODULE(event_handler, init)

}  // namespace
