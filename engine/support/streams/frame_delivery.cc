#include "engine/support/streams/frame_delivery.h"

#include <exception>
#include <string>
#include <utility>

namespace support {

FrameDelivery::FrameDelivery(StreamKey key, std::shared_ptr<const Log> log)
    : key_(std::move(key)), log_(std::move(log)) {}

void FrameDelivery::setReceiver(std::shared_ptr<IFrameRecieveCallback> receiver) {
  std::shared_ptr<QVXCommon::IVideoFrame> forgotten;
  // The former receiver is released last, without the lock.
  base::MutexLock lock(mutex_);
  forgotten.swap(frame_);
  if (!closed_) {
    if (receiver && !started_) {
      worker_.start([self = shared_from_this()] { self->run(); });
      started_ = true;
    }
    receiver_.swap(receiver);
  }
  const std::uint64_t before = handOvers_;
  const auto runsElsewhere = [this]() REQUIRES(mutex_) {
    return handingOver_ != std::thread::id() && handingOver_ != std::this_thread::get_id();
  };
  while (runsElsewhere() && handOvers_ == before) changed_.Wait(mutex_);
}

void FrameDelivery::offer(std::shared_ptr<QVXCommon::IVideoFrame> frame, std::uint32_t csrc) {
  // The frame that is replaced goes back to its pool after the lock was released.
  base::MutexLock lock(mutex_);
  if (!receiver_ || closed_) return;
  frame_.swap(frame);
  csrc_ = csrc;
  changed_.NotifyAll();
}

void FrameDelivery::withdraw() {
  std::shared_ptr<QVXCommon::IVideoFrame> forgotten;
  base::MutexLock lock(mutex_);
  forgotten.swap(frame_);
}

void FrameDelivery::close() {
  std::shared_ptr<IFrameRecieveCallback> receiver;
  std::shared_ptr<QVXCommon::IVideoFrame> frame;
  base::MutexLock lock(mutex_);
  closed_ = true;
  if (!started_) finished_ = true;
  receiver.swap(receiver_);
  frame.swap(frame_);
  changed_.NotifyAll();
}

bool FrameDelivery::isFinished() const {
  base::MutexLock lock(mutex_);
  return finished_;
}

void FrameDelivery::run() {
  while (true) {
    {
      const Offer offer = takeNext();
      if (!offer.receiver) return;
      handOver(offer);
    }
    handedOver();
  }
}

FrameDelivery::Offer FrameDelivery::takeNext() {
  base::MutexLock lock(mutex_);
  while (!closed_ && !(receiver_ && frame_)) changed_.Wait(mutex_);
  if (closed_) {
    finished_ = true;
    return {};
  }
  handingOver_ = std::this_thread::get_id();
  return {receiver_, std::move(frame_), csrc_};
}

void FrameDelivery::handOver(const Offer& offer) const try {
  offer.receiver->NotifyFrameArrived(offer.frame, offer.csrc, key_);
} catch (const std::exception& error) {
  log_->write(std::string("a frame receiver failed: ") + error.what());
} catch (...) {
  log_->write("a frame receiver failed");
}

void FrameDelivery::handedOver() {
  base::MutexLock lock(mutex_);
  handingOver_ = std::thread::id();
  ++handOvers_;
  changed_.NotifyAll();
}

}  // namespace support
