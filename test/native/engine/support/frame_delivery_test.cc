#include "engine/support/streams/frame_delivery.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <future>
#include <stdexcept>
#include <utility>
#include <vector>

#include "engine/support/streams/frame_pool.h"
#include "engine/support/streams/stream_keys.h"

namespace support {
namespace {

using testing::ElementsAre;

// Records the numbers of the frames, and can be made to wait during one.
class Receiver final : public IFrameRecieveCallback {
 public:
  void NotifyFrameArrived(std::shared_ptr<QVXCommon::IVideoFrame> frame, unsigned csrc,
                          const StreamKey& key) override {
    EXPECT_EQ(csrc, 5U);
    EXPECT_EQ(key, remoteStream(2));
    base::MutexLock lock(mutex_);
    numbers_.push_back(frame->frameValueA());
    changed_.NotifyAll();
    isRunning_ = true;
    while (isHeld_) changed_.Wait(mutex_);
    isRunning_ = false;
  }

  bool isRunning() const {
    base::MutexLock lock(mutex_);
    return isRunning_;
  }

  void hold(bool isHeld) {
    base::MutexLock lock(mutex_);
    isHeld_ = isHeld;
    changed_.NotifyAll();
  }

  void waitForFrame(unsigned number) {
    base::MutexLock lock(mutex_);
    while (numbers_.empty() || numbers_.back() != number) changed_.Wait(mutex_);
  }

  std::vector<unsigned> numbers() const {
    base::MutexLock lock(mutex_);
    return numbers_;
  }

 private:
  mutable base::Mutex mutex_;
  base::CondVar changed_;
  std::vector<unsigned> numbers_ GUARDED_BY(mutex_);
  bool isHeld_ GUARDED_BY(mutex_) = false;
  bool isRunning_ GUARDED_BY(mutex_) = false;
};

// Runs a function for each frame.
class FunctionReceiver final : public IFrameRecieveCallback {
 public:
  explicit FunctionReceiver(std::function<void()> function) : function_(std::move(function)) {}
  void NotifyFrameArrived(std::shared_ptr<QVXCommon::IVideoFrame>, unsigned,
                          const StreamKey&) override {
    function_();
  }

 private:
  const std::function<void()> function_;
};

class FrameDeliveryTest : public testing::Test {
 protected:
  ~FrameDeliveryTest() override {
    delivery_->close();
    delivery_->join();
  }

  void offer(std::uint64_t number) {
    const auto frame = pool_->take({2, 2});
    frame->id = number;
    delivery_->offer(frame, 5);
  }

  const std::shared_ptr<FramePool> pool_ = std::make_shared<FramePool>(1000);
  const std::shared_ptr<FrameDelivery> delivery_ =
      std::make_shared<FrameDelivery>(remoteStream(2), std::make_shared<Log>("", ""));
  const std::shared_ptr<Receiver> receiver_ = std::make_shared<Receiver>();
};

TEST_F(FrameDeliveryTest, HandsEachFrameToTheReceiver) {
  delivery_->setReceiver(receiver_);
  for (const unsigned number : {1U, 2U, 3U}) {
    offer(number);
    receiver_->waitForFrame(number);
  }
  EXPECT_THAT(receiver_->numbers(), ElementsAre(1, 2, 3));
}

TEST_F(FrameDeliveryTest, SkipsFramesWhenTheReceiverIsTooSlow) {
  delivery_->setReceiver(receiver_);
  receiver_->hold(true);
  offer(1);
  receiver_->waitForFrame(1);
  for (const unsigned number : {2U, 3U, 4U}) offer(number);
  receiver_->hold(false);
  receiver_->waitForFrame(4);
  EXPECT_THAT(receiver_->numbers(), ElementsAre(1, 4));
}

TEST_F(FrameDeliveryTest, DropsAWithdrawnFrame) {
  delivery_->setReceiver(receiver_);
  receiver_->hold(true);
  offer(1);
  receiver_->waitForFrame(1);
  offer(2);
  delivery_->withdraw();
  receiver_->hold(false);
  offer(3);
  receiver_->waitForFrame(3);
  EXPECT_THAT(receiver_->numbers(), ElementsAre(1, 3));
}

TEST_F(FrameDeliveryTest, KeepsNoFrameForALaterReceiver) {
  offer(1);
  delivery_->setReceiver(receiver_);
  offer(2);
  receiver_->waitForFrame(2);
  EXPECT_THAT(receiver_->numbers(), ElementsAre(2));
}

TEST_F(FrameDeliveryTest, WaitsForThePreviousReceiver) {
  for (const bool isReplaced : {false, true}) {
    const auto first = std::make_shared<Receiver>();
    delivery_->setReceiver(first);
    first->hold(true);
    offer(1);
    first->waitForFrame(1);
    auto change = std::async(std::launch::async, [&] {
      delivery_->setReceiver(isReplaced ? receiver_ : nullptr);
      EXPECT_FALSE(first->isRunning());
      EXPECT_EQ(first.use_count(), 1) << "the delivery lets the receiver of before go";
    });
    // Frames are still offered while the receiver blocks.
    offer(2);
    first->hold(false);
    change.get();
    const auto count = first->numbers().size();
    offer(3);
    EXPECT_EQ(first->numbers().size(), count);
  }
  receiver_->waitForFrame(3);
}

TEST_F(FrameDeliveryTest, WaitsForThePreviousReceiverWhenItIsClosed) {
  delivery_->setReceiver(receiver_);
  receiver_->hold(true);
  offer(1);
  receiver_->waitForFrame(1);
  delivery_->close();
  EXPECT_FALSE(delivery_->isFinished());
  auto change = std::async(std::launch::async, [&] {
    delivery_->setReceiver(nullptr);
    EXPECT_FALSE(receiver_->isRunning());
  });
  receiver_->hold(false);
  change.get();
  delivery_->join();
  EXPECT_TRUE(delivery_->isFinished());
}

TEST_F(FrameDeliveryTest, CallsNoReceiverOnceItIsClosed) {
  delivery_->setReceiver(receiver_);
  delivery_->close();
  offer(1);
  delivery_->setReceiver(receiver_);
  offer(2);
  delivery_->join();
  EXPECT_THAT(receiver_->numbers(), ElementsAre());
  EXPECT_EQ(receiver_.use_count(), 1);
}

TEST_F(FrameDeliveryTest, IsFinishedAtOnceWhenItNeverHadAReceiver) {
  delivery_->close();
  EXPECT_TRUE(delivery_->isFinished());
}

TEST_F(FrameDeliveryTest, LetsAReceiverReplaceItself) {
  std::promise<void> replaced;
  delivery_->setReceiver(std::make_shared<FunctionReceiver>([&] {
    delivery_->setReceiver(receiver_);
    replaced.set_value();
  }));
  offer(1);
  replaced.get_future().wait();
  offer(2);
  receiver_->waitForFrame(2);
}

TEST_F(FrameDeliveryTest, SurvivesAReceiverThatThrows) {
  std::atomic<int> calls = 0;
  std::promise<void> done;
  delivery_->setReceiver(std::make_shared<FunctionReceiver>([&] {
    if (++calls == 2) done.set_value();
    throw std::runtime_error("no");
  }));
  offer(1);
  while (calls == 0) std::this_thread::yield();
  offer(2);
  done.get_future().wait();
}

}  // namespace
}  // namespace support
