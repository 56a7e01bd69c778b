// The addon through which JavaScript controls the scripted engine. Loaded before the product's
// addon it also brings the scripted engine into the process, which the dynamic linker then takes
// for every later need of that library name.

#include <napi.h>
#include <unistd.h>

#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "test/engine/conversion.h"
#include "test/engine/engine_client.h"
#include "test/engine/js_value.h"
#include "test/engine/scripted_engine.h"

namespace scripted {
namespace {

template <typename Object>
using Exports = std::map<std::string, Method<Object>>;

#define EXPORTED(type, name) \
  { #name, byValues(&type::name) }

Exports<ScriptedEngine> engineExports() {
  return {
      EXPORTED(ScriptedEngine, reset),          EXPORTED(ScriptedEngine, calls),
      EXPORTED(ScriptedEngine, takeCalls),      EXPORTED(ScriptedEngine, recordCalls),
      EXPORTED(ScriptedEngine, failOperation),  EXPORTED(ScriptedEngine, setInitialisation),
      EXPORTED(ScriptedEngine, setResults),     EXPORTED(ScriptedEngine, selectEngine),
      EXPORTED(ScriptedEngine, startPosting),   EXPORTED(ScriptedEngine, join),
      EXPORTED(ScriptedEngine, dropCallbacks),  EXPORTED(ScriptedEngine, setStream),
      EXPORTED(ScriptedEngine, setFrame),       EXPORTED(ScriptedEngine, startPush),
      EXPORTED(ScriptedEngine, startPushing),   EXPORTED(ScriptedEngine, stopPushing),
      EXPORTED(ScriptedEngine, live),           EXPORTED(ScriptedEngine, callbackOwners),
      EXPORTED(ScriptedEngine, receiverOwners),
  };
}

Exports<EngineClient> clientExports() {
  return {
      EXPORTED(EngineClient, create),
      EXPORTED(EngineClient, deleteFacade),
      EXPORTED(EngineClient, destroyAll),
      EXPORTED(EngineClient, call),
      EXPORTED(EngineClient, callConfigData),
      EXPORTED(EngineClient, callFrameManager),
      EXPORTED(EngineClient, registerCallback),
      EXPORTED(EngineClient, awaitNotifications),
      EXPORTED(EngineClient, takeNotifications),
      EXPORTED(EngineClient, getFrame),
      EXPORTED(EngineClient, releaseFrame),
      EXPORTED(EngineClient, setReceiver),
      EXPORTED(EngineClient, setFrameMs),
      EXPORTED(EngineClient, deliveriesUnderWay),
      EXPORTED(EngineClient, mostDeliveriesAtOnce),
      EXPORTED(EngineClient, awaitDelivery),
      EXPORTED(EngineClient, awaitFrames),
      EXPORTED(EngineClient, takeFrames),
      EXPORTED(EngineClient, callbackLetGoOnThread),
      EXPORTED(EngineClient, receiverOwners),
      EXPORTED(EngineClient, reset),
  };
}

#undef EXPORTED

// A JavaScript object with a function for each method of `object`, which is never destroyed.
template <typename Object>
Napi::Object exposed(Napi::Env env, Object& object, Exports<Object> methods) {
  auto exports = Napi::Object::New(env);
  for (auto& [name, method] : methods) {
    const auto function = [&object, method = method](const Napi::CallbackInfo& info) {
      Array args;
      for (std::size_t i = 0; i < info.Length(); ++i) args.push_back(fromJs(info[i]));
      try {
        return toJs(info.Env(), method(object, args));
      } catch (int number) {
        throw std::runtime_error("the integer " + std::to_string(number) + " was thrown");
      }
    };
    exports.Set(name, Napi::Function::New(env, function, name));
  }
  return exports;
}

// observeCalls(function), or of nothing for none. What the function throws is dropped.
void observeCalls(const Napi::CallbackInfo& info) {
  if (!info[0].IsFunction()) {
    ScriptedEngine::instance().observeCalls(nullptr);
    return;
  }
  const auto function =
      std::make_shared<Napi::FunctionReference>(Napi::Persistent(info[0].As<Napi::Function>()));
  ScriptedEngine::instance().observeCalls([function](const std::string& operation) {
    const Napi::Env env = function->Env();
    const Napi::HandleScope scope(env);
    try {
      function->Call({Napi::String::New(env, operation)});
    } catch (const Napi::Error&) {
    }
  });
}

EngineClient& client() {
  static EngineClient& only = *new EngineClient;
  return only;
}

Napi::Object init(Napi::Env env, Napi::Object exports) {
  exports.Set("engine", exposed(env, ScriptedEngine::instance(), engineExports()));
  exports.Set("observeCalls", Napi::Function::New(env, observeCalls, "observeCalls"));
  exports.Set("client", exposed(env, client(), clientExports()));
  exports.Set("failingOperations", toJs(env, toValue(ScriptedEngine::failingOperations())));
  exports.Set("operationsWithResult", toJs(env, toValue(ScriptedEngine::operationsWithResult())));
  exports.Set("thread", Napi::Number::New(env, ::gettid()));
  // All threads of the engine end before the environment that loaded the addon first.
  static bool hooked = false;
  if (!std::exchange(hooked, true)) {
    env.AddCleanupHook([] {
      ScriptedEngine::instance().reset();
      client().reset();
    });
  }
  return exports;
}

NODE_API_MODULE(scripted_engine, init)

}  // namespace
}  // namespace scripted
