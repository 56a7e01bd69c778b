// The capturing, encoding and sending of the local audio.

#ifndef ENGINE_WEBRTC_AUDIO_SENDER_H_
#define ENGINE_WEBRTC_AUDIO_SENDER_H_

#include <gst/gst.h>

#include <string>

#include "engine/webrtc/glib.h"
#include "engine/webrtc/peer_connection.h"

namespace webrtc {

// Puts what a microphone hears as Opus into a connection. Owned by the publisher; belongs to the
// engine's thread.
class AudioSender {
 public:
  // `microphone` describes the elements from which raw audio flows.
  AudioSender(PeerConnection& connection, const std::string& microphone, bool isMuted);
  AudioSender(const AudioSender&) = delete;
  AudioSender& operator=(const AudioSender&) = delete;

  // Nothing is encoded or sent while muted.
  void setMuted(bool isMuted);

 private:
  ObjectPtr<GstElement> valve_;
};

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_AUDIO_SENDER_H_
