#include "engine/embedded/streams/sender.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "engine/support/streams/stream_keys.h"
#include "test/native/engine/support/manual_clock.h"

namespace embedded {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

TEST(FrameTime, IsExactForIntegerAndFractionalRates) {
  EXPECT_EQ(frameTime({30, 1}, 0), 0s);
  EXPECT_EQ(frameTime({30, 1}, 1), 33'333'333ns);
  EXPECT_EQ(frameTime({30, 1}, 3), 100ms);
  EXPECT_EQ(frameTime({30'000, 1001}, 30'000), 1001s);
  EXPECT_EQ(frameTime({30'000, 1001}, 30'001), 1001s + 33'366'666ns);
  EXPECT_EQ(frameTime({99'999, 100'000}, 99'998), 99'998'999'989'999ns);
}

// Numbers its pictures in their first byte; ends after picture 1000.
class CountingSource final : public support::PictureSource {
 public:
  support::Size size() const override { return {2, 2}; }
  bool has(std::uint64_t number) const override { return number <= 1000; }
  bool draw(std::uint64_t number, std::uint32_t level, std::uint8_t* pixels) override {
    pixels[0] = static_cast<std::uint8_t>(number);
    pixels[1] = static_cast<std::uint8_t>(level);
    return true;
  }
};

class SenderTest : public testing::Test {
 protected:
  SenderTest() { loop_.start(nullptr); }
  ~SenderTest() override {
    loop_.stop();
    stream_->end();
    stream_->delivery().join();
  }

  // Runs a function on the engine's thread.
  void run(std::function<void()> function) {
    loop_.post(std::move(function));
    loop_.settle();
  }
  void start(support::FrameRate rate, std::uint32_t mostPerSecond = 0) {
    run([=, this] { sender_.start(std::make_unique<CountingSource>(), rate, mostPerSecond); });
  }
  // The identifiers of the frames of a span, as seen each millisecond.
  std::vector<std::uint64_t> idsWithin(support::Time span) {
    std::vector<std::uint64_t> ids;
    for (support::Time passed = 0ms; passed < span; passed += 1ms) {
      clock_->pass(1ms, loop_);
      VideoFrame frame;
      stream_->GetFrame(0, frame);
      if (!frame.noUpdate && (ids.empty() || ids.back() != frame.frameId)) {
        ids.push_back(frame.frameId);
      }
    }
    return ids;
  }

  const std::shared_ptr<support::ManualClock> clock_ = std::make_shared<support::ManualClock>();
  const std::shared_ptr<support::Log> log_ = std::make_shared<support::Log>("", "");
  support::TaskLoop loop_{clock_, log_};
  const std::shared_ptr<support::VideoStream> stream_ =
      std::make_shared<support::VideoStream>(support::remoteStream(0), 5, log_);
  Sender sender_{loop_, std::make_shared<support::FramePool>(1000), stream_, LossyLink(0, 0),
                 [] { return 42U; }};
};

TEST_F(SenderTest, NumbersFramesFromOneDuringItsLifetime) {
  start({100, 1});
  EXPECT_THAT(idsWithin(25ms), ElementsAre(1, 2, 3));
  run([this] { sender_.stop(); });
  EXPECT_THAT(idsWithin(25ms), ElementsAre());
  start({50, 1});
  EXPECT_THAT(idsWithin(25ms), ElementsAre(4, 5));
}

TEST_F(SenderTest, SkipsFramesForALowerRate) {
  start({30, 1}, 15);
  EXPECT_THAT(idsWithin(199ms), ElementsAre(1, 3, 5));
  const auto withinASecond = [this](support::FrameRate rate, std::uint32_t most) {
    start(rate, most);
    return idsWithin(999ms).size();
  };
  EXPECT_EQ(withinASecond({30, 1}, 7), 7U);
  EXPECT_EQ(withinASecond({30, 1}, 3), 3U);
  EXPECT_EQ(withinASecond({25, 1}, 15), 15U);
  EXPECT_EQ(withinASecond({10, 1}, 15), 10U);
  EXPECT_EQ(withinASecond({30'000, 1001}, 15), 15U);
}

TEST_F(SenderTest, KeepsItsTimingWhenItsLimitChanges) {
  start({10, 1});
  idsWithin(250ms);
  run([this] { sender_.change(std::make_unique<CountingSource>(), 5); });
  EXPECT_THAT(idsWithin(300ms), ElementsAre(3, 5));
}

TEST_F(SenderTest, EndsWithItsSource) {
  start({1000, 1});
  clock_->pass(2s, loop_);
  VideoFrame frame;
  stream_->GetFrame(0, frame);
  EXPECT_EQ(frame.frameId, 1000U);
  EXPECT_EQ(loop_.nextDue(), std::nullopt);
}

TEST_F(SenderTest, PassesTheSendersLevelToTheSource) {
  start({10, 1});
  VideoFrame frame;
  stream_->GetFrame(0, frame);
  EXPECT_EQ(frame.yPlane.data[1], 42);
  EXPECT_EQ(frame.csrc, 5U);
}

TEST_F(SenderTest, StampsFramesWithTheTimeOfCapture) {
  clock_->pass(70s, loop_);
  start({10, 1});
  clock_->pass(100ms, loop_);
  VideoFrame frame;
  stream_->GetFrame(0, frame);
  EXPECT_EQ(frame.engineValue, 70'100'000'000U);
  EXPECT_EQ(frame.frame->frameValueA(), 2U);
  EXPECT_EQ(frame.frame->frameValueB(), 70'100U);
  EXPECT_EQ(frame.frame->frameValueC(), 0U);
}

TEST_F(SenderTest, CatchesUpAfterAShortStallOnly) {
  start({10, 1});
  // The clock jumps, as it does for a process that was stopped.
  clock_->jump(190ms);
  loop_.settle();
  EXPECT_THAT(idsWithin(1ms), ElementsAre(2));
  clock_->jump(60s);
  loop_.settle();
  EXPECT_THAT(idsWithin(1ms), ElementsAre(3));
  EXPECT_THAT(idsWithin(198ms), ElementsAre(3, 4));
}

TEST_F(SenderTest, PublishesNoFrameWhoseCaptureIsDisabled) {
  start({10, 1});
  stream_->DisableFrameCapture();
  EXPECT_THAT(idsWithin(300ms), ElementsAre());
  stream_->EnableFrameCapture();
  EXPECT_THAT(idsWithin(100ms), ElementsAre(2));
}

}  // namespace
}  // namespace embedded
