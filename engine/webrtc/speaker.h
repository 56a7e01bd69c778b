// The mixing and playing of what the others say.

#ifndef ENGINE_WEBRTC_SPEAKER_H_
#define ENGINE_WEBRTC_SPEAKER_H_

#include <gst/gst.h>

#include <atomic>
#include <cstdint>
#include <memory>

#include "base/mutex.h"
#include "engine/webrtc/glib.h"
#include "engine/webrtc/pipeline.h"

namespace webrtc {

class SpeakerInput;

// Describes elements out of which a mix flows, the appsrc among them being named "source".
extern const char* const kMixedSource;

// Mixes its inputs as long as it lives. Owned by the call; belongs to the engine's thread, except
// for the mixer's own.
class Speaker {
 public:
  Speaker();
  ~Speaker() = default;
  Speaker(const Speaker&) = delete;
  Speaker& operator=(const Speaker&) = delete;

  // The input must go before the speaker does.
  std::unique_ptr<SpeakerInput> addInput();
  void setMuted(bool isMuted);
  // The mix goes into `source`, that of a kMixedSource; nowhere when it is null.
  void setOutput(ObjectPtr<GstElement> source) EXCLUDES(mutex_);
  // How loud the mix is, 0 to 100, measured five times a second; 0 while it goes nowhere.
  unsigned level() const EXCLUDES(mutex_);

 private:
  // On the mixer's thread.
  void passMixOn(GstSample* sample) EXCLUDES(mutex_);

  std::atomic<unsigned> level_ = 0;
  mutable base::Mutex mutex_;
  ObjectPtr<GstElement> output_ GUARDED_BY(mutex_);
  // Last: its threads use the rest.
  const PipelinePtr pipeline_;
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
  // How many lost packets the decoders have replaced with repair data since the last call.
  std::uint64_t takeRepairedPackets() { return repairedPackets_->exchange(0); }

 private:
  const std::shared_ptr<std::atomic<std::uint64_t>> repairedPackets_ =
      std::make_shared<std::atomic<std::uint64_t>>(0);
  GstBin* const pipeline_;
  GstElement* const mixer_;
  const ObjectPtr<GstElement> source_;
  const ObjectPtr<GstPad> mixerPad_;
};

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_SPEAKER_H_
