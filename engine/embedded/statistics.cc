#include "engine/embedded/statistics.h"

#include <algorithm>
#include <utility>

namespace embedded {
namespace {

using namespace std::chrono_literals;

constexpr Time kShortestWindow = 100ms;

}  // namespace

Statistics::Statistics(EngineParts& parts, Collect collect)
    : parts_(parts), collect_(std::move(collect)), timer_(parts.loop) {}

void Statistics::switchOn(Time window) {
  switchOff();
  window_ = std::max(window, kShortestWindow);
  windowEnd_ = parts_.loop.now() + window_;
  load_.emplace();
  // What was counted before belongs to no window.
  tsl::MeetingStats dropped;
  collect_(window_, dropped);
  setTimer();
}

void Statistics::switchOff() {
  timer_.stop();
  parts_.statistics.set({});
}

void Statistics::setTimer() {
  timer_.runAt(windowEnd_, [this] { closeWindow(); });
}

void Statistics::closeWindow() {
  // A window that closes late was longer.
  const Time now = parts_.loop.now();
  const Time length = window_ + (now - windowEnd_);
  windowEnd_ = now + window_;
  setTimer();
  tsl::MeetingStats stats;
  const auto load = load_->measure();
  stats.systemCpu = load.system;
  stats.processCpu = load.process;
  collect_(length, stats);
  parts_.statistics.set(std::move(stats));
}

}  // namespace embedded
