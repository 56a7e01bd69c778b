#include "test/engine/scripted_stream.h"

#include <algorithm>
#include <chrono>
#include <span>
#include <stdexcept>
#include <utility>

namespace scripted {
namespace {

std::uint64_t memorySize(const PlaneAnswer& plane) { return plane.nullData ? 0 : plane.size; }

std::uint64_t memorySize(const FrameAnswer& answer) {
  return memorySize(answer.y) + memorySize(answer.u) + memorySize(answer.v);
}

void check(const PlaneAnswer& plane) {
  if (plane.bytes && plane.bytes->size() != plane.size) {
    throw std::invalid_argument("a plane's bytes are not as many as its size says");
  }
}

void overwrite(const PlaneAnswer& plane, std::span<std::uint8_t> bytes) {
  if (plane.bytes) {
    std::ranges::copy(*plane.bytes, bytes.begin());
  } else if (plane.fill) {
    std::ranges::fill(bytes, *plane.fill);
  }
}

// Lays the plane over the start of `memory` and takes its bytes off there.
VideoPlane laidOver(const PlaneAnswer& plane, std::span<std::uint8_t>& memory) {
  VideoPlane laid{nullptr, plane.width, plane.height, plane.size, plane.stride};
  if (plane.nullData) return laid;
  laid.data = memory.data();
  memory = memory.subspan(plane.size);
  return laid;
}

// The values of fields that must not be read: using them as pointers crashes.
constexpr std::uint32_t kNonsense = 0xDDDDDDDD;

VideoPlane unreadablePlane() {
  const auto* nowhere = reinterpret_cast<const std::uint8_t*>(std::uintptr_t{0x10});
  return {nowhere, kNonsense, kNonsense, kNonsense, kNonsense};
}

}  // namespace

void Stream::setHasFrameManager(bool has) {
  base::MutexLock lock(mutex_);
  hasFrameManager_ = has;
}

bool Stream::hasFrameManager() {
  base::MutexLock lock(mutex_);
  return hasFrameManager_;
}

void Stream::setKeepsReceiver(bool keeps) {
  base::MutexLock lock(mutex_);
  keepsReceiver_ = keeps;
}

void Stream::setAnswer(FrameAnswer answer) {
  for (const PlaneAnswer* plane : {&answer.y, &answer.u, &answer.v}) check(*plane);
  if (memorySize(answer) > kMostFrameMemory) throw std::invalid_argument("the frame is too large");
  std::shared_ptr<ScriptedFrame> frame;
  if (!answer.noUpdate && !answer.fresh) frame = makeFrame(answer, answer.frameId);

  base::MutexLock lock(mutex_);
  hasFrameManager_ = true;
  nextFreshId_ = answer.frameId;
  answer_ = std::make_shared<const FrameAnswer>(std::move(answer));
  frame_.swap(frame);
}

void Stream::getFrame(std::uint32_t newestId, VideoFrame& frame) {
  frame = VideoFrame{};
  std::shared_ptr<const FrameAnswer> answer;
  {
    base::MutexLock lock(mutex_);
    answer = answer_;
    if (answer != nullptr) {
      frame.frameId = answer->fresh ? nextFreshId_++ : answer->frameId;
      frame.frame = frame_;
    }
  }
  if (answer == nullptr) {
    frame.noUpdate = true;
    return;
  }

  frame.clearFrame = answer->clearFrame;
  frame.csrc = answer->csrc;
  frame.engineValue = answer->engineValue;
  const bool callerHasIt = newestId == static_cast<std::uint32_t>(frame.frameId);
  frame.noUpdate = answer->noUpdate || (callerHasIt && !answer->always && !answer->fresh);
  if (frame.noUpdate) {
    frame.frame = nullptr;
    frame.width = frame.height = kNonsense;
    frame.yPlane = frame.uPlane = frame.vPlane = unreadablePlane();
    return;
  }

  std::shared_ptr<ScriptedFrame> picture =
      answer->fresh ? makeFrame(*answer, frame.frameId)
                    : std::static_pointer_cast<ScriptedFrame>(frame.frame);
  frame.width = answer->width;
  frame.height = answer->height;
  std::span<std::uint8_t> memory = picture->bytes();
  frame.yPlane = laidOver(answer->y, memory);
  frame.uPlane = laidOver(answer->u, memory);
  frame.vPlane = laidOver(answer->v, memory);
  frame.frame = std::move(picture);
}

std::shared_ptr<ScriptedFrame> Stream::makeFrame(const FrameAnswer& answer, std::uint64_t number) {
  const std::size_t size = memorySize(answer);
  FrameProperties properties;
  properties.width = answer.width;
  properties.height = answer.height;
  properties.bufferSize = size;
  if (answer.recycled) {
    auto frame = std::make_shared<ScriptedFrame>(properties, pool_->take(size), pool_);
    writeIdentity(key_, number, frame->bytes());
    return frame;
  }
  auto frame =
      std::make_shared<ScriptedFrame>(properties, std::make_unique<PixelMemory>(size), nullptr);
  std::span<std::uint8_t> memory = frame->bytes();
  writePattern(key_, number, memory);
  for (const PlaneAnswer* plane : {&answer.y, &answer.u, &answer.v}) {
    overwrite(*plane, memory.first(memorySize(*plane)));
    memory = memory.subspan(memorySize(*plane));
  }
  return frame;
}

std::shared_ptr<QVXCommon::IVideoFrame> Stream::makeFrame(const PushedFrame& pushed,
                                                          bool recycled) {
  if (pushed.empty) return nullptr;
  FrameProperties properties;
  properties.width = pushed.width;
  properties.height = pushed.height;
  properties.valueA = pushed.valueA;
  properties.valueB = pushed.valueB;
  properties.valueC = pushed.valueC;
  properties.bufferSize = pushed.bufferSize.value_or(i420Size(pushed.width, pushed.height));
  properties.nullBuffer = pushed.nullBuffer;
  const std::size_t size = std::min(properties.bufferSize, kMostFrameMemory);
  if (recycled) {
    auto frame = std::make_shared<ScriptedFrame>(properties, pool_->take(size), pool_);
    writeIdentity(key_, pushed.number, frame->bytes());
    return frame;
  }
  if (pushed.bytes && pushed.bytes->size() > size) {
    throw std::invalid_argument("there are more bytes than the buffer holds");
  }
  auto frame =
      std::make_shared<ScriptedFrame>(properties, std::make_unique<PixelMemory>(size), nullptr);
  if (pushed.fill) {
    std::ranges::fill(frame->bytes(), *pushed.fill);
  } else {
    writePattern(key_, pushed.number, frame->bytes());
  }
  if (pushed.bytes) std::ranges::copy(*pushed.bytes, frame->bytes().begin());
  return frame;
}

void Stream::setReceiver(std::shared_ptr<IFrameRecieveCallback> receiver) {
  base::MutexLock lock(mutex_);
  if (receiver == nullptr && keepsReceiver_) return;
  ++receiverChanges_;
  while (delivering_) changed_.Wait(mutex_);
  --receiverChanges_;
  // The argument, which now holds the former receiver, outlives the lock.
  receiver_.swap(receiver);
  changed_.NotifyAll();
}

std::int64_t Stream::receiverOwners() {
  base::MutexLock lock(mutex_);
  return receiver_.use_count();
}

bool Stream::deliver(const std::shared_ptr<QVXCommon::IVideoFrame>& frame, std::uint32_t csrc) {
  std::shared_ptr<IFrameRecieveCallback> receiver;
  {
    base::MutexLock lock(mutex_);
    while (delivering_ || receiverChanges_ > 0) changed_.Wait(mutex_);
    if (receiver_ == nullptr) return false;
    receiver = receiver_;
    delivering_ = true;
  }
  receiver->NotifyFrameArrived(frame, csrc, key_);
  // From here on a caller that detaches the receiver can rely on its release by the engine.
  receiver.reset();
  base::MutexLock lock(mutex_);
  delivering_ = false;
  changed_.NotifyAll();
  return true;
}

void Stream::startPushing(const Pushing& pushing) {
  base::MutexLock lock(mutex_);
  if (pusher_ != nullptr) throw std::invalid_argument("frames are being pushed already");
  hasFrameManager_ = true;
  stopping_ = false;
  pusher_ = std::make_unique<Pusher>();
  pusher_->thread = std::thread([this, pushing, &pusher = *pusher_] { push(pushing, pusher); });
}

std::int64_t Stream::stopPushing() {
  std::unique_ptr<Pusher> pusher;
  {
    base::MutexLock lock(mutex_);
    stopping_ = true;
    changed_.NotifyAll();
    pusher.swap(pusher_);
  }
  if (pusher == nullptr) return 0;
  pusher->thread.join();
  return pusher->delivered;
}

void Stream::push(const Pushing& pushing, Pusher& pusher) {
  using Clock = std::chrono::steady_clock;
  PushedFrame frame;
  frame.width = pushing.width;
  frame.height = pushing.height;
  frame.csrc = pushing.csrc;
  Clock::time_point due = Clock::now();
  while (true) {
    {
      base::MutexLock lock(mutex_);
      if (pushing.fps == 0) {
        while (!stopping_ && receiver_ == nullptr) changed_.Wait(mutex_);
      } else {
        while (!stopping_ && changed_.WaitUntil(mutex_, due)) {
        }
        due += std::chrono::nanoseconds(std::chrono::seconds(1)) / pushing.fps;
      }
      if (stopping_) return;
    }
    if (deliver(makeFrame(frame, pushing.recycled), frame.csrc)) ++pusher.delivered;
    ++frame.number;
  }
}

}  // namespace scripted
