#include "engine/support/statistics.h"

#include <algorithm>
#include <utility>

namespace support {
namespace {

using namespace std::chrono_literals;

constexpr Time kShortestWindow = 100ms;

}  // namespace

Statistics::Statistics(TaskLoop& loop, Published<tsl::MeetingStats>& published, Collect collect)
    : loop_(loop), published_(published), collect_(std::move(collect)), timer_(loop) {}

void Statistics::switchOn(Time window) {
  switchOff();
  window_ = std::max(window, kShortestWindow);
  windowEnd_ = loop_.now() + window_;
  load_.emplace();
  // What was counted before belongs to no window.
  tsl::MeetingStats dropped;
  collect_(window_, dropped);
  setTimer();
}

void Statistics::switchOff() {
  timer_.stop();
  published_.set({});
}

void Statistics::setTimer() {
  timer_.runAt(windowEnd_, [this] { closeWindow(); });
}

void Statistics::closeWindow() {
  // A window that closes late was longer.
  const Time now = loop_.now();
  const Time length = window_ + (now - windowEnd_);
  windowEnd_ = now + window_;
  setTimer();
  tsl::MeetingStats stats;
  const auto load = load_->measure();
  stats.systemCpu = load.system;
  stats.processCpu = load.process;
  collect_(length, stats);
  published_.set(std::move(stats));
}

}  // namespace support
