#include "engine/webrtc/layer_plan.h"

#include <algorithm>

namespace webrtc {
namespace {

// Bits for a pixel, at 30 frames per second, above which the encoders gain little.
constexpr double kBitsPerPixel = 0.1;
constexpr std::uint32_t kLeastHeight = 90;  // of a layer below the highest

// The share of their bits with which the layers are still sent, and with which one is sent again.
constexpr double kShareToStay = 0.3;
constexpr double kShareToReturn = 0.5;

double wantedBits(support::Size size) {
  return static_cast<double>(support::pixels(size)) * 30 * kBitsPerPixel;
}

}  // namespace

std::optional<Heights> together(const std::optional<Heights>& one,
                                const std::optional<Heights>& other) {
  if (!one) return other;
  if (!other) return one;
  return Heights{.least = std::min(one->least, other->least),
                 .most = std::max(one->most, other->most)};
}

std::vector<support::Size> layerSizes(support::Size size) {
  std::vector<support::Size> sizes = {size};
  while (sizes.size() < kMostLayers) {
    const support::Size half = {std::max(2U, sizes.back().width / 4 * 2), sizes.back().height / 2};
    if (half.height < kLeastHeight) break;
    sizes.push_back(half);
  }
  return sizes;
}

std::size_t layerFor(const std::vector<std::uint32_t>& heights, std::uint32_t height) {
  std::size_t layer = 0;
  while (layer + 1 < heights.size() && heights[layer + 1] >= height) ++layer;
  return layer;
}

LayerPlan planLayers(const std::vector<support::Size>& sizes,
                     const std::optional<Heights>& received, std::uint32_t most,
                     const LayerPlan& before) {
  LayerPlan plan;
  plan.bitsPerSecond.resize(sizes.size());
  if (sizes.empty()) return plan;
  std::vector<std::uint32_t> heights;
  heights.reserve(sizes.size());
  for (const auto& size : sizes) heights.push_back(size.height);
  if (received) {
    plan.first = layerFor(heights, received->most);
    plan.last = layerFor(heights, received->least);
  }
  const std::size_t firstReceived = plan.first;
  const double bits = std::max(most, kLeastBitsPerSecond);
  const auto wanted = [&](std::size_t first) {
    double sum = 0;
    for (std::size_t layer = first; layer <= std::max(first, plan.last); ++layer) {
      sum += wantedBits(sizes[layer]);
    }
    return sum;
  };
  const double allWanted = std::max<double>(wanted(plan.first), kLeastBitsPerSecond);
  plan.wantedBitsPerSecond = static_cast<std::uint32_t>(std::min<double>(allWanted, UINT32_MAX));
  for (; plan.first + 1 < sizes.size(); ++plan.first) {
    const double share = plan.first < before.leftOut ? kShareToReturn : kShareToStay;
    if (share * wanted(plan.first) <= bits) break;
  }
  if (plan.first > firstReceived) plan.leftOut = plan.first;
  plan.last = std::max(plan.first, plan.last);
  const double sum = wanted(plan.first);
  const double share = std::max<double>(std::min(sum, bits), kLeastBitsPerSecond) / sum;
  plan.isStrict = most < sum;
  for (std::size_t layer = plan.first; layer <= plan.last; ++layer) {
    plan.bitsPerSecond[layer] = static_cast<std::uint32_t>(wantedBits(sizes[layer]) * share);
  }
  return plan;
}

}  // namespace webrtc
