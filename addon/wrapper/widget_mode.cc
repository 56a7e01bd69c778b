// TesselWrapper: streams whose frames are copied into shared memory for a second process.

#include "addon/napi/arguments.h"
#include "addon/napi/values.h"
#include "addon/utils/stream_key_argument.h"
#include "addon/wrapper/tessel_wrapper.h"
#include "base/diagnostic_line.h"

namespace wrapper {
namespace {

StreamKey readKey(const Napi::CallbackInfo& info) {
  napi::napiCheckArgLength(info, 1);
  return Utils::getStreamInfo(info);
}

void printSwitch(const char* what, const StreamKey& key) {
  base::DiagnosticLine(what).integer(key.first).text(", ").integer(key.second);
}

}  // namespace

// Frames arrive on an engine thread from the moment the receiver is registered until it is
// unregistered: the stream's segment is made before that and removed after it.

void TesselWrapper::enterWidgetMode(const Napi::CallbackInfo& info) {
  const StreamKey key = readKey(info);
  printSwitch("Enter Widget Mode for : ", key);
  if (sharedMemoryManager_->enableSharedMemory(key)) {
    streamManager_->registerFrameReciever(key, sharedMemoryManager_);
  }
}

void TesselWrapper::exitWidgetMode(const Napi::CallbackInfo& info) {
  const StreamKey key = readKey(info);
  printSwitch("Exit Widget Mode for : ", key);
  streamManager_->unregisterFrameReciever(key);
  sharedMemoryManager_->disableSharedMemory(key);
}

Napi::Value TesselWrapper::getSharedDataInfo(const Napi::CallbackInfo& info) {
  const Napi::Env env = info.Env();
  const sharedmem::SharedMemoryInfo& segment = sharedMemoryManager_->getSharedMemInfo();
  return napi::makeObject(env, {{"shm_name", napi::toJavascript(env, segment.shmName)},
                                {"sem_name", napi::toJavascript(env, segment.semName)}});
}

}  // namespace wrapper
