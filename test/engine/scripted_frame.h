// Frames of the scripted engine, and the pattern in their pixels.

#ifndef TEST_ENGINE_SCRIPTED_FRAME_H_
#define TEST_ENGINE_SCRIPTED_FRAME_H_

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "base/mutex.h"
#include "tesselclient/tesselclient.h"

namespace scripted {

// Memory of its own on the heap for a frame's pixels. It is overwritten with 0xDD before it is
// freed, so that a late reader gets neither the old picture nor plausible data.
class PixelMemory {
 public:
  // Throws std::bad_alloc.
  explicit PixelMemory(std::size_t size);
  ~PixelMemory();
  PixelMemory(const PixelMemory&) = delete;
  PixelMemory& operator=(const PixelMemory&) = delete;

  std::span<std::uint8_t> bytes() { return {data_, size_}; }

 private:
  std::uint8_t* data_;
  std::size_t size_;
};

// Pixel memory for reuse. May be called from any thread.
class MemoryPool {
 public:
  // Memory of `size` bytes: zeros, or what its last user left there.
  std::unique_ptr<PixelMemory> take(std::size_t size) EXCLUDES(mutex_);
  void giveBack(std::unique_ptr<PixelMemory> memory) EXCLUDES(mutex_);

 private:
  base::Mutex mutex_;
  std::vector<std::unique_ptr<PixelMemory>> free_ GUARDED_BY(mutex_);
};

// The values of a frame besides its memory.
struct FrameProperties {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::uint32_t valueA = 0;
  std::uint32_t valueB = 0;
  std::uint32_t valueC = 0;
  std::uint64_t bufferSize = 0;
  bool nullBuffer = false;
};

// A frame whose memory goes with it: back to `pool` if there is one. Unchanged once it has been
// handed out, and then callable from any thread.
class ScriptedFrame final : public QVXCommon::IVideoFrame {
 public:
  ScriptedFrame(const FrameProperties& properties, std::unique_ptr<PixelMemory> memory,
                std::shared_ptr<MemoryPool> pool);
  ~ScriptedFrame() override;
  ScriptedFrame(const ScriptedFrame&) = delete;
  ScriptedFrame& operator=(const ScriptedFrame&) = delete;

  // Of the process.
  static std::int64_t live();

  std::span<std::uint8_t> bytes() { return memory_->bytes(); }

  std::uint32_t frameWidth() const override { return properties_.width; }
  std::uint32_t frameHeight() const override { return properties_.height; }
  const std::uint8_t* frameBuffer() const override {
    return properties_.nullBuffer ? nullptr : memory_->bytes().data();
  }
  std::uint32_t frameValueA() const override { return properties_.valueA; }
  std::uint32_t frameValueB() const override { return properties_.valueB; }
  std::uint32_t frameValueC() const override { return properties_.valueC; }
  std::uint64_t frameBufferSize() const override { return properties_.bufferSize; }

 private:
  const FrameProperties properties_;
  std::unique_ptr<PixelMemory> memory_;
  const std::shared_ptr<MemoryPool> pool_;
};

// Bytes of an I420 picture with tightly packed rows.
std::uint64_t i420Size(std::uint32_t width, std::uint32_t height);

// The identity of a frame, at the start of its memory when there is room for it: the kind and the
// index of its stream as 32-bit and its number as 64-bit little-endian integers.
inline constexpr std::size_t kIdentitySize = 16;

// Byte i of the pattern is 7 * kind + 17 * index + 31 * number + i, modulo 256; the identity stands
// over its start. A reader that finds another byte has a torn or a stale frame.
void writePattern(const StreamKey& key, std::uint64_t number, std::span<std::uint8_t> bytes);
void writeIdentity(const StreamKey& key, std::uint64_t number, std::span<std::uint8_t> bytes);

}  // namespace scripted

#endif  // TEST_ENGINE_SCRIPTED_FRAME_H_
