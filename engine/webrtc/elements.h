// What the engine needs of GStreamer.

#ifndef ENGINE_WEBRTC_ELEMENTS_H_
#define ENGINE_WEBRTC_ELEMENTS_H_

#include <vector>

namespace webrtc {

// An element of GStreamer that the engine uses, and the Debian package that has it.
struct ElementState {
  const char* factory;
  const char* package;
  bool isThere;
};

// All of them, also those of microphones and speakers, without which calls have no sound. Throws
// CallFailure when GStreamer does not start.
std::vector<ElementState> examineElements();

// Throws a CallFailure that names a missing element, without which there is no call, and the Debian
// package that has it.
void requireElements();

// Loads what a call needs and uses it once: the first use in a process costs up to a second. Blocks
// for that time; throws as requireElements() does.
void warmUpElements();

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_ELEMENTS_H_
