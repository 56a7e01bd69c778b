// The description of a video that is sent in several layers.

#ifndef ENGINE_WEBRTC_VIDEO_LAYERS_H_
#define ENGINE_WEBRTC_VIDEO_LAYERS_H_

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace webrtc {

// Of one layer.
struct LayerSsrcs {
  std::uint32_t video = 0;
  std::uint32_t repeatedVideo = 0;  // packets of it that are sent again
};

// This offer of a video in one layer, the highest, with these layers below it, the higher first.
// The layers and their repetitions are told by SSRC: Janus 1.1 takes a repetition for a packet of
// another layer when they are told by names in the packets' headers.
std::string withLowerLayers(const std::string& offer, const std::vector<LayerSsrcs>& lower);

// By the SSRC of what this description offers, that of its repetitions.
std::map<std::uint32_t, std::uint32_t> repetitionSsrcs(const std::string& description);

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_VIDEO_LAYERS_H_
