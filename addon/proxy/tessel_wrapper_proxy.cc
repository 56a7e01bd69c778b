#include "addon/proxy/tessel_wrapper_proxy.h"

#include <unistd.h>

#include <utility>
#include <vector>

#include "addon/napi/arguments.h"
#include "addon/napi/main_environment.h"
#include "addon/napi/object_property_helper.h"
#include "addon/napi/status.h"
#include "addon/napi/values.h"
#include "addon/utils/stream_key_argument.h"
#include "base/diagnostic_line.h"

namespace proxy {

Napi::FunctionReference TesselWrapperProxy::constructor_;

namespace {

sharedmem::SharedMemoryKey readKey(const Napi::CallbackInfo& info) {
  napi::requireMainEnvironment(info.Env(), "TesselWrapperProxy");
  const napi::NapiObjectPropertyHelper helper(info, napi::onlyObject(info), "SharedData");
  sharedmem::SharedMemoryKey key;
  key.shmName = helper.getAsString("shm_name");
  key.semName = helper.getAsString("sem_name");
  return key;
}

}  // namespace

Napi::Object TesselWrapperProxy::Init(Napi::Env env, Napi::Object exports) {
  const Napi::HandleScope scope(env);
  const std::vector<Napi::ClassPropertyDescriptor<TesselWrapperProxy>> methods = {
      InstanceMethod<&TesselWrapperProxy::getFrame>("getFrame"),
      InstanceMethod<&TesselWrapperProxy::getLastFrame>("getLastFrame"),
      InstanceMethod<&TesselWrapperProxy::releaseFrame>("releaseFrame"),
      InstanceMethod<&TesselWrapperProxy::removeVideo>("removeVideo"),
  };
  const Napi::Function definition = DefineClass(env, "TesselWrapperProxy", methods);
  if (napi::isMainEnvironment(env)) {
    constructor_ = Napi::Persistent(definition);
    constructor_.SuppressDestruct();
  }
  napi::setProperty(exports, "TesselWrapperProxy", definition);
  return exports;
}

TesselWrapperProxy::TesselWrapperProxy(const Napi::CallbackInfo& info)
    : TesselWrapperProxy(info, readKey(info)) {}

TesselWrapperProxy::TesselWrapperProxy(const Napi::CallbackInfo& info,
                                       const sharedmem::SharedMemoryKey& key)
    : Napi::ObjectWrap<TesselWrapperProxy>(info),
      frameObjects_(info.Env()),
      cleanupHook_(info.Env(), [this] { end(); }) {
  base::DiagnosticLine("TesselWrapperProxy::TesselWrapperProxy Params shm_name: ")
      .text(key.shmName.c_str())
      .text(", sem_name: ")
      .text(key.semName.c_str());
  manager_ = sharedmem::SharedMemoryManager::CreateSharedMemoryManagerWithKey(key);
  base::DiagnosticLine("TesselWrapperProxy: Pid:")
      .dec(getpid())
      .text(", obj:")
      .hexadecimal()
      .address(this);
}

TesselWrapperProxy::~TesselWrapperProxy() { cleanupHook_.run(); }

void TesselWrapperProxy::end() {
  base::DiagnosticLine("~TesselWrapperProxy: Pid:")
      .integer(getpid())
      .text(", obj:")
      .hexadecimal()
      .address(this);
  lentPlanes_.takeBackAll();
  manager_.reset();
}

std::shared_ptr<sharedmem::SharedMemoryVideoFrameSource> TesselWrapperProxy::findSource(
    const StreamKey& key) {
  auto source = manager_->getVideoFrameSource(key);
  // The frame of a stream that was just dropped ends. The frame of a stream that cannot be looked
  // up, because another process holds the main segment's lock, stays valid.
  if (!source && !manager_->holdsVideoFrameSource(key)) lentPlanes_.takeBack(key);
  return source;
}

Napi::Value TesselWrapperProxy::readFrame(
    const std::shared_ptr<sharedmem::SharedMemoryVideoFrameSource>& source, const StreamKey& key,
    std::int64_t lastFrameId) {
  // A null frame, unless the segment can be locked.
  VideoFrame frame;
  frame.noUpdate = true;
  const bool isLocked = source->getVideoFrame(frame, static_cast<std::uint64_t>(lastFrameId));
  try {
    return frameObjects_.initFrame(key, frame, source, lentPlanes_);
  } catch (...) {
    lentPlanes_.takeBack(key);
    if (isLocked) source->releaseVideoFrame();
    throw;
  }
}

Napi::Value TesselWrapperProxy::answerNotFound(const char* method) {
  base::DiagnosticLine(method).text(": shared memory video frame not found");
  return frameObjects_.initNullFrame();
}

Napi::Value TesselWrapperProxy::getFrame(const Napi::CallbackInfo& info) {
  const StreamKey key = Utils::getStreamInfo(info);
  const auto source = findSource(key);
  if (!source) return answerNotFound("getFrame");
  return readFrame(source, key, napi::toInt64(info[1]));
}

Napi::Value TesselWrapperProxy::getLastFrame(const Napi::CallbackInfo& info) {
  const StreamKey key = Utils::getStreamInfo(info);
  const auto source = findSource(key);
  if (!source) return answerNotFound("getLastFrame");
  return readFrame(source, key, 0);
}

void TesselWrapperProxy::releaseFrame(const Napi::CallbackInfo& info) {
  const StreamKey key = Utils::getStreamInfo(info);
  const auto source = findSource(key);
  if (!source) return;
  lentPlanes_.takeBack(key);
  source->releaseVideoFrame();
}

void TesselWrapperProxy::removeVideo(const Napi::CallbackInfo& info) {
  const StreamKey key = Utils::getStreamInfo(info);
  lentPlanes_.takeBack(key);
  manager_->removeVideoFrameSource(key);
}

}  // namespace proxy
