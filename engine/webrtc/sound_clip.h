// Sound files in the place of a microphone.

#ifndef ENGINE_WEBRTC_SOUND_CLIP_H_
#define ENGINE_WEBRTC_SOUND_CLIP_H_

#include <gst/gst.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace webrtc {

// What a microphone of ours gives: one channel of 16 bits.
constexpr const char* kVoiceFormat =
    "audio/x-raw,format=S16LE,rate=48000,channels=1,layout=interleaved";

// The sound of a WAV file in that format, checked from end to end. May be read from any thread.
class SoundClip {
 public:
  // GStreamer is initialised. Throws support::ClipError.
  explicit SoundClip(const std::string& path);
  SoundClip(const SoundClip&) = delete;
  SoundClip& operator=(const SoundClip&) = delete;

  // At least one.
  const std::vector<std::int16_t>& samples() const { return samples_; }

 private:
  std::vector<std::int16_t> samples_;
};

// An element that plays the clip again and again, without a gap, as time goes by for whoever is in
// step with the clock.
GstElement* makeLoop(std::shared_ptr<const SoundClip> clip);

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_SOUND_CLIP_H_
