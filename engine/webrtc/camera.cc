#include "engine/webrtc/camera.h"

#include <algorithm>
#include <exception>
#include <string>
#include <utility>

namespace webrtc {
namespace {

support::Time periodOf(support::FrameRate rate) {
  constexpr double kSecond = 1e9;
  return support::Time(static_cast<support::Time::rep>(kSecond / rate.perSecond()));
}

}  // namespace

DrawnCamera::DrawnCamera(std::unique_ptr<support::PictureSource> source, std::uint64_t first,
                         support::FrameRate rate, std::shared_ptr<const support::Clock> clock,
                         std::shared_ptr<support::FramePool> pool,
                         std::shared_ptr<const support::Log> log, Viewer viewer)
    : source_(std::move(source)),
      first_(first),
      period_(periodOf(rate)),
      clock_(std::move(clock)),
      pool_(std::move(pool)),
      log_(std::move(log)),
      viewer_(std::move(viewer)) {
  worker_.start([this] { run(); });
}

DrawnCamera::~DrawnCamera() {
  {
    base::MutexLock lock(mutex_);
    isStopped_ = true;
    changed_.NotifyAll();
  }
  worker_.finish();
}

void DrawnCamera::run() {
  support::Time due = clock_->now();
  for (std::uint64_t number = first_; source_->has(number) && waitUntil(due); ++number) {
    try {
      film(number);
    } catch (const std::exception& error) {
      log_->write(std::string("a frame could not be filmed: ") + error.what());
    }
    due = std::max(due + period_, clock_->now());
  }
}

bool DrawnCamera::waitUntil(support::Time time) {
  base::MutexLock lock(mutex_);
  while (!isStopped_ && clock_->now() < time) clock_->wait(mutex_, changed_, time);
  return !isStopped_;
}

void DrawnCamera::film(std::uint64_t number) {
  // Nobody can be heard by a camera.
  constexpr std::uint32_t kLevel = 0;
  const auto frame = pool_->take(source_->size());
  if (!source_->draw(number, kLevel, frame->pixels())) return;
  frame->capturedAt = clock_->now();
  viewer_(frame);
}

}  // namespace webrtc
