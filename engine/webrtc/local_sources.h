// What takes the place of a camera and of a microphone.

#ifndef ENGINE_WEBRTC_LOCAL_SOURCES_H_
#define ENGINE_WEBRTC_LOCAL_SOURCES_H_

#include <cstdint>
#include <memory>
#include <string>

#include "engine/support/pictures/y4m_clip.h"
#include "engine/webrtc/sound_clip.h"

namespace webrtc {

struct CameraSource {
  enum class Kind { kDevice, kCard, kClip };

  Kind kind = Kind::kDevice;
  std::uint32_t detail = 0;  // of a card's code
  std::string path;          // of a clip
  // The clip, once it was opened.
  std::shared_ptr<const support::Y4mClip> clip = {};

  bool operator==(const CameraSource&) const = default;
};

struct MicrophoneSource {
  enum class Kind { kDevice, kTone, kClip };

  Kind kind = Kind::kDevice;
  std::uint32_t hertz = 0;  // of a tone
  std::string path = {};    // of a clip
  // The clip, once it was opened.
  std::shared_ptr<const SoundClip> clip = {};
};

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_LOCAL_SOURCES_H_
