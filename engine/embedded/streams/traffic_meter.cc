#include "engine/embedded/streams/traffic_meter.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace embedded {

std::int32_t toBits(double bits) {
  constexpr double kMost = std::numeric_limits<std::int32_t>::max();
  return static_cast<std::int32_t>(std::min(bits, kMost));
}

void TrafficMeter::addFrame(support::Size size, std::size_t bytes, std::uint64_t packets) {
  size_ = size;
  ++frames_;
  window_.bytes += bytes;
  window_.packets += packets;
}

void TrafficMeter::addLostFrame(std::uint64_t packets, std::uint64_t lostPackets) {
  window_.packets += packets;
  window_.lostPackets += lostPackets;
  lostPackets_ += lostPackets;
}

TrafficMeter::Window TrafficMeter::closeWindow(support::Time length) {
  const double seconds = std::chrono::duration<double>(length).count();
  Window window = std::exchange(window_, {});
  tsl::VideoStats& stats = window.stats;
  stats.width = static_cast<std::int32_t>(size_.width);
  stats.height = static_cast<std::int32_t>(size_.height);
  stats.totalBitrateBps = toBits(static_cast<double>(window.bytes) * 8 / seconds);
  stats.fps = static_cast<std::int32_t>(
      std::lround(static_cast<double>(std::exchange(frames_, 0)) / seconds));
  stats.cumulativeLost = static_cast<std::uint32_t>(lostPackets_);
  if (window.packets > 0) {
    stats.fractionLost =
        static_cast<double>(window.lostPackets) / static_cast<double>(window.packets);
  }
  return window;
}

}  // namespace embedded
