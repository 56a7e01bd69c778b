#include "engine/embedded/sender.h"

#include <utility>

namespace embedded {
namespace {

using namespace std::chrono_literals;

// A shorter delay is caught up, so that an even rate survives a short stall.
constexpr Time kLongestDelay = 200ms;

}  // namespace

Time frameTime(FrameRate rate, std::uint64_t index) {
  // Whole periods first: the product of everything would not fit.
  const std::uint64_t second = 1'000'000'000;
  const std::uint64_t periods = index / rate.numerator;
  const std::uint64_t rest = index % rate.numerator;
  return Time(periods * rate.denominator * second +
              rest * rate.denominator * second / rate.numerator);
}

Sender::Sender(EngineParts& parts, std::shared_ptr<VideoStream> stream, Level level)
    : parts_(parts), stream_(std::move(stream)), level_(std::move(level)), timer_(parts.loop) {}

void Sender::start(std::unique_ptr<PictureSource> source, FrameRate rate) {
  source_ = std::move(source);
  rate_ = rate;
  startedAt_ = parts_.loop.now();
  ticks_ = 0;
  setTimer();
}

void Sender::stop() {
  timer_.stop();
  source_.reset();
  stream_->clear();
}

void Sender::setTimer() {
  timer_.runAt(startedAt_ + frameTime(rate_, ticks_), [this] { sendFrame(); });
}

void Sender::sendFrame() {
  const Time now = parts_.loop.now();
  const Time delay = now - startedAt_ - frameTime(rate_, ticks_);
  if (delay > kLongestDelay) startedAt_ += delay;
  ++ticks_;
  // Before anything can fail, so that the next frame comes all the same.
  setTimer();
  if (!stream_->isCapturing()) return;
  const std::shared_ptr<Frame> frame = parts_.pool->take(source_->size());
  if (!source_->draw(lastId_ + 1, level_(), frame->pixels())) {
    timer_.stop();
    return;
  }
  frame->id = ++lastId_;
  frame->capturedAt = now;
  frame->csrc = stream_->csrc();
  stream_->publish(frame);
}

}  // namespace embedded
