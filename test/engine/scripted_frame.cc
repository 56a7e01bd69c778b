#include "test/engine/scripted_frame.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

namespace scripted {
namespace {

constexpr std::uint8_t kPoison = 0xDD;

std::atomic<std::int64_t> liveFrames = 0;

}  // namespace

PixelMemory::PixelMemory(std::size_t size)
    : data_(static_cast<std::uint8_t*>(std::malloc(std::max<std::size_t>(size, 1)))), size_(size) {
  if (data_ == nullptr) throw std::bad_alloc();
}

PixelMemory::~PixelMemory() {
  std::memset(data_, kPoison, size_);
  // Without a barrier the compiler would remove the overwriting, since nothing reads it.
  asm volatile("" : : "r"(data_) : "memory");
  std::free(data_);
}

std::unique_ptr<PixelMemory> MemoryPool::take(std::size_t size) {
  {
    base::MutexLock lock(mutex_);
    const auto fitting = std::find_if(free_.begin(), free_.end(), [&](const auto& memory) {
      return memory->bytes().size() == size;
    });
    if (fitting != free_.end()) {
      auto memory = std::move(*fitting);
      free_.erase(fitting);
      return memory;
    }
  }
  auto memory = std::make_unique<PixelMemory>(size);
  std::ranges::fill(memory->bytes(), std::uint8_t{0});
  return memory;
}

void MemoryPool::giveBack(std::unique_ptr<PixelMemory> memory) {
  base::MutexLock lock(mutex_);
  free_.push_back(std::move(memory));
}

ScriptedFrame::ScriptedFrame(const FrameProperties& properties, std::unique_ptr<PixelMemory> memory,
                             std::shared_ptr<MemoryPool> pool)
    : properties_(properties), memory_(std::move(memory)), pool_(std::move(pool)) {
  ++liveFrames;
}

ScriptedFrame::~ScriptedFrame() {
  if (pool_ != nullptr) pool_->giveBack(std::move(memory_));
  --liveFrames;
}

std::int64_t ScriptedFrame::live() { return liveFrames; }

std::uint64_t i420Size(std::uint32_t width, std::uint32_t height) {
  const std::uint64_t chromaWidth = (std::uint64_t{width} + 1) / 2;
  const std::uint64_t chromaHeight = (std::uint64_t{height} + 1) / 2;
  return std::uint64_t{width} * height + 2 * chromaWidth * chromaHeight;
}

void writePattern(const StreamKey& key, std::uint64_t number, std::span<std::uint8_t> bytes) {
  const auto seed =
      static_cast<std::uint32_t>(7 * std::int64_t{key.first} + 17 * std::int64_t{key.second} +
                                 static_cast<std::int64_t>(31 * (number % 256)));
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(seed + i);
  writeIdentity(key, number, bytes);
}

void writeIdentity(const StreamKey& key, std::uint64_t number, std::span<std::uint8_t> bytes) {
  if (bytes.size() < kIdentitySize) return;
  const std::int32_t kind = key.first;
  std::memcpy(bytes.data(), &kind, sizeof kind);
  std::memcpy(bytes.data() + 4, &key.second, sizeof key.second);
  std::memcpy(bytes.data() + 8, &number, sizeof number);
}

}  // namespace scripted
