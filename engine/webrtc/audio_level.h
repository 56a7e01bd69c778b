// How loud something is, and whether that is speech.

#ifndef ENGINE_WEBRTC_AUDIO_LEVEL_H_
#define ENGINE_WEBRTC_AUDIO_LEVEL_H_

#include <gst/gst.h>

#include <functional>
#include <optional>
#include <utility>

#include "engine/support/task_loop.h"

namespace webrtc {

// What a level element tells, 0 to 100: 0 is -60 dB or less, 100 full scale. Nothing for any other
// message.
std::optional<unsigned> levelOf(GstMessage* message);

// Whether somebody speaks, by the levels of the last moment. No levels are silence, so that nothing
// need be received from who is silent. Belongs to the engine's thread.
class SpeechDetector {
 public:
  // `changed` is called after each change.
  SpeechDetector(support::TaskLoop& loop, std::function<void()> changed)
      : loop_(loop), changed_(std::move(changed)), timer_(loop) {}
  SpeechDetector(const SpeechDetector&) = delete;
  SpeechDetector& operator=(const SpeechDetector&) = delete;

  void heard(unsigned level);
  bool isSpeaking() const { return isSpeaking_; }

 private:
  void set(bool isSpeaking);

  support::TaskLoop& loop_;
  const std::function<void()> changed_;
  bool isSpeaking_ = false;
  support::Timer timer_;
};

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_AUDIO_LEVEL_H_
