// What the engine needs of GStreamer.

#ifndef ENGINE_WEBRTC_ELEMENTS_H_
#define ENGINE_WEBRTC_ELEMENTS_H_

namespace webrtc {

// Throws a CallFailure that names a missing element and the Debian package that has it.
void requireElements();

// Loads what a call needs and uses it once: the first use in a process costs up to a second. Blocks
// for that time; throws as requireElements() does.
void warmUpElements();

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_ELEMENTS_H_
