// What is heard and said in a call.

#ifndef ENGINE_WEBRTC_CALL_AUDIO_H_
#define ENGINE_WEBRTC_CALL_AUDIO_H_

#include <gst/gst.h>

#include <optional>
#include <string>

#include "engine/support/task_loop.h"
#include "engine/webrtc/device_pipeline.h"
#include "engine/webrtc/devices.h"
#include "engine/webrtc/glib.h"
#include "engine/webrtc/local_sources.h"
#include "engine/webrtc/speaker.h"

namespace webrtc {

// Plays the mixed voices on a speaker and captures with a microphone, or with what takes its place.
// These may change at any time; without them nothing is played and silence is sent. Owned by the
// call; belongs to the engine's thread.
class CallAudio {
 public:
  CallAudio(support::TaskLoop& loop, Devices& devices, MicrophoneSource source);
  CallAudio(const CallAudio&) = delete;
  CallAudio& operator=(const CallAudio&) = delete;

  Speaker& speaker() { return speaker_; }
  // From now on what is captured goes into `target`, an appsrc.
  void captureInto(ObjectPtr<GstElement> target);
  // Another device of this type is to be used.
  void deviceChanged(DeviceType type);

 private:
  void play();
  // The present player works.
  void played();
  void capture();
  bool isDeviceCaptured() const;
  // The start of what captures, and the elements that follow it.
  GstElement* makeSource();
  std::string processing() const;

  support::TaskLoop& loop_;
  Devices& devices_;
  const MicrophoneSource source_;
  Speaker speaker_;
  std::optional<DevicePipeline> player_;  // while there is a device that plays
  // That of the last player: a microphone that is being opened looks for it, and does not work
  // without it.
  ObjectPtr<GstElement> echoProbe_;
  bool hearsPlayer_ = false;      // the canceller of echoes of what captures
  ObjectPtr<GstElement> target_;  // null until something is to be captured
  std::optional<DevicePipeline> microphone_;
};

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_CALL_AUDIO_H_
