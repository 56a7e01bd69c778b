// Frames, and the recycling of their memory.

#ifndef ENGINE_SUPPORT_STREAMS_FRAME_POOL_H_
#define ENGINE_SUPPORT_STREAMS_FRAME_POOL_H_

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <utility>

#include "base/mutex.h"
#include "engine/support/clock.h"
#include "engine/support/pictures/picture.h"
#include "tesselclient/video_frame.h"

namespace support {

// One picture of a stream, over pixels that a derived class keeps. Whoever makes it describes it;
// once it is published nobody changes it until the last holder has released it.
class Frame : public QVXCommon::IVideoFrame {
 public:
  Frame(const Frame&) = delete;
  Frame& operator=(const Frame&) = delete;

  Size size() const { return size_; }
  std::size_t bytes() const { return i420Bytes(size_); }

  std::uint64_t id = 0;    // counts the stream's frames from 1
  Time capturedAt = {};    // by the engine's clock
  std::uint32_t csrc = 0;  // of the stream

  std::uint32_t frameWidth() const override { return size_.width; }
  std::uint32_t frameHeight() const override { return size_.height; }
  const std::uint8_t* frameBuffer() const override { return pixels_; }
  // The low 32 bits of the frame's identifier.
  std::uint32_t frameValueA() const override { return static_cast<std::uint32_t>(id); }
  // The low 32 bits of the time of capture in milliseconds.
  std::uint32_t frameValueB() const override;
  // Clockwise turns of the picture: none.
  std::uint32_t frameValueC() const override { return 0; }
  std::uint64_t frameBufferSize() const override { return bytes(); }

 protected:
  // `pixels` are bytes() bytes, which live as long as the frame.
  Frame(Size size, const std::uint8_t* pixels) : size_(size), pixels_(pixels) {}

 private:
  const Size size_;
  const std::uint8_t* const pixels_;
};

// A frame with memory of its own, to be filled by whoever took it from the pool.
class PooledFrame final : public Frame {
 public:
  explicit PooledFrame(Size size)
      : PooledFrame(size, std::make_unique_for_overwrite<std::uint8_t[]>(i420Bytes(size))) {}

  std::uint8_t* pixels() { return memory_.get(); }

 private:
  PooledFrame(Size size, std::unique_ptr<std::uint8_t[]> memory)
      : Frame(size, memory.get()), memory_(std::move(memory)) {}

  const std::unique_ptr<std::uint8_t[]> memory_;
};

// Hands out frames and takes them back when nobody holds them any more, so that a stream of
// pictures costs no memory management. Shared by all engines of the process and by the frames
// handed out, which may outlive every engine. All operations may be called from any thread.
class FramePool : public std::enable_shared_from_this<FramePool> {
 public:
  // Keeps at most `spareLimit` bytes of pictures that nobody uses.
  explicit FramePool(std::size_t spareLimit) : spareLimit_(spareLimit) {}
  FramePool(const FramePool&) = delete;
  FramePool& operator=(const FramePool&) = delete;

  // Its pixels are left as they happen to be.
  std::shared_ptr<PooledFrame> take(Size size) EXCLUDES(mutex_);
  // Frees the pictures that nobody uses.
  void trim() EXCLUDES(mutex_);
  std::size_t spareBytes() const EXCLUDES(mutex_);

 private:
  void giveBack(std::unique_ptr<PooledFrame> frame) noexcept EXCLUDES(mutex_);

  const std::size_t spareLimit_;

  mutable base::Mutex mutex_;
  // The longest unused first.
  std::deque<std::unique_ptr<PooledFrame>> spare_ GUARDED_BY(mutex_);
  std::size_t spareBytes_ GUARDED_BY(mutex_) = 0;
};

}  // namespace support

#endif  // ENGINE_SUPPORT_STREAMS_FRAME_POOL_H_
