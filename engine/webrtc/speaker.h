// The mixing and playing of what the others say.

#ifndef ENGINE_WEBRTC_SPEAKER_H_
#define ENGINE_WEBRTC_SPEAKER_H_

#include <gst/gst.h>

#include <memory>
#include <string>

#include "engine/webrtc/glib.h"
#include "engine/webrtc/pipeline.h"

namespace webrtc {

class SpeakerInput;

// Plays the sum of its inputs as long as it lives. Owned by the call; belongs to the engine's
// thread.
class Speaker {
 public:
  // `sink` describes the element that plays.
  explicit Speaker(const std::string& sink);
  Speaker(const Speaker&) = delete;
  Speaker& operator=(const Speaker&) = delete;

  // The input must go before the speaker does.
  std::unique_ptr<SpeakerInput> addInput();
  void setMuted(bool isMuted);

 private:
  PipelinePtr pipeline_;
  ObjectPtr<GstElement> mixer_;
};

// One voice. Belongs to the engine's thread, except for its decoders.
class SpeakerInput {
 public:
  SpeakerInput(GstBin* pipeline, GstElement* mixer);
  // Falls silent.
  ~SpeakerInput();
  SpeakerInput(const SpeakerInput&) = delete;
  SpeakerInput& operator=(const SpeakerInput&) = delete;

  // Elements that decode Opus packets into this input. May be called from any thread; they may
  // outlive the input, and then decode for nobody.
  GstElement* makeDecoder() const;

 private:
  GstBin* const pipeline_;
  GstElement* const mixer_;
  const ObjectPtr<GstElement> source_;
  const ObjectPtr<GstPad> mixerPad_;
};

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_SPEAKER_H_
