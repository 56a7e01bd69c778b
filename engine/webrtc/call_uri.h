// What a call's uri asks for.

#ifndef ENGINE_WEBRTC_CALL_URI_H_
#define ENGINE_WEBRTC_CALL_URI_H_

#include <string>

#include "engine/webrtc/local_sources.h"

namespace webrtc {

// A room of a server, and how to get in.
struct CallTarget {
  std::string url;            // of the server's WebSocket
  std::string authorityFile;  // PEM certificates that are trusted as well; may be empty
  std::string room;           // a number or a name
  std::string pin;            // of the room; may be empty
  std::string token;          // of the server or of the room; may be empty
  CameraSource camera;
  MicrophoneSource microphone;
};

// docs/webrtc-engine.md has the grammar. Throws CallFailure for anything else.
CallTarget parseCallUri(const std::string& uri);

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_CALL_URI_H_
