// The shared memory classes between processes, with the real lock and its real 5 seconds.

#include <signal.h>

#include <algorithm>

#include "addon/sharedmem/shared_memory_allocator.h"
#include "addon/sharedmem/shared_memory_layout.h"
#include "addon/sharedmem/shared_memory_manager.h"
#include "test/native/sharedmem/fake_video_frame.h"
#include "test/native/sharedmem/shared_memory_test.h"
#include "test/native/support/child_process.h"

using sharedmem::kMainSegmentSize;
using sharedmem::SharedMemoryAllocator;
using sharedmem::SharedMemoryManager;

namespace {

using test::CapturedOutput;
using test::ChildProcess;
using test::Conversation;
using test::linesWrittenBy;
using test::objectExists;
using test::semaphoreExists;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

using ManagerPtr = std::shared_ptr<SharedMemoryManager>;

constexpr std::uint32_t kSize = 10'000;
constexpr unsigned long kNoFrame = 1'000'000;
const StreamKey kRemote(TSLM_STREAM_REMOTE, 3);

class TwoProcessesTest : public SharedMemoryTest {
 protected:
  // Neither side of these tests prints over the test program's own lines.
  const CapturedOutput output_;
};

std::shared_ptr<FakeVideoFrame> pictureOf(std::uint8_t value) {
  auto frame = std::make_shared<FakeVideoFrame>(640, 360);
  std::fill(frame->pixels.begin(), frame->pixels.end(), value);
  return frame;
}

TEST_F(TwoProcessesTest, TheWidgetReadsWhatTheMainProcessStores) {
  const auto main = std::make_shared<SharedMemoryManager>(creating(kMainSegmentSize));
  const auto stored = std::make_shared<FakeVideoFrame>(641, 361, 9);
  ChildProcess widget([&](const Conversation& parent) {
    const auto manager = SharedMemoryManager::CreateSharedMemoryManagerWithKey(
        {.shmName = names_.shm(), .semName = names_.sem()});
    EXPECT_EQ(manager->getVideoFrameSource(kRemote), nullptr) << "not listed yet";
    parent.tell();
    EXPECT_TRUE(parent.awaitOther());
    const auto source = manager->getVideoFrameSource(kRemote);
    ASSERT_NE(source, nullptr);
    VideoFrame frame;
    EXPECT_TRUE(source->getVideoFrame(frame, kNoFrame));
    EXPECT_EQ(frame.csrc, 4711u);
    EXPECT_EQ(frame.width, 641u);
    EXPECT_EQ(frame.height, 361u);
    EXPECT_TRUE(std::equal(stored->pixels.begin(), stored->pixels.end(), frame.yPlane.data));
    EXPECT_TRUE(source->releaseVideoFrame());
    parent.tell();
    EXPECT_TRUE(parent.awaitOther());
    EXPECT_EQ(manager->getVideoFrameSource(kRemote), nullptr) << "not listed any more";
  });
  ASSERT_TRUE(widget.conversation().awaitOther());
  EXPECT_TRUE(main->enableSharedMemory(kRemote));
  main->NotifyFrameArrived(stored, 4711, kRemote);
  widget.conversation().tell();
  ASSERT_TRUE(widget.conversation().awaitOther());
  EXPECT_TRUE(main->disableSharedMemory(kRemote));
  widget.conversation().tell();
  widget.join();
}

// Each round has one read and one write at the same time: a semaphore is not fair, so a process
// that takes it repeatedly would starve the other.
TEST_F(TwoProcessesTest, TheWidgetNeverSeesHalfAFrame) {
  constexpr unsigned int kRounds = 300;
  const auto main = std::make_shared<SharedMemoryManager>(creating(kMainSegmentSize));
  ASSERT_TRUE(main->enableSharedMemory(kRemote));
  main->NotifyFrameArrived(pictureOf(0), 0, kRemote);
  ChildProcess widget([&](const Conversation& parent) {
    const auto manager = SharedMemoryManager::CreateSharedMemoryManagerWithKey(
        {.shmName = names_.shm(), .semName = names_.sem()});
    const auto source = manager->getVideoFrameSource(kRemote);
    ASSERT_NE(source, nullptr);
    VideoFrame frame;
    for (unsigned int round = 1; round <= kRounds; ++round) {
      ASSERT_TRUE(parent.awaitOther());
      ASSERT_TRUE(source->getVideoFrame(frame, kNoFrame));
      const std::uint8_t* begin = frame.yPlane.data;
      const std::uint8_t* end = frame.vPlane.data + frame.vPlane.size;
      const auto value = static_cast<std::uint8_t>(frame.csrc);
      EXPECT_EQ(std::count(begin, end, value), end - begin) << "frame " << frame.csrc;
      EXPECT_TRUE(source->releaseVideoFrame());
      EXPECT_THAT(frame.csrc, testing::AnyOf(round - 1, round));
      parent.tell();
    }
  });
  for (unsigned int round = 1; round <= kRounds; ++round) {
    widget.conversation().tell();
    main->NotifyFrameArrived(pictureOf(static_cast<std::uint8_t>(round)), round, kRemote);
    ASSERT_TRUE(widget.conversation().awaitOther());
  }
  widget.join();
}

TEST_F(TwoProcessesTest, AnOpenerGivesUpAfterFiveSecondsWhileTheCreatorHoldsTheLock) {
  const SharedMemoryAllocator creator(creating(kSize));
  ChildProcess other([&](const Conversation&) {
    SharedMemoryAllocator opener(opening(kSize));
    EXPECT_THAT(linesWrittenBy([&] { EXPECT_FALSE(opener.lockDataAccess()); }),
                ElementsAre("sem_timedwait timedout, error:110"));
    EXPECT_THAT(linesWrittenBy([&] { EXPECT_FALSE(opener.unlockDataAccess()); }),
                ElementsAre("unlockDataAccess failed, trying to unlock without locking!"));
  });
  other.join();
}

TEST_F(TwoProcessesTest, AnOpenerGetsTheLockWhenTheCreatorGivesItBack) {
  SharedMemoryAllocator creator(creating(kSize));
  std::memset(creator.getDataPtr(), 0, kSize);
  ChildProcess other([&](const Conversation& parent) {
    SharedMemoryAllocator opener(opening(kSize));
    parent.tell();
    ASSERT_TRUE(opener.lockDataAccess());
    EXPECT_EQ(*static_cast<const std::uint8_t*>(opener.getDataPtr()), 42);
    EXPECT_TRUE(opener.unlockDataAccess());
  });
  ASSERT_TRUE(other.conversation().awaitOther());
  *static_cast<std::uint8_t*>(creator.getDataPtr()) = 42;
  EXPECT_TRUE(creator.unlockDataAccess());
  other.join();
}

TEST_F(TwoProcessesTest, AWaitSurvivesSignals) {
  SharedMemoryAllocator creator(creating(kSize));
  ChildProcess other([&](const Conversation& parent) {
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR1, &action, nullptr);
    SharedMemoryAllocator opener(opening(kSize));
    parent.tell();
    EXPECT_TRUE(opener.lockDataAccess());
    EXPECT_TRUE(opener.unlockDataAccess());
  });
  ASSERT_TRUE(other.conversation().awaitOther());
  const auto hasWritten = [&](const char* text) {
    return output_.text().find(text) != std::string::npos;
  };
  // A wait that ends without an interruption ends the attempts too.
  while (!hasWritten("in infite loop") && !hasWritten("timedout")) kill(other.pid(), SIGUSR1);
  EXPECT_THAT(output_.text(), testing::HasSubstr("lockDataAccess: in infite loop, error:4\n"));
  EXPECT_TRUE(creator.unlockDataAccess());
  other.join();
}

TEST_F(TwoProcessesTest, TheNamesAreGoneForAThirdProcessOnceTheOpenerHasEnded) {
  SharedMemoryAllocator creator(creating(kSize));
  ASSERT_TRUE(creator.unlockDataAccess());
  ChildProcess opener([&](const Conversation&) {
    EXPECT_TRUE(SharedMemoryAllocator(opening(kSize)).initialised());
  });
  opener.join();
  EXPECT_FALSE(objectExists(names_.shm()));
  EXPECT_FALSE(semaphoreExists(names_.sem()));
  ChildProcess third([&](const Conversation&) {
    EXPECT_THAT(linesWrittenBy([&] { SharedMemoryAllocator(opening(kSize)); }),
                Contains("shm_open failed, error:2"));
  });
  third.join();
  ASSERT_TRUE(creator.lockDataAccess());
  std::memset(creator.getDataPtr(), 1, kSize);
  EXPECT_TRUE(creator.unlockDataAccess());
}

TEST_F(TwoProcessesTest, TheWriterDropsAFrameInFiveSecondsWhileTheWidgetKeepsItsOwn) {
  const auto main = std::make_shared<SharedMemoryManager>(creating(kMainSegmentSize));
  ASSERT_TRUE(main->enableSharedMemory(kRemote));
  main->NotifyFrameArrived(pictureOf(1), 1, kRemote);
  ChildProcess widget([&](const Conversation& parent) {
    const auto manager = SharedMemoryManager::CreateSharedMemoryManagerWithKey(
        {.shmName = names_.shm(), .semName = names_.sem()});
    const auto source = manager->getVideoFrameSource(kRemote);
    ASSERT_NE(source, nullptr);
    VideoFrame frame;
    EXPECT_TRUE(source->getVideoFrame(frame, kNoFrame));
    parent.tell();
    EXPECT_TRUE(parent.awaitOther());
    EXPECT_EQ(frame.yPlane.data[0], 1) << "unchanged until the release";
    EXPECT_TRUE(source->releaseVideoFrame());
    parent.tell();
    EXPECT_TRUE(parent.awaitOther());
    EXPECT_TRUE(source->getVideoFrame(frame, kNoFrame));
    EXPECT_EQ(frame.csrc, 3u);
    EXPECT_EQ(frame.yPlane.data[0], 3);
    EXPECT_TRUE(source->releaseVideoFrame());
  });
  ASSERT_TRUE(widget.conversation().awaitOther());
  EXPECT_THAT(linesWrittenBy([&] { main->NotifyFrameArrived(pictureOf(2), 2, kRemote); }),
              ElementsAre("sem_timedwait timedout, error:110"));
  widget.conversation().tell();
  ASSERT_TRUE(widget.conversation().awaitOther());
  EXPECT_THAT(linesWrittenBy([&] { main->NotifyFrameArrived(pictureOf(3), 3, kRemote); }),
              IsEmpty());
  widget.conversation().tell();
  widget.join();
}

// A process that dies with the lock keeps it for ever; only a new segment is free again.
TEST_F(TwoProcessesTest, EnteringAgainRecoversAStreamWhoseReaderWasKilledWithTheLock) {
  const auto main = std::make_shared<SharedMemoryManager>(creating(kMainSegmentSize));
  ASSERT_TRUE(main->enableSharedMemory(kRemote));
  main->NotifyFrameArrived(pictureOf(1), 1, kRemote);
  ChildProcess dying([&](const Conversation&) {
    const auto manager = SharedMemoryManager::CreateSharedMemoryManagerWithKey(
        {.shmName = names_.shm(), .semName = names_.sem()});
    const auto source = manager->getVideoFrameSource(kRemote);
    VideoFrame frame;
    EXPECT_TRUE(source->getVideoFrame(frame, kNoFrame));
    _exit(testing::Test::HasFailure() ? 1 : 0);
  });
  dying.join();
  EXPECT_THAT(linesWrittenBy([&] { main->NotifyFrameArrived(pictureOf(2), 2, kRemote); }),
              ElementsAre("sem_timedwait timedout, error:110"));

  EXPECT_TRUE(main->disableSharedMemory(kRemote));
  EXPECT_TRUE(main->enableSharedMemory(kRemote));
  EXPECT_THAT(linesWrittenBy([&] { main->NotifyFrameArrived(pictureOf(3), 3, kRemote); }),
              IsEmpty());
  ChildProcess next([&](const Conversation&) {
    const auto manager = SharedMemoryManager::CreateSharedMemoryManagerWithKey(
        {.shmName = names_.shm(), .semName = names_.sem()});
    const auto source = manager->getVideoFrameSource(kRemote);
    ASSERT_NE(source, nullptr);
    VideoFrame frame;
    EXPECT_TRUE(source->getVideoFrame(frame, kNoFrame));
    EXPECT_EQ(frame.csrc, 3u);
  });
  next.join();
}

}  // namespace
