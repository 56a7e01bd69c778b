#include "engine/support/streams/frame_pool.h"

#include <algorithm>
#include <iterator>
#include <new>
#include <utility>

namespace support {

std::uint32_t Frame::frameValueB() const {
  return static_cast<std::uint32_t>(
      std::chrono::duration_cast<std::chrono::milliseconds>(capturedAt).count());
}

std::shared_ptr<PooledFrame> FramePool::take(Size size) {
  std::unique_ptr<PooledFrame> frame;
  {
    base::MutexLock lock(mutex_);
    // From the end: what was used last is still in the processor's cache.
    const auto found = std::find_if(spare_.rbegin(), spare_.rend(),
                                    [size](const auto& spare) { return spare->size() == size; });
    if (found != spare_.rend()) {
      frame = std::move(*found);
      spare_.erase(std::next(found).base());
      spareBytes_ -= frame->bytes();
    }
  }
  if (!frame) frame = std::make_unique<PooledFrame>(size);
  return {frame.release(), [pool = shared_from_this()](PooledFrame* unused) {
            pool->giveBack(std::unique_ptr<PooledFrame>(unused));
          }};
}

void FramePool::trim() {
  std::deque<std::unique_ptr<PooledFrame>> freed;
  base::MutexLock lock(mutex_);
  freed.swap(spare_);
  spareBytes_ = 0;
}

std::size_t FramePool::spareBytes() const {
  base::MutexLock lock(mutex_);
  return spareBytes_;
}

void FramePool::giveBack(std::unique_ptr<PooledFrame> frame) noexcept try {
  const std::size_t bytes = frame->bytes();
  base::MutexLock lock(mutex_);
  spare_.push_back(std::move(frame));
  spareBytes_ += bytes;
  while (spareBytes_ > spareLimit_) {
    spareBytes_ -= spare_.front()->bytes();
    spare_.pop_front();
  }
} catch (const std::bad_alloc&) {
  // No room to remember the frame: it is freed.
}

}  // namespace support
