// What the event benchmarks load: one job, a notification with three properties from native threads
// to a listener on a JavaScript emitter, done by this system and by node-addon-api's
// ThreadSafeFunction; and the wake-up of an idle loop, by this system and by the bare libuv async
// handle that both build on.

#include <napi.h>
#include <uv.h>

#include <chrono>
#include <functional>
#include <memory>
#include <semaphore>
#include <thread>
#include <vector>

#include "addon/events/tessel_event_handler.h"
#include "addon/napi/values.h"

using events::JavascriptDispatcher;
using events::TesselEventHandler;

namespace {

constexpr int kStreamIndex = 3;
constexpr unsigned int kCsrc = 7;

using Clock = std::chrono::steady_clock;
using Post = std::function<void()>;

// The dispatcher and handler of the system, for the length of the process.
struct Tessel {
  explicit Tessel(Napi::Object emitter)
      : dispatcher(std::make_shared<JavascriptDispatcher>(emitter.Env())),
        handler(dispatcher, nullptr) {
    handler.setEmitter(emitter);
  }
  std::shared_ptr<JavascriptDispatcher> dispatcher;
  TesselEventHandler handler;
};

Post postThroughTessel(Napi::Object emitter) {
  auto* tessel = new Tessel(emitter);
  return [tessel] { tessel->handler.NotifyStreamAdded({TSLM_STREAM_REMOTE, kStreamIndex}, kCsrc); };
}

struct StreamEvent {
  const char* type;
  int streamIndex;
  unsigned int csrc;
};

// The payload is built and emitted natively, as the binding's documentation does it.
void emitNatively(Napi::Env env, Napi::Function, Napi::ObjectReference* emitter,
                  StreamEvent* event) {
  const std::unique_ptr<StreamEvent> owned(event);
  const Napi::Object payload = Napi::Object::New(env);
  payload.Set("type", event->type);
  payload.Set("streamIndex", event->streamIndex);
  payload.Set("csrc", event->csrc);
  const Napi::Object target = emitter->Value();
  target.Get("emit").As<Napi::Function>().Call(target,
                                               {Napi::String::New(env, "streamAdded"), payload});
}

// The values are handed to the function's JavaScript callback, which builds the payload and emits.
void callWithValues(Napi::Env env, Napi::Function callback, Napi::ObjectReference*,
                    StreamEvent* event) {
  const std::unique_ptr<StreamEvent> owned(event);
  callback.Call({Napi::String::New(env, event->type), Napi::Number::New(env, event->streamIndex),
                 Napi::Number::New(env, event->csrc)});
}

template <auto callJs>
Post postThroughThreadSafeFunction(Napi::Object emitter, Napi::Function callback) {
  using Function = Napi::TypedThreadSafeFunction<Napi::ObjectReference, StreamEvent, callJs>;
  auto* reference = new Napi::ObjectReference(Napi::Persistent(emitter));
  const Function function =
      Function::New(emitter.Env(), callback, "event benchmark", 0, 1, reference);
  return [function] { function.NonBlockingCall(new StreamEvent{"remote", kStreamIndex, kCsrc}); };
}

// How events are posted and by which threads; one set for a process.
Post post;
std::vector<std::thread> posters;

// useTessel(emitter)
void useTessel(const Napi::CallbackInfo& info) {
  post = postThroughTessel(info[0].As<Napi::Object>());
}

// useThreadSafeFunction(emitter): the payload is built natively.
// useThreadSafeFunction(emitter, callback): the callback is called with the payload's values.
void useThreadSafeFunction(const Napi::CallbackInfo& info) {
  const auto emitter = info[0].As<Napi::Object>();
  post = info[1].IsFunction()
             ? postThroughThreadSafeFunction<callWithValues>(emitter, info[1].As<Napi::Function>())
             : postThroughThreadSafeFunction<emitNatively>(emitter, Napi::Function());
}

// startPosting(threads, perThread)
void startPosting(const Napi::CallbackInfo& info) {
  const int perThread = info[1].As<Napi::Number>();
  for (int i = 0; i < napi::toInt32(info[0]); ++i) {
    posters.emplace_back([perThread] {
      for (int event = 0; event < perThread; ++event) post();
    });
  }
}

// Waits for the threads.
void join(const Napi::CallbackInfo&) {
  for (auto& poster : posters) poster.join();
  posters.clear();
}

// A thread that wakes the loop again and again when it is idle, and how long each wake-up took.
struct WakeUps {
  Clock::time_point posted;
  std::vector<double> microseconds;
  std::binary_semaphore hasArrived{0};

  void arrived() {
    microseconds.push_back(
        std::chrono::duration<double, std::micro>(Clock::now() - posted).count());
    hasArrived.release();
  }
} wakeUps;

// startWaking(count): each time the loop has had a millisecond to fall asleep.
void startWaking(const Napi::CallbackInfo& info) {
  posters.emplace_back([count = napi::toInt32(info[0])] {
    for (int i = 0; i < count; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
      wakeUps.posted = Clock::now();
      post();
      wakeUps.hasArrived.acquire();
    }
  });
}

// useBareHandle(): posting wakes a libuv async handle, whose callback is native, and no more.
void useBareHandle(const Napi::CallbackInfo&) {
  auto* handle = new uv_async_t;
  uv_async_init(uv_default_loop(), handle, [](uv_async_t*) { wakeUps.arrived(); });
  post = [handle] { uv_async_send(handle); };
}

// arrived(): for the listener.
void arrived(const Napi::CallbackInfo&) { wakeUps.arrived(); }

// How long each wake-up took so far, in microseconds.
Napi::Value wakeUpTimes(const Napi::CallbackInfo& info) {
  return napi::makeArray(info.Env(), wakeUps.microseconds,
                         [&](double time) { return napi::toJavascript(info.Env(), time); });
}

Napi::Object initialise(Napi::Env env, Napi::Object exports) {
  exports["useTessel"] = Napi::Function::New(env, useTessel);
  exports["useThreadSafeFunction"] = Napi::Function::New(env, useThreadSafeFunction);
  exports["useBareHandle"] = Napi::Function::New(env, useBareHandle);
  exports["startPosting"] = Napi::Function::New(env, startPosting);
  exports["startWaking"] = Napi::Function::New(env, startWaking);
  exports["arrived"] = Napi::Function::New(env, arrived);
  exports["wakeUpTimes"] = Napi::Function::New(env, wakeUpTimes);
  exports["join"] = Napi::Function::New(env, join);
  return exports;
}

NODE_API_MODULE(event_bench, initialise)

}  // namespace
