// The JavaScript class TesselWrapperProxy.

#ifndef ADDON_PROXY_TESSEL_WRAPPER_PROXY_H_
#define ADDON_PROXY_TESSEL_WRAPPER_PROXY_H_

#include <napi.h>

#include <cstdint>
#include <memory>

#include "addon/frames/frame_objects.h"
#include "addon/frames/lent_planes.h"
#include "addon/napi/environment_cleanup_hook.h"
#include "addon/sharedmem/shared_memory_manager.h"

namespace proxy {

// Reads, in a second process, the frames of the streams that the main process has put into widget
// mode. A frame is read in place: from getFrame or getLastFrame until releaseFrame its stream's
// segment stays locked, its typed arrays view the segment, and the main process's writer waits.
//
// Made with `new` and destroyed when the collector takes its JavaScript object, or earlier, when
// the environment ends. Every method runs on the main JavaScript thread.
class TesselWrapperProxy : public Napi::ObjectWrap<TesselWrapperProxy> {
 public:
  // Defines the class on `exports`, which it returns.
  static Napi::Object Init(Napi::Env env, Napi::Object exports);

  // new TesselWrapperProxy({ shm_name, sem_name }), the names of the main process's main segment.
  // Names that cannot be opened make a proxy that finds no stream.
  explicit TesselWrapperProxy(const Napi::CallbackInfo& info);
  ~TesselWrapperProxy() override;

 private:
  // Runs after the arguments were checked and read.
  TesselWrapperProxy(const Napi::CallbackInfo& info, const sharedmem::SharedMemoryKey& key);

  Napi::Value getFrame(const Napi::CallbackInfo& info);
  Napi::Value getLastFrame(const Napi::CallbackInfo& info);
  void releaseFrame(const Napi::CallbackInfo& info);
  void removeVideo(const Napi::CallbackInfo& info);

  // The source of the stream's frames; empty when there is none.
  std::shared_ptr<sharedmem::SharedMemoryVideoFrameSource> findSource(const StreamKey& key);
  Napi::Value readFrame(const std::shared_ptr<sharedmem::SharedMemoryVideoFrameSource>& source,
                        const StreamKey& key, std::int64_t lastFrameId);
  Napi::Value answerNotFound(const char* method);
  // When the JavaScript object is collected or its environment ends, whichever comes first.
  void end();

  // Class-wide, touched by the main environment only; left alone when the process ends.
  static Napi::FunctionReference constructor_;

  std::shared_ptr<sharedmem::SharedMemoryManager> manager_;
  frames::FrameObjects frameObjects_;
  frames::LentPlanes lentPlanes_;  // of the frames that are being read
  napi::EnvironmentCleanupHook cleanupHook_;
};

}  // namespace proxy

#endif  // ADDON_PROXY_TESSEL_WRAPPER_PROXY_H_
