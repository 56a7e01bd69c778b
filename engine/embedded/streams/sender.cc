#include "engine/embedded/streams/sender.h"

#include <utility>

namespace embedded {
namespace {

using namespace std::chrono_literals;

// A shorter delay is caught up, so that an even rate survives a short stall.
constexpr support::Time kLongestDelay = 200ms;

}  // namespace

support::Time frameTime(support::FrameRate rate, std::uint64_t index) {
  // Whole periods first: the product of everything would not fit.
  constexpr std::uint64_t kSecond = 1'000'000'000;
  const std::uint64_t periods = index / rate.numerator;
  const std::uint64_t rest = index % rate.numerator;
  return support::Time(static_cast<support::Time::rep>(
      periods * rate.denominator * kSecond + rest * rate.denominator * kSecond / rate.numerator));
}

Sender::Sender(support::TaskLoop& loop, std::shared_ptr<support::FramePool> pool,
               std::shared_ptr<support::VideoStream> stream, LossyLink link, Level level)
    : loop_(loop),
      pool_(std::move(pool)),
      stream_(std::move(stream)),
      link_(link),
      level_(std::move(level)),
      timer_(loop) {}

void Sender::start(std::unique_ptr<support::PictureSource> source, support::FrameRate rate,
                   std::uint32_t mostPerSecond) {
  change(std::move(source), mostPerSecond);
  rate_ = rate;
  startedAt_ = loop_.now();
  ticks_ = 0;
  setTimer();
}

void Sender::change(std::unique_ptr<support::PictureSource> source, std::uint32_t mostPerSecond) {
  source_ = std::move(source);
  mostPerSecond_ = mostPerSecond;
}

void Sender::stop() {
  timer_.stop();
  source_.reset();
  stream_->clear();
}

void Sender::setTimer() {
  timer_.runAt(startedAt_ + frameTime(rate_, ticks_), [this] { tick(); });
}

void Sender::tick() {
  const support::Time delay = loop_.now() - startedAt_ - frameTime(rate_, ticks_);
  if (delay > kLongestDelay) startedAt_ += delay;
  const std::uint64_t tick = ticks_++;
  // Before anything can fail, so that the next frame is sent in any case.
  setTimer();
  if (!stream_->isCapturing()) return;
  if (!source_->has(lastId_ + 1)) {
    timer_.stop();
    return;
  }
  ++lastId_;
  if (!isLeftOut(tick)) send(lastId_);
}

bool Sender::isLeftOut(std::uint64_t tick) const {
  if (mostPerSecond_ == 0 || tick == 0) return false;
  // A frame stays when another one of the lower rate has become due since the frame before.
  const auto due = [this](std::uint64_t index) {
    return index * mostPerSecond_ * rate_.denominator / rate_.numerator;
  };
  return due(tick) == due(tick - 1);
}

void Sender::send(std::uint64_t id) {
  const support::Size size = source_->size();
  const std::uint64_t packets = packetsOf(support::i420Bytes(size));
  if (const std::uint64_t lost = link_.send(packets); lost > 0) {
    meter_.addLostFrame(packets, lost);
    return;
  }
  const std::shared_ptr<support::PooledFrame> frame = pool_->take(size);
  if (!source_->draw(id, level_(), frame->pixels())) return;
  frame->id = id;
  frame->capturedAt = loop_.now();
  frame->csrc = stream_->csrc();
  stream_->publish(frame);
  meter_.addFrame(size, frame->bytes(), packets);
}

}  // namespace embedded
