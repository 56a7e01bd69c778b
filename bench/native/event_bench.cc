// What the event benchmarks load: the same job, three properties from native threads to a listener
// on a JavaScript emitter, done by this system's dispatcher and by node-addon-api's
// ThreadSafeFunction; and the bare libuv async handle that both build on.

#include <napi.h>
#include <uv.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include "events/tessel_event_handler.h"

namespace {

double nowInMicroseconds() {
  return std::chrono::duration<double, std::micro>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

// Starts `count` threads, each of which calls `post` `perThread` times.
class Posters {
 public:
  Posters(int count, int perThread, const std::function<void(int)>& post) {
    for (int i = 0; i < count; ++i) {
      threads_.emplace_back([post, perThread] {
        for (int event = 0; event < perThread; ++event) post(event);
      });
    }
  }
  void join() {
    for (auto& thread : threads_) thread.join();
  }

 private:
  std::vector<std::thread> threads_;
};

// The dispatcher and handler under measurement, for the length of the process.
struct Tessel {
  explicit Tessel(Napi::Object emitter)
      : dispatcher(std::make_shared<JavascriptDispatcher>(emitter.Env())),
        handler(dispatcher, nullptr) {
    handler.setEmitter(emitter);
  }
  std::shared_ptr<JavascriptDispatcher> dispatcher;
  TesselEventHandler handler;
};
std::unique_ptr<Tessel> tessel;

// postTessel(emitter, threads, perThread): posts everything, then returns; nothing is delivered
// before JavaScript returns to the event loop.
void postTessel(const Napi::CallbackInfo& info) {
  if (!tessel) tessel = std::make_unique<Tessel>(info[0].As<Napi::Object>());
  Posters posters(info[1].As<Napi::Number>(), info[2].As<Napi::Number>(), [](int event) {
    tessel->handler.NotifyStreamAdded({TSLM_STREAM_REMOTE, event}, 7);
  });
  posters.join();
}

struct StreamEvent {
  TSLM_STREAM_INDEX kind;
  int index;
  unsigned int csrc;
};

void emitFromThreadSafeFunction(Napi::Env env, Napi::Function, Napi::Reference<Napi::Object>* emitter,
                                StreamEvent* event) {
  const std::unique_ptr<StreamEvent> owned(event);
  const Napi::Object payload = Napi::Object::New(env);
  payload.Set("type", "remote");
  payload.Set("streamIndex", event->index);
  payload.Set("csrc", event->csrc);
  const Napi::Object target = emitter->Value();
  target.Get("emit").As<Napi::Function>().Call(target,
                                               {Napi::String::New(env, "streamAdded"), payload});
}

using EventFunction = Napi::TypedThreadSafeFunction<Napi::Reference<Napi::Object>, StreamEvent,
                                                    emitFromThreadSafeFunction>;

void postThreadSafeFunction(const Napi::CallbackInfo& info) {
  const Napi::Env env = info.Env();
  static EventFunction function;
  static bool isMade = false;
  if (!isMade) {
    isMade = true;
    auto* emitter = new Napi::Reference<Napi::Object>(Napi::Persistent(info[0].As<Napi::Object>()));
    function = EventFunction::New(env, "bench", 0, 1, emitter,
                                  [](Napi::Env, void*, Napi::Reference<Napi::Object>* held) {
                                    delete held;
                                  });
  }
  Posters posters(info[1].As<Napi::Number>(), info[2].As<Napi::Number>(), [](int event) {
    function.NonBlockingCall(new StreamEvent{TSLM_STREAM_REMOTE, event, 7});
  });
  posters.join();
}

}  // namespace

static Napi::Object Init(Napi::Env env, Napi::Object exports) {
  exports.Set("postTessel", Napi::Function::New(env, postTessel));
  exports.Set("postThreadSafeFunction", Napi::Function::New(env, postThreadSafeFunction));
  exports.Set("now", Napi::Function::New(env, [](const Napi::CallbackInfo& info) {
                return Napi::Number::New(info.Env(), nowInMicroseconds());
              }));
  return exports;
}

NODE_API_MODULE(event_bench, Init)
