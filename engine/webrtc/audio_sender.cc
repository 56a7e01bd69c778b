#include "engine/webrtc/audio_sender.h"

namespace webrtc {
namespace {

constexpr const char* kEncoding =
    " ! audioconvert ! audioresample ! audio/x-raw,rate=48000 ! valve name=valve ! "
    "level interval=200000000 ! "
    "opusenc inband-fec=true packet-loss-percentage=5 dtx=true ! rtpopuspay";

}  // namespace

AudioSender::AudioSender(PeerConnection& connection, const std::string& microphone, bool isMuted) {
  GstElement* const bin = makeBin(microphone + kEncoding);
  valve_.reset(gst_bin_get_by_name(GST_BIN(bin), "valve"));
  setMuted(isMuted);
  connection.addSender(bin,
                       "application/x-rtp,media=audio,encoding-name=OPUS,clock-rate=48000,"
                       "encoding-params=(string)2,payload=111");
}

void AudioSender::setMuted(bool isMuted) {
  g_object_set(valve_.get(), "drop", static_cast<gboolean>(isMuted), nullptr);
}

}  // namespace webrtc
