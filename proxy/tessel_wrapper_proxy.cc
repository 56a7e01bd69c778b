#include "proxy/tessel_wrapper_proxy.h"

#include <unistd.h>

#include <vector>

#include "base/diagnostic_line.h"
#include "frames/stream_key_argument.h"
#include "napi/arguments.h"
#include "napi/main_environment.h"
#include "napi/object_property_helper.h"
#include "napi/status.h"
#include "napi/values.h"

Napi::FunctionReference TesselWrapperProxy::constructor;

namespace {

Napi::Env requireMain(Napi::Env env) {
  Utils::requireMainEnvironment(env, "TesselWrapperProxy");
  return env;
}

SharedMemoryKey readKey(const Napi::CallbackInfo& info) {
  napiCheckArgLength(info, 1);
  const NapiObjectPropertyHelper helper(info, napiGetArgAsObject(info, 0), "SharedData");
  SharedMemoryKey key;
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
  if (Utils::isMainEnvironment(env)) {
    constructor = Napi::Persistent(definition);
    constructor.SuppressDestruct();
  }
  Utils::setProperty(exports, "TesselWrapperProxy", definition);
  return exports;
}

TesselWrapperProxy::TesselWrapperProxy(const Napi::CallbackInfo& info)
    : Napi::ObjectWrap<TesselWrapperProxy>(info),
      frameObjects(requireMain(info.Env())),
      cleanupHook(info.Env(), [this] { release(); }) {
  const SharedMemoryKey key = readKey(info);
  base::DiagnosticLine("TesselWrapperProxy::TesselWrapperProxy Params shm_name: ")
      .text(key.shmName)
      .text(", sem_name: ")
      .text(key.semName);
  manager = SharedMemoryManager::CreateSharedMemoryManagerWithKey(key);
  base::DiagnosticLine("TesselWrapperProxy: Pid:")
      .dec(getpid())
      .text(", obj:")
      .hexadecimal()
      .address(this);
}

TesselWrapperProxy::~TesselWrapperProxy() {
  base::DiagnosticLine("~TesselWrapperProxy: Pid:")
      .integer(getpid())
      .text(", obj:")
      .hexadecimal()
      .address(this);
  release();
}

void TesselWrapperProxy::release() {
  lentPlanes.takeBackAll();
  manager.reset();
}

std::shared_ptr<SharedMemoryVideoFrameSource> TesselWrapperProxy::findSource(const char* method,
                                                                             const StreamKey& key) {
  auto source = manager->getVideoFrameSource(key);
  if (!source) {
    // The look-up may have unmapped what was lent.
    lentPlanes.takeBack(key);
    base::DiagnosticLine(method).text(": shared memory video frame not found");
  }
  return source;
}

Napi::Value TesselWrapperProxy::readFrame(SharedMemoryVideoFrameSource& source,
                                          const StreamKey& key, std::int64_t lastFrameId) {
  // What stays as it is when the segment cannot be locked: a null frame.
  VideoFrame frame;
  frame.noUpdate = true;
  source.getVideoFrame(frame, static_cast<std::uint64_t>(lastFrameId));
  try {
    return frameObjects.initFrame(key, frame, lentPlanes);
  } catch (...) {
    lentPlanes.takeBack(key);
    source.releaseVideoFrame();
    throw;
  }
}

Napi::Value TesselWrapperProxy::getFrame(const Napi::CallbackInfo& info) {
  const StreamKey key = Utils::getStreamInfo(info);
  const auto source = findSource("getFrame", key);
  if (!source) return frameObjects.initNullFrame();
  return readFrame(*source, key, Utils::toInt64(info[1]));
}

Napi::Value TesselWrapperProxy::getLastFrame(const Napi::CallbackInfo& info) {
  const StreamKey key = Utils::getStreamInfo(info);
  const auto source = findSource("getLastFrame", key);
  if (!source) return frameObjects.initNullFrame();
  return readFrame(*source, key, 0);
}

void TesselWrapperProxy::releaseFrame(const Napi::CallbackInfo& info) {
  const StreamKey key = Utils::getStreamInfo(info);
  const auto source = manager->getVideoFrameSource(key);
  lentPlanes.takeBack(key);
  if (source) source->releaseVideoFrame();
}

void TesselWrapperProxy::removeVideo(const Napi::CallbackInfo& info) {
  const StreamKey key = Utils::getStreamInfo(info);
  lentPlanes.takeBack(key);
  manager->removeVideoFrameSource(key);
}
