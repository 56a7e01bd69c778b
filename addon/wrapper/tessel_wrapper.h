// The JavaScript class TesselWrapper.

#ifndef ADDON_WRAPPER_TESSEL_WRAPPER_H_
#define ADDON_WRAPPER_TESSEL_WRAPPER_H_

#include <napi.h>

#include <memory>
#include <optional>

#include "addon/events/javascript_dispatcher.h"
#include "addon/events/tessel_event_handler.h"
#include "addon/frames/frame_objects.h"
#include "addon/frames/lent_planes.h"
#include "addon/frames/stream_manager.h"
#include "addon/napi/environment_cleanup_hook.h"
#include "addon/sharedmem/shared_memory_manager.h"
#include "tesselclient/tslm_manager.h"

namespace wrapper {

// Owns one media engine and gives JavaScript its operations, its notifications as events, and its
// video frames. Made with `new` and destroyed when the collector takes its JavaScript object, or
// earlier, when the environment ends. Every method runs on the main JavaScript thread and calls the
// engine synchronously; outcomes reach JavaScript as events.
//
// A method checks and reads all of its arguments before it calls the engine, so that a bad argument
// (a TypeError with one of the fixed texts) leaves everything as it was. What the engine
// throws becomes a JavaScript Error.
class TesselWrapper : public Napi::ObjectWrap<TesselWrapper> {
 public:
  // Defines the class on `exports`, which it returns.
  static Napi::Object Init(Napi::Env env, Napi::Object exports);

  // new TesselWrapper({ appVersion, configPath, logPath, logPrefix, userAgent }), all strings.
  // Blocks until the engine reports that it is initialised.
  explicit TesselWrapper(const Napi::CallbackInfo& info);
  ~TesselWrapper() override;

 private:
  // Lifecycle (tessel_wrapper.cc).
  static void setEmitterFactory(const Napi::CallbackInfo& info);
  void destroy(const Napi::CallbackInfo& info);
  void on(const Napi::CallbackInfo& info);

  // call_connection.cc
  void connectCall(const Napi::CallbackInfo& info);
  void disconnectCall(const Napi::CallbackInfo& info);

  // media_state_and_devices.cc
  void updateMediaStreamState(const Napi::CallbackInfo& info);
  void muteLocalVideo(const Napi::CallbackInfo& info);
  void muteLocalAudio(const Napi::CallbackInfo& info);
  void setRemoteAudioMute(const Napi::CallbackInfo& info);
  void enableCameraCapture(const Napi::CallbackInfo& info);
  void selectDevices(const Napi::CallbackInfo& info);
  void setVideoDevice(const Napi::CallbackInfo& info);
  void setAudioInDevice(const Napi::CallbackInfo& info);
  void setAudioOutDevice(const Napi::CallbackInfo& info);
  void setAudioDebug(const Napi::CallbackInfo& info);
  void sendAudioDeviceStats(const Napi::CallbackInfo& info);

  // content_sharing.cc
  void startPresentation(const Napi::CallbackInfo& info);
  void stopPresentation(const Napi::CallbackInfo& info);
  void requestContentShareToken(const Napi::CallbackInfo& info);
  void releaseContentShareToken(const Napi::CallbackInfo& info);
  Napi::Value getScreenMonitorDetails(const Napi::CallbackInfo& info);

  // video_stream_layout.cc
  void updateVideoStreamsState(const Napi::CallbackInfo& info);

  // meeting_statistics.cc
  void configureMeetingStats(const Napi::CallbackInfo& info);
  Napi::Value getMeetingStats(const Napi::CallbackInfo& info);
  Napi::Value getMediaMeetingAttributes(const Napi::CallbackInfo& info);

  // configuration.cc
  Napi::Value getConfigData(const Napi::CallbackInfo& info);
  void updateConfigData(const Napi::CallbackInfo& info);
  void registerEvent(const Napi::CallbackInfo& info);
  void unregisterEvent(const Napi::CallbackInfo& info);

  // widget_mode.cc
  void enterWidgetMode(const Napi::CallbackInfo& info);
  void exitWidgetMode(const Napi::CallbackInfo& info);
  Napi::Value getSharedDataInfo(const Napi::CallbackInfo& info);

  // frame_access.cc
  Napi::Value getFrame(const Napi::CallbackInfo& info);
  Napi::Value getLastFrame(const Napi::CallbackInfo& info);
  void releaseFrame(const Napi::CallbackInfo& info);

  // Runs after the arguments were checked and read.
  TesselWrapper(const Napi::CallbackInfo& info, const tsl::CreateParams& params);
  void createAndRunTessel(const tsl::CreateParams& params);
  void obtainEmitter(Napi::Env env);
  // When the JavaScript object is collected or its environment ends, whichever comes first.
  void end();
  // Ends everything that the wrapper owns. More calls do nothing.
  void release();

  // Class-wide, touched by the main environment only. The constructor is kept for native code that
  // needs the class later, and is never released; the factory is released before the environment
  // ends.
  static Napi::FunctionReference constructor_;
  static Napi::FunctionReference emitterFactory_;

  Napi::ObjectReference emitter_;  // weak: JavaScript keeps the emitter alive
  std::shared_ptr<TSLM::TSLMManager> manager_;
  std::shared_ptr<events::JavascriptDispatcher> dispatcher_;
  std::shared_ptr<frames::StreamManager> streamManager_;
  std::shared_ptr<events::TesselEventHandler> eventHandler_;
  std::shared_ptr<sharedmem::SharedMemoryManager> sharedMemoryManager_;

  frames::FrameObjects frameObjects_;
  frames::LentPlanes retainedPlanes_;  // of the stream manager's last frames
  frames::LentPlanes
      clearPlanes_;  // of frames that were not retained, until the stream's next frame
  napi::EnvironmentCleanupHook cleanupHook_;
};

}  // namespace wrapper

#endif  // ADDON_WRAPPER_TESSEL_WRAPPER_H_
