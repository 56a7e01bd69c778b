// The encoding and sending of the local audio.

#ifndef ENGINE_WEBRTC_AUDIO_SENDER_H_
#define ENGINE_WEBRTC_AUDIO_SENDER_H_

#include <gst/gst.h>

#include <cstdint>

#include "engine/webrtc/glib.h"
#include "engine/webrtc/peer_connection.h"

namespace webrtc {

// Puts what a microphone captures as Opus into a connection. Owned by the publisher; belongs to the
// engine's thread.
class AudioSender {
 public:
  AudioSender(PeerConnection& connection, bool isMuted);
  AudioSender(const AudioSender&) = delete;
  AudioSender& operator=(const AudioSender&) = delete;

  // Nothing is encoded or sent while muted.
  void setMuted(bool isMuted);
  // An appsrc, into which the microphone's buffers go.
  ObjectPtr<GstElement> source() const { return share(source_.get()); }
  std::uint32_t ssrc() const { return ssrc_; }

 private:
  const std::uint32_t ssrc_;
  ObjectPtr<GstElement> source_;
  ObjectPtr<GstElement> valve_;
};

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_AUDIO_SENDER_H_
