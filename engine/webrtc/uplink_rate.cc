#include "engine/webrtc/uplink_rate.h"

#include <algorithm>

#include "engine/webrtc/layer_plan.h"

namespace webrtc {
namespace {

// Shares of the packets. What is between them may be lost whatever is sent, and is repeated.
constexpr double kMuch = 0.1;
constexpr double kLittle = 0.02;
// From nothing to the most in so many seconds.
constexpr double kSteps = 20;

}  // namespace

std::uint32_t UplinkRate::update(const std::map<std::uint32_t, ReceiverReport>& reports,
                                 std::uint32_t most) {
  double lost = 0;
  for (const auto& [ssrc, report] : reports) {
    // A report of losses that has been taken into account, or is of a layer that is not sent any
    // more, has the count of before.
    const bool isNew = report.lost > lost_[ssrc];
    lost_[ssrc] = report.lost;
    if (isNew) lost = std::max(lost, report.fractionLost);
  }
  if (lost > kMuch) {
    limit_ = std::max<double>(std::min<double>(limit_.value_or(most), most) * (1 - lost),
                              kLeastBitsPerSecond);
  } else if (limit_ && lost < kLittle) {
    *limit_ += most / kSteps;
  }
  if (limit_ && *limit_ >= most) limit_.reset();
  return limit_ ? static_cast<std::uint32_t>(*limit_) : most;
}

}  // namespace webrtc
