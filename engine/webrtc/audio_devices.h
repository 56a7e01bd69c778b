// Microphones and speakers.

#ifndef ENGINE_WEBRTC_AUDIO_DEVICES_H_
#define ENGINE_WEBRTC_AUDIO_DEVICES_H_

#include <string>

#include "engine/webrtc/local_sources.h"

namespace webrtc {

// By PulseAudio's names; empty stands for the usual one.
struct AudioDevices {
  std::string microphone;
  std::string speaker;
};

// Descriptions of elements. They may block while PulseAudio is asked for the device.

// Where mixed audio goes: to a device, or nowhere when there is none.
std::string speakerElements(const std::string& device);
// Where raw audio comes from: out of a device with echo, noise and loudness taken care of, out of
// what stands in for one, or silence when there is none.
std::string microphoneElements(const MicrophoneSource& source, const std::string& device);

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_AUDIO_DEVICES_H_
