#include "addon/wrapper/tessel_wrapper.h"

#include <unistd.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "addon/napi/arguments.h"
#include "addon/napi/main_environment.h"
#include "addon/napi/record_reader.h"
#include "addon/napi/status.h"
#include "addon/napi/values.h"
#include "base/diagnostic_line.h"

namespace wrapper {

Napi::FunctionReference TesselWrapper::constructor_;
Napi::FunctionReference TesselWrapper::emitterFactory_;

namespace {

tsl::CreateParams readCreateParams(const Napi::CallbackInfo& info) {
  napi::requireMainEnvironment(info.Env(), "TesselWrapper");
  using Params = tsl::CreateParams;
  return napi::RecordReader<Params>(info, napi::onlyObject(info), "CreateParams")
      .read("appVersion", &Params::szAppVersion)
      .read("configPath", &Params::szConfigPath)
      .read("logPath", &Params::szLogPath)
      .read("logPrefix", &Params::szLogPrefix)
      .read("userAgent", &Params::szUserAgent)
      .take();
}

void printCreateParams(const tsl::CreateParams& params) {
  const auto print = [](const char* field, const std::string& text) {
    base::DiagnosticLine("TesselWrapper::TesselWrapper Params params.")
        .text(field)
        .text(": ")
        .text(text.c_str());
  };
  print("szAppVersion", params.szAppVersion);
  print("szConfigPath", params.szConfigPath);
  print("szLogPath", params.szLogPath);
  print("szLogPrefix", params.szLogPrefix);
  print("szUserAgent", params.szUserAgent);
}

// "<what>Pid:<process id>, obj:<address>", after which integers print in hexadecimal. So does the
// process id, except in the first such line of the process, whatever base other lines have left.
void printProcessAndObject(const char* what, const void* object) {
  static bool isFirst = true;
  base::DiagnosticLine line(what);
  line.text("Pid:");
  if (std::exchange(isFirst, false)) {
    line.dec(getpid());
  } else {
    line.hexadecimal().integer(getpid());
  }
  line.text(", obj:").hexadecimal().address(object);
}

}  // namespace

Napi::Object TesselWrapper::Init(Napi::Env env, Napi::Object exports) {
  const Napi::HandleScope scope(env);
  // The order and the kinds, with and without a value, are part of the interface.
  const std::vector<Napi::ClassPropertyDescriptor<TesselWrapper>> methods = {
      StaticMethod<&TesselWrapper::setEmitterFactory>("_internal_setEmitterFactory"),
      InstanceMethod<&TesselWrapper::destroy>("destroy"),
      InstanceMethod<&TesselWrapper::on>("on"),
      InstanceMethod<&TesselWrapper::connectCall>("connectCall"),
      InstanceMethod<&TesselWrapper::disconnectCall>("disconnectCall"),
      InstanceMethod<&TesselWrapper::updateMediaStreamState>("updateMediaStreamState"),
      InstanceMethod<&TesselWrapper::muteLocalVideo>("muteLocalVideo"),
      InstanceMethod<&TesselWrapper::muteLocalAudio>("muteLocalAudio"),
      InstanceMethod<&TesselWrapper::setRemoteAudioMute>("setRemoteAudioMute"),
      InstanceMethod<&TesselWrapper::enableCameraCapture>("enableCameraCapture"),
      InstanceMethod<&TesselWrapper::startPresentation>("startPresentation"),
      InstanceMethod<&TesselWrapper::stopPresentation>("stopPresentation"),
      InstanceMethod<&TesselWrapper::requestContentShareToken>("requestContentShareToken"),
      InstanceMethod<&TesselWrapper::releaseContentShareToken>("releaseContentShareToken"),
      InstanceMethod<&TesselWrapper::selectDevices>("selectDevices"),
      InstanceMethod<&TesselWrapper::setVideoDevice>("setVideoDevice"),
      InstanceMethod<&TesselWrapper::setAudioInDevice>("setAudioInDevice"),
      InstanceMethod<&TesselWrapper::setAudioOutDevice>("setAudioOutDevice"),
      InstanceMethod<&TesselWrapper::setAudioDebug>("setAudioDebug"),
      InstanceMethod<&TesselWrapper::sendAudioDeviceStats>("sendAudioDeviceStats"),
      InstanceMethod<&TesselWrapper::registerEvent>("registerEvent"),
      InstanceMethod<&TesselWrapper::unregisterEvent>("unregisterEvent"),
      InstanceMethod<&TesselWrapper::getFrame>("getFrame"),
      InstanceMethod<&TesselWrapper::releaseFrame>("releaseFrame"),
      InstanceMethod<&TesselWrapper::updateConfigData>("updateConfigData"),
      InstanceMethod<&TesselWrapper::getConfigData>("getConfigData"),
      InstanceMethod<&TesselWrapper::configureMeetingStats>("configureMeetingStats"),
      InstanceMethod<&TesselWrapper::getMeetingStats>("getMeetingStats"),
      InstanceMethod<&TesselWrapper::getScreenMonitorDetails>("getScreenMonitorDetails"),
      InstanceMethod<&TesselWrapper::updateVideoStreamsState>("updateVideoStreamsState"),
      InstanceMethod<&TesselWrapper::getLastFrame>("getLastFrame"),
      InstanceMethod<&TesselWrapper::enterWidgetMode>("enterWidgetMode"),
      InstanceMethod<&TesselWrapper::exitWidgetMode>("exitWidgetMode"),
      InstanceMethod<&TesselWrapper::getSharedDataInfo>("getSharedDataInfo"),
      InstanceMethod<&TesselWrapper::getMediaMeetingAttributes>("getMediaMeetingAttributes"),
  };
  const Napi::Function definition = DefineClass(env, "TesselWrapper", methods);
  if (napi::isMainEnvironment(env)) {
    constructor_ = Napi::Persistent(definition);
    constructor_.SuppressDestruct();
    // The factory's reference must be released before its environment ends.
    const auto dropFactory = [](void*) { emitterFactory_.Reset(); };
    // Node.js requires a unique argument for each hook.
    napi::checkStatus(env, napi_add_env_cleanup_hook(env, dropFactory, static_cast<napi_env>(env)));
  }
  napi::setProperty(exports, "TesselWrapper", definition);
  return exports;
}

TesselWrapper::TesselWrapper(const Napi::CallbackInfo& info)
    : TesselWrapper(info, readCreateParams(info)) {}

TesselWrapper::TesselWrapper(const Napi::CallbackInfo& info, const tsl::CreateParams& params)
    : Napi::ObjectWrap<TesselWrapper>(info),
      frameObjects_(info.Env()),
      cleanupHook_(info.Env(), [this] { end(); }) {
  const Napi::Env env = info.Env();
  printCreateParams(params);
  try {
    dispatcher_ = std::make_shared<events::JavascriptDispatcher>(env);
    createAndRunTessel(params);
    eventHandler_->WaitForInitEvent();
    obtainEmitter(env);
  } catch (...) {
    release();
    throw;
  }
  printProcessAndObject("TesselWrapper: ", this);
}

TesselWrapper::~TesselWrapper() { cleanupHook_.run(); }

void TesselWrapper::end() {
  printProcessAndObject("~TesselWrapper: ", this);
  release();
}

void TesselWrapper::createAndRunTessel(const tsl::CreateParams& params) {
  manager_.reset(TSLM::TSLMManager::CreateTSLMManager(params));
  if (!manager_) throw std::runtime_error("The engine library made no engine");
  streamManager_ = std::make_shared<frames::StreamManager>(manager_);
  eventHandler_ = std::make_shared<events::TesselEventHandler>(dispatcher_, streamManager_);
  manager_->RegisterNotifyCallback(eventHandler_);
  sharedMemoryManager_ = sharedmem::SharedMemoryManager::CreateSharedMemoryManager();
  manager_->Initialize();
}

void TesselWrapper::obtainEmitter(Napi::Env env) {
  if (emitterFactory_.IsEmpty()) {
    throw Napi::Error::New(
        env, "No emitter factory: call TesselWrapper._internal_setEmitterFactory first");
  }
  const Napi::EscapableHandleScope scope(env);
  napi_value made = nullptr;
  napi::checkStatus(
      env, napi_call_function(env, env.Undefined(), emitterFactory_.Value(), 0, nullptr, &made));
  const Napi::Object object(env, made);
  // Node-API also makes references to symbols. It refuses any other value that is no object with
  // this message.
  if (object.IsSymbol()) throw Napi::Error::New(env, "Invalid argument");
  emitter_ = napi::weakReference(object);
  eventHandler_->setEmitter(object);
}

void TesselWrapper::release() {
  // No event may reach a handler that is being destroyed. The engine may hold the handler, through
  // it the dispatcher, and the receiver of a stream's frames longer than this object lives.
  if (dispatcher_) dispatcher_->close();
  if (eventHandler_) eventHandler_->detach();
  if (sharedMemoryManager_) sharedMemoryManager_->close();
  retainedPlanes_.takeBackAll();
  clearPlanes_.takeBackAll();
  sharedMemoryManager_.reset();
  eventHandler_.reset();
  streamManager_.reset();
  dispatcher_.reset();
  manager_.reset();
}

void TesselWrapper::setEmitterFactory(const Napi::CallbackInfo& info) {
  const Napi::Env env = info.Env();
  const Napi::Value factory = info[0];
  if (!factory.IsFunction()) {
    throw Napi::TypeError::New(env, "Wrong argument type for argument 1, expected Function");
  }
  napi::requireMainEnvironment(env, "TesselWrapper");
  emitterFactory_ = Napi::Persistent(factory.As<Napi::Function>());
}

void TesselWrapper::on(const Napi::CallbackInfo& info) {
  const Napi::Env env = info.Env();
  napi::napiCheckArgLength(info, 2);
  const std::string eventName = napi::napiGetArgAsString(info, 0);
  const Napi::Value listener = info[1];
  if (!listener.IsFunction()) {
    throw Napi::TypeError::New(env, "Wrong argument type for argument 2, expected Function");
  }
  const napi_value arguments[] = {napi::toJavascript(env, eventName), listener};
  const Napi::Object target = emitter_.Value();
  if (target.IsEmpty()) throw Napi::Error::New(env, "The event emitter was garbage-collected");
  napi_value subscribe = nullptr;
  napi::checkStatus(env, napi_get_named_property(env, target, "on", &subscribe));
  napi::checkStatus(
      env, napi_call_function(env, target, subscribe, std::size(arguments), arguments, nullptr));
}

void TesselWrapper::destroy(const Napi::CallbackInfo&) {
  // Done before the engine is called, so that the process can end even if the engine throws. The
  // reference keeps this object alive until what the engine has reported is delivered.
  Ref();
  dispatcher_->async([this](Napi::Env) { Unref(); });
  dispatcher_->releaseEventLoop();
  manager_->DeInitialize();
  TSLM::TSLMManager::DestroyTSLMManager();
  base::DiagnosticLine("TesselWrapper::destroy: ").address(this);
}

}  // namespace wrapper
