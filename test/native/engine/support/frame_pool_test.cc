#include "engine/support/streams/frame_pool.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace support {
namespace {

constexpr Size kSize = {64, 36};
constexpr std::size_t kPlenty = 1 << 20;

TEST(FramePool, ReusesABufferOnlyWhenNobodyHoldsIt) {
  const auto pool = std::make_shared<FramePool>(kPlenty);
  auto frame = pool->take(kSize);
  const std::uint8_t* const memory = frame->frameBuffer();
  auto holder = frame;
  frame.reset();
  EXPECT_NE(pool->take(kSize)->frameBuffer(), memory);
  pool->trim();
  holder.reset();
  EXPECT_EQ(pool->take(kSize)->frameBuffer(), memory);
}

TEST(FramePool, ReturnsFramesOfTheRequestedSize) {
  const auto pool = std::make_shared<FramePool>(kPlenty);
  pool->take(kSize);
  const auto frame = pool->take({65, 37});
  EXPECT_EQ(frame->frameWidth(), 65U);
  EXPECT_EQ(frame->frameHeight(), 37U);
  EXPECT_EQ(frame->frameBufferSize(), 65U * 37 + 2 * 33 * 19);
}

TEST(FramePool, KeepsNoMoreThanItsLimit) {
  const std::size_t bytes = i420Bytes(kSize);
  const auto pool = std::make_shared<FramePool>(2 * bytes);
  {
    std::vector<std::shared_ptr<Frame>> frames;
    for (int i = 0; i < 5; ++i) frames.push_back(pool->take(kSize));
    EXPECT_EQ(pool->spareBytes(), 0U);
  }
  EXPECT_EQ(pool->spareBytes(), 2 * bytes);
  const auto frame = pool->take(kSize);
  EXPECT_EQ(pool->spareBytes(), bytes);
}

TEST(FramePool, FreesTheLongestUnusedFirst) {
  const auto pool = std::make_shared<FramePool>(i420Bytes(kSize));
  pool->take({32, 32});
  pool->take(kSize);
  EXPECT_EQ(pool->spareBytes(), i420Bytes(kSize));
}

TEST(FramePool, FreesUnusedFramesOnRequest) {
  const auto pool = std::make_shared<FramePool>(kPlenty);
  const auto held = pool->take(kSize);
  pool->take(kSize);
  pool->trim();
  EXPECT_EQ(pool->spareBytes(), 0U);
  held->pixels()[0] = 1;
}

TEST(FramePool, LivesAsLongAsItsFrames) {
  auto pool = std::make_shared<FramePool>(kPlenty);
  const std::weak_ptr<FramePool> watch = pool;
  auto frame = pool->take(kSize);
  pool.reset();
  frame->pixels()[0] = 1;
  EXPECT_FALSE(watch.expired());
  frame.reset();
  EXPECT_TRUE(watch.expired());
}

TEST(FramePool, ServesSeveralThreads) {
  const auto pool = std::make_shared<FramePool>(kPlenty);
  std::vector<std::jthread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&pool, thread] {
      for (int i = 0; i < 1000; ++i) {
        const auto frame = pool->take(kSize);
        const auto mark = static_cast<std::uint8_t>(thread);
        frame->pixels()[0] = mark;
        std::this_thread::yield();
        ASSERT_EQ(frame->pixels()[0], mark);
      }
    });
  }
}

}  // namespace
}  // namespace support
