#include "engine/support/streams/video_stream.h"

#include <gtest/gtest.h>

#include "engine/support/streams/stream_keys.h"
#include "engine/support/streams/stream_table.h"

namespace support {
namespace {

class VideoStreamTest : public testing::Test {
 protected:
  ~VideoStreamTest() override {
    stream_->end();
    stream_->delivery().join();
  }

  void publish(std::uint64_t id, Size size = {3, 5}) {
    const auto frame = pool_->take(size);
    frame->id = id;
    stream_->publish(frame);
  }
  VideoFrame get(std::uint32_t lastId) {
    VideoFrame frame;
    // Previous values are overwritten.
    frame.noUpdate = frame.clearFrame = true;
    frame.width = frame.height = frame.csrc = 99;
    frame.frameId = 99;
    stream_->GetFrame(lastId, frame);
    return frame;
  }
  void expectNothing(const VideoFrame& frame, bool clear, std::uint64_t id) {
    EXPECT_TRUE(frame.noUpdate);
    EXPECT_EQ(frame.clearFrame, clear);
    EXPECT_EQ(frame.frameId, id);
    EXPECT_EQ(frame.csrc, 5U);
    EXPECT_EQ(frame.frame, nullptr);
    EXPECT_EQ(frame.width, 0U);
    EXPECT_EQ(frame.yPlane.data, nullptr);
  }

  const std::shared_ptr<FramePool> pool_ = std::make_shared<FramePool>(0);
  const std::shared_ptr<Log> log_ = std::make_shared<Log>("", "");
  const std::shared_ptr<VideoStream> stream_ =
      std::make_shared<VideoStream>(remoteStream(0), 5, log_);
};

TEST_F(VideoStreamTest, HasNoUpdateBeforeItsFirstFrame) { expectNothing(get(0), false, 0); }

TEST_F(VideoStreamTest, GivesTheNewestFrameToACallerWithoutOne) {
  publish(1);
  publish(2);
  const VideoFrame frame = get(0);
  EXPECT_FALSE(frame.noUpdate);
  EXPECT_FALSE(frame.clearFrame);
  EXPECT_EQ(frame.frameId, 2U);
  EXPECT_EQ(frame.csrc, 5U);
}

TEST_F(VideoStreamTest, DescribesThePlanes) {
  publish(1);
  const VideoFrame frame = get(0);
  const std::uint8_t* const start = frame.frame->frameBuffer();
  EXPECT_EQ(frame.width, 3U);
  EXPECT_EQ(frame.height, 5U);
  EXPECT_EQ(frame.frame->frameBufferSize(), 27U);
  EXPECT_EQ(frame.yPlane.data, start);
  EXPECT_EQ(frame.yPlane.width, 3U);
  EXPECT_EQ(frame.yPlane.height, 5U);
  EXPECT_EQ(frame.yPlane.size, 15U);
  EXPECT_EQ(frame.yPlane.stride, 3U);
  EXPECT_EQ(frame.uPlane.data, start + 15);
  EXPECT_EQ(frame.vPlane.data, start + 21);
  for (const VideoPlane& plane : {frame.uPlane, frame.vPlane}) {
    EXPECT_EQ(plane.width, 2U);
    EXPECT_EQ(plane.height, 3U);
    EXPECT_EQ(plane.size, 6U);
    EXPECT_EQ(plane.stride, 2U);
  }
}

TEST_F(VideoStreamTest, HasNoUpdateForACallerWithTheNewestFrame) {
  publish(7);
  expectNothing(get(7), false, 7);
  EXPECT_FALSE(get(6).noUpdate);
  EXPECT_FALSE(get(8).noUpdate) << "a number of an earlier stream";
}

TEST_F(VideoStreamTest, ComparesTheLow32BitsOfTheIdentifier) {
  publish(0x500000007);
  expectNothing(get(7), false, 0x500000007);
  EXPECT_EQ(get(6).frameId, 0x500000007U);
}

TEST_F(VideoStreamTest, SetsClearFrameWhileItHasNoPicture) {
  publish(1);
  stream_->clear();
  expectNothing(get(0), true, 0);
  expectNothing(get(1), true, 0);
  publish(2);
  EXPECT_FALSE(get(0).noUpdate);
  expectNothing(get(2), false, 2);
}

TEST_F(VideoStreamTest, HasNoFramesWhileItsCaptureIsDisabled) {
  publish(1);
  stream_->DisableFrameCapture();
  publish(2);
  expectNothing(get(0), true, 0);
  stream_->EnableFrameCapture();
  expectNothing(get(0), true, 0);
  publish(3);
  EXPECT_EQ(get(0).frameId, 3U);
}

TEST_F(VideoStreamTest, HasNoFramesOnceItHasEnded) {
  publish(1);
  stream_->end();
  publish(2);
  expectNothing(get(0), true, 0);
}

TEST_F(VideoStreamTest, KeepsAFrameIntactForAsLongAsItIsHeld) {
  publish(1);
  const VideoFrame held = get(0);
  held.frame->frameBuffer();
  for (std::uint64_t id = 2; id < 10; ++id) {
    publish(id);
    EXPECT_NE(get(0).yPlane.data, held.yPlane.data);
  }
  stream_->ReleaseFrame(1);
  EXPECT_EQ(held.frame->frameValueA(), 1U);
}

TEST(StreamTable, FindsAStreamUntilItIsRemoved) {
  StreamTable table;
  const auto log = std::make_shared<Log>("", "");
  EXPECT_EQ(table.find(remoteStream(3)), nullptr);
  const auto stream = std::make_shared<VideoStream>(remoteStream(3), 5, log);
  table.add(stream);
  EXPECT_EQ(table.find(remoteStream(3)), stream);
  EXPECT_EQ(table.find(remoteStream(4)), nullptr);
  EXPECT_EQ(table.find(kContentStream), nullptr);
  table.remove(remoteStream(3));
  table.remove(remoteStream(3));
  EXPECT_EQ(table.find(remoteStream(3)), nullptr);
  VideoFrame frame;
  stream->GetFrame(0, frame);
  EXPECT_TRUE(frame.clearFrame);
  table.endAll();
}

}  // namespace
}  // namespace support
