#include "engine/webrtc/audio_sender.h"

#include <string>

#include "engine/webrtc/sound_clip.h"

namespace webrtc {
namespace {

// Late pieces are dropped rather than queued.
constexpr const char* kSource =
    "appsrc name=source is-live=true format=time max-time=200000000 leaky-type=downstream caps=";
constexpr const char* kEncoding =
    " ! valve name=valve ! level interval=200000000 ! "
    "opusenc inband-fec=true packet-loss-percentage=5 dtx=true ! rtpopuspay";

}  // namespace

AudioSender::AudioSender(PeerConnection& connection, bool isMuted) {
  GstElement* const bin = makeBin(std::string(kSource) + kVoiceFormat + kEncoding);
  source_.reset(gst_bin_get_by_name(GST_BIN(bin), "source"));
  valve_.reset(gst_bin_get_by_name(GST_BIN(bin), "valve"));
  setMuted(isMuted);
  const ObjectPtr<GstPad> place = connection.addPlace(
      "application/x-rtp,media=audio,encoding-name=OPUS,clock-rate=48000,"
      "encoding-params=(string)2,payload=111");
  connection.addSender(bin, place.get());
}

void AudioSender::setMuted(bool isMuted) {
  g_object_set(valve_.get(), "drop", static_cast<gboolean>(isMuted), nullptr);
}

}  // namespace webrtc
