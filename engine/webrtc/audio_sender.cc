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
    "opusenc inband-fec=true packet-loss-percentage=5 dtx=true ! rtpopuspay name=payloader "
    "dtx=true";

}  // namespace

AudioSender::AudioSender(PeerConnection& connection, bool isMuted) : ssrc_(g_random_int() | 1) {
  GstElement* const bin = makeBin(std::string(kSource) + kVoiceFormat + kEncoding);
  source_.reset(gst_bin_get_by_name(GST_BIN(bin), "source"));
  valve_.reset(gst_bin_get_by_name(GST_BIN(bin), "valve"));
  setMuted(isMuted);
  // The offer must name it: a server drops packets of an SSRC that no description named. Of itself
  // the payloader tells it with its first packet, which a device may give after the offer.
  const ObjectPtr<GstElement> payloader(gst_bin_get_by_name(GST_BIN(bin), "payloader"));
  g_object_set(payloader.get(), "ssrc", ssrc_, nullptr);
  const std::string caps =
      "application/x-rtp,media=audio,encoding-name=OPUS,clock-rate=48000,"
      "encoding-params=(string)2,payload=111,ssrc=(uint)" +
      std::to_string(ssrc_);
  const ObjectPtr<GstPad> place = connection.addPlace(caps);
  connection.addSender(bin, place.get());
}

void AudioSender::setMuted(bool isMuted) {
  g_object_set(valve_.get(), "drop", static_cast<gboolean>(isMuted), nullptr);
}

}  // namespace webrtc
