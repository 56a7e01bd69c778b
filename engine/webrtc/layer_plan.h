// Which layers of a video are sent, and with how many bits.

#ifndef ENGINE_WEBRTC_LAYER_PLAN_H_
#define ENGINE_WEBRTC_LAYER_PLAN_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "engine/support/pictures/picture.h"

namespace webrtc {

inline constexpr std::size_t kMostLayers = 3;

// The heights with which somebody receives videos; without a limit, the whole height.
struct Heights {
  static constexpr std::uint32_t kWhole = UINT32_MAX;

  std::uint32_t least = kWhole;
  std::uint32_t most = kWhole;

  bool operator==(const Heights&) const = default;
};

// The heights of both; nothing when nobody receives anything.
std::optional<Heights> together(const std::optional<Heights>& one,
                                const std::optional<Heights>& other);

// The sizes in which pictures of this size are sent in layers: whole, half and quarter, the whole
// one first, the others as long as they have a useful height.
std::vector<support::Size> layerSizes(support::Size size);

// Of layers with these heights, the highest first, the index of the lowest one that is high enough;
// of the highest when none is.
std::size_t layerFor(const std::vector<std::uint32_t>& heights, std::uint32_t height);

// The layers that are sent, numbered from the highest, which is 0.
struct LayerPlan {
  std::size_t first = 0;
  std::size_t last = 0;
  std::vector<std::uint32_t> bitsPerSecond;  // of each layer; 0 for those that are not sent
  bool isStrict = false;                     // the layers get less than is good for them

  bool isSent(std::size_t layer) const { return layer >= first && layer <= last; }
};

// For layers of these sizes, the highest first, that are received with these heights; of a video
// that nobody receives the highest is sent. All together have `most` bits per second: where that is
// far too little for the highest one that is sent, the next lower one takes its place, which stays
// until there is clearly more than `before`.
LayerPlan planLayers(const std::vector<support::Size>& sizes,
                     const std::optional<Heights>& received, std::uint32_t most,
                     const LayerPlan& before);

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_LAYER_PLAN_H_
