#include "engine/embedded/streams/lossy_link.h"

namespace embedded {
namespace {

constexpr double kMeanBurst = 100;

}  // namespace

LossyLink::LossyLink(double lossRate, std::uint64_t seed)
    : burstBegins_(lossRate < 1 ? lossRate / (1 - lossRate) / kMeanBurst : 1),
      burstEnds_(lossRate < 1 ? 1 / kMeanBurst : 0),
      random_(seed),
      isBurst_(random_.nextFraction() < lossRate) {}

std::uint64_t LossyLink::send(std::uint64_t packets) {
  if (burstBegins_ == 0) return 0;
  std::uint64_t lost = 0;
  for (std::uint64_t i = 0; i < packets; ++i) {
    const double chance = random_.nextFraction();
    isBurst_ = isBurst_ ? chance >= burstEnds_ : chance < burstBegins_;
    if (isBurst_) ++lost;
  }
  return lost;
}

}  // namespace embedded
