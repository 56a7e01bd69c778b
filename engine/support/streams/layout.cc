#include "engine/support/streams/layout.h"

#include <algorithm>
#include <array>
#include <utility>

namespace support {
namespace {

constexpr std::array<Size, kTopRung + 1> kRungs = {
    {{80, 45}, {160, 90}, {320, 180}, {640, 360}, {1280, 720}}};
constexpr std::array<std::uint32_t, 4> kRates = {3, 7, 15, 30};

// The highest rung up to `height`, or the lowest one.
Size rungUpTo(std::uint32_t height) {
  Size best = kRungs.front();
  for (const Size rung : kRungs) {
    if (rung.height <= height) best = rung;
  }
  return best;
}

// 0 for no limit.
std::uint32_t rateUpTo(std::uint32_t rate) {
  if (rate == 0) return 0;
  std::uint32_t best = kRates.front();
  for (const std::uint32_t step : kRates) {
    if (step <= rate) best = step;
  }
  return best;
}

bool names(const tsl::VideoStreamInfo& wish, std::uint32_t csrc) {
  return wish.ssrc == csrc || wish.participantSsrc == csrc;
}

}  // namespace

void Layout::setWishes(std::vector<tsl::VideoStreamInfo> streams,
                       std::vector<std::vector<tsl::VideoStreamConstraints>> constraints) {
  hasWishes_ = true;
  streams_ = std::move(streams);
  constraints_ = std::move(constraints);
  std::stable_sort(streams_.begin(), streams_.end(),
                   [](const auto& a, const auto& b) { return a.priority > b.priority; });
}

std::map<std::uint32_t, Reception> Layout::receptions(
    const std::set<std::uint32_t>& present) const {
  std::map<std::uint32_t, Reception> receptions;
  const Reception unlimited = receptionWithin({});
  for (const std::uint32_t csrc : present) receptions[csrc] = unlimited;
  if (!hasWishes_) return receptions;

  for (auto& [csrc, reception] : receptions) reception = {.isWanted = false};
  std::vector<std::uint32_t> wanted;
  for (const auto& wish : streams_) {
    const auto found = std::find_if(present.begin(), present.end(),
                                    [&wish](std::uint32_t csrc) { return names(wish, csrc); });
    const bool isNew =
        found != present.end() && std::find(wanted.begin(), wanted.end(), *found) == wanted.end();
    if (isNew) wanted.push_back(*found);
  }
  const std::size_t tiles =
      constraints_.empty() ? wanted.size() : std::min(wanted.size(), constraints_.size());
  for (std::size_t tile = 0; tile < tiles; ++tile) {
    const bool isLimited = !constraints_.empty() && tile < constraints_[tiles - 1].size();
    receptions[wanted[tile]] =
        isLimited ? receptionWithin(constraints_[tiles - 1][tile]) : unlimited;
  }
  return receptions;
}

Reception Layout::receptionWithin(const tsl::VideoStreamConstraints& limits) const {
  Reception reception;
  if (limits.maxQuality != 0) reception.height = rungUpTo(limits.maxQuality).height;
  if (limits.minQuality != 0) reception.lowest = rungUpTo(limits.minQuality).height;
  if (topRung_ < kTopRung) reception.ceiling = kRungs[static_cast<std::size_t>(topRung_)].height;
  reception.mostPerSecond = rateUpTo(limits.maxFrameRate);
  return reception;
}

Size cardSize(Size own, const Reception& reception) {
  Size size = own;
  if (reception.height != 0) {
    size = rungUpTo(reception.height);
  } else if (own.height < reception.lowest) {
    size = rungUpTo(reception.lowest);
  }
  if (reception.ceiling != 0 && size.height > reception.ceiling) size = rungUpTo(reception.ceiling);
  return size;
}

Size shapedSize(Size own, const Reception& reception) {
  std::uint32_t height = own.height;
  for (const std::uint32_t limit : {reception.height, reception.ceiling}) {
    if (limit != 0) height = std::min(height, limit);
  }
  if (height == own.height) return own;
  return {std::max(2U, own.width * height / own.height / 2 * 2), height};
}

}  // namespace support
