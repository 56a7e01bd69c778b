#include "engine/support/task_loop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "test/native/engine/support/manual_clock.h"

namespace support {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

class TaskLoopTest : public testing::Test {
 protected:
  void start() { loop_->start(loop_); }
  TaskLoop::Task mark(std::string name) {
    return [this, name] { marks_.push_back(name + '@' + std::to_string(clock_->now() / 1ms)); };
  }

  const std::shared_ptr<ManualClock> clock_ = std::make_shared<ManualClock>();
  std::vector<std::string> marks_;  // written by the loop's thread, read while it is settled
  const std::shared_ptr<TaskLoop> loop_ =
      std::make_shared<TaskLoop>(clock_, std::make_shared<Log>("", ""));

  ~TaskLoopTest() override { loop_->stop(); }
};

TEST_F(TaskLoopTest, RunsTasksInTheOrderOfTheirTimes) {
  start();
  loop_->runAt(3ms, mark("c"));
  loop_->runAt(1ms, mark("a"));
  loop_->runAt(2ms, mark("b"));
  clock_->pass(2ms, *loop_);
  EXPECT_THAT(marks_, ElementsAre("a@1", "b@2"));
  clock_->pass(1s, *loop_);
  EXPECT_THAT(marks_, ElementsAre("a@1", "b@2", "c@3"));
}

TEST_F(TaskLoopTest, RunsTasksOfOneTimeInTheOrderOfPosting) {
  for (const char name : {'a', 'b', 'c'}) loop_->runAt(1ms, mark(std::string(1, name)));
  start();
  clock_->pass(1ms, *loop_);
  EXPECT_THAT(marks_, ElementsAre("a@1", "b@1", "c@1"));
}

TEST_F(TaskLoopTest, RunsTasksThatATaskPosts) {
  start();
  loop_->post([this] { loop_->runAt(loop_->now() + 5ms, mark("later")); });
  clock_->pass(5ms, *loop_);
  EXPECT_THAT(marks_, ElementsAre("later@5"));
}

TEST_F(TaskLoopTest, DoesNotRunACancelledTask) {
  start();
  const auto id = loop_->runAt(1ms, mark("no"));
  loop_->cancel(id);
  loop_->cancel(id);
  clock_->pass(1s, *loop_);
  EXPECT_THAT(marks_, IsEmpty());
}

TEST_F(TaskLoopTest, ContinuesAfterATaskThatThrows) {
  start();
  loop_->post([] { throw std::runtime_error("no"); });
  loop_->post([] { throw 1; });
  loop_->post(mark("on"));
  loop_->settle();
  EXPECT_THAT(marks_, ElementsAre("on@0"));
}

TEST_F(TaskLoopTest, RunsNoTaskOnceItIsStopped) {
  start();
  loop_->runAt(1ms, mark("no"));
  loop_->stop();
  loop_->post(mark("no"));
  clock_->pass(1s, *loop_);
  EXPECT_THAT(marks_, IsEmpty());
  EXPECT_EQ(loop_->nextDue(), std::nullopt);
}

TEST_F(TaskLoopTest, WaitsForTheRunningTaskWhenItIsStopped) {
  start();
  std::promise<void> running;
  std::promise<void> released;
  loop_->post([&] {
    running.set_value();
    released.get_future().wait();
    mark("done")();
  });
  running.get_future().wait();
  std::jthread stopper([this] { loop_->stop(); });
  released.set_value();
  stopper.join();
  EXPECT_THAT(marks_, ElementsAre("done@0"));
}

TEST(TaskLoop, MayBeStoppedByATaskAndIsJoinedByItsOwner) {
  auto loop = std::make_shared<TaskLoop>(realClock(), std::make_shared<Log>("", ""));
  const std::weak_ptr<TaskLoop> watch = loop;
  std::promise<void> done;
  loop->start(loop);
  loop->post([&done, keeper = loop]() mutable {
    keeper->stop();
    keeper.reset();
    done.set_value();
  });
  loop.reset();
  done.get_future().wait();
  while (!watch.expired()) std::this_thread::yield();
}

TEST(TaskLoop, RunsByTheRealClock) {
  const auto clock = realClock();
  const auto loop = std::make_shared<TaskLoop>(clock, std::make_shared<Log>("", ""));
  loop->start(loop);
  const Time due = clock->now() + 5ms;
  std::promise<Time> ran;
  loop->runAt(due, [&] { ran.set_value(clock->now()); });
  EXPECT_GE(ran.get_future().get(), due);
  loop->stop();
}

TEST_F(TaskLoopTest, ADestroyedTimerCancelsItsTask) {
  start();
  loop_->post([this] {
    Timer timer(*loop_);
    timer.runAt(1ms, mark("no"));
  });
  clock_->pass(1s, *loop_);
  EXPECT_THAT(marks_, IsEmpty());
}

TEST_F(TaskLoopTest, ATimerThatIsSetAgainRunsOnce) {
  start();
  Timer timer(*loop_);
  loop_->post([&] {
    timer.runAt(1ms, mark("no"));
    timer.runAt(2ms, mark("yes"));
  });
  clock_->pass(1s, *loop_);
  EXPECT_THAT(marks_, ElementsAre("yes@2"));
}

}  // namespace
}  // namespace support
