// The behaviour of the shared memory classes when system calls fail.

#include <cerrno>
#include <utility>

#include "addon/sharedmem/shared_memory_allocator.h"
#include "addon/sharedmem/shared_memory_layout.h"
#include "addon/sharedmem/shared_memory_manager.h"
#include "addon/sharedmem/shared_memory_video_frame_source.h"
#include "test/native/sharedmem/fake_video_frame.h"
#include "test/native/sharedmem/shared_memory_test.h"
#include "test/native/sharedmem/system_calls.h"

using sharedmem::kFrameSegmentSize;
using sharedmem::kMainSegmentSize;
using sharedmem::SharedMemoryAllocator;
using sharedmem::SharedMemoryInfo;
using sharedmem::SharedMemoryManager;
using sharedmem::SharedMemoryVideoFrameSource;

namespace {

using test::linesWrittenBy;
using test::objectExists;
using test::semaphoreCount;
using test::semaphoreExists;
using test::systemCalls;
using test::withoutAddresses;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

constexpr std::uint32_t kSize = 10'000;
constexpr unsigned long kNoFrame = 1'000'000;

class FailingSystemCallsTest : public SharedMemoryTest {
 protected:
  void SetUp() override { systemCalls() = {}; }
  void TearDown() override {
    systemCalls() = {};
    SharedMemoryTest::TearDown();
  }

  template <typename Class>
  static std::unique_ptr<Class> quiet(const SharedMemoryInfo& info) {
    std::unique_ptr<Class> made;
    linesWrittenBy([&] { made = std::make_unique<Class>(info); });
    return made;
  }
  // A segment that its creator has made available.
  std::unique_ptr<SharedMemoryAllocator> availableSegment() const {
    auto creator = quiet<SharedMemoryAllocator>(creating(kSize));
    EXPECT_TRUE(creator->unlockDataAccess());
    return creator;
  }

  // The calls that `action` makes, beginning with `first`.
  template <typename Action>
  static std::vector<std::string> callsOf(Action&& action, const std::string& first = "") {
    std::vector<std::string> calls;
    linesWrittenBy([&] {
      systemCalls().made.clear();
      action();
      calls = systemCalls().made;
    });
    if (!first.empty()) calls.erase(calls.begin(), std::find(calls.begin(), calls.end(), first));
    return calls;
  }
};

using FailingAllocatorTest = FailingSystemCallsTest;
using FailingFrameSourceTest = FailingSystemCallsTest;
using FailingManagerTest = FailingSystemCallsTest;

TEST_F(FailingAllocatorTest, EachFailingStepOfTheSetUpPrintsItsLineAndLeaksNothing) {
  const struct {
    bool create;
    std::string call;
    int error;
    std::string line;
  } cases[] = {
      {true, "shm_open", EACCES, "shm_open failed, error:13"},
      {true, "posix_fallocate", ENOSPC, "initialize: posix_fallocate failed, error:28"},
      {true, "fstat", EIO, "shm_open failed, error:5"},
      {true, "mmap", ENOMEM, "initialize: mmap failed, error:12"},
      {true, "sem_open", EMFILE, "initialize: sem_open failed, error:24"},
      {false, "shm_open", EACCES, "shm_open failed, error:13"},
      {false, "fstat", EIO, "initialize: mmap failed, error:5"},
      {false, "mmap", ENOMEM, "initialize: mmap failed, error:12"},
      {false, "posix_fallocate", ENOSPC, "initialize: posix_fallocate failed, error:28"},
      {false, "sem_open", EMFILE, "initialize: sem_open failed, error:24"},
  };
  for (const auto& [create, call, error, line] : cases) {
    SCOPED_TRACE(call + (create ? " creating" : " opening"));
    if (!create) {
      RawObject(names_.shm(), kSize);
      sem_close(sem_open(names_.sem().c_str(), O_CREAT, 0600, 1));
    }
    const int descriptors = openDescriptors();
    // Numbers stay decimal on a stream that was left in hexadecimal.
    switchToHexadecimal();
    systemCalls().fail(call, error);
    const auto lines = linesWrittenBy([&, create = create] {
      SharedMemoryAllocator allocator(create ? creating(kSize) : opening(kSize));
      EXPECT_FALSE(allocator.initialised());
      EXPECT_FALSE(allocator.lockDataAccess());
      EXPECT_EQ(allocator.getDataPtr(), nullptr);
      EXPECT_FALSE(allocator.unlockDataAccess());
    });
    EXPECT_THAT(
        std::vector<std::string>(lines.end() - 6, lines.end()),
        ElementsAre(line, StartsWith("SharedMemoryAllocator:0x"), "lockDataAccess, not initialised",
                    "getDataPtr, not initialised", "unlockDataAccess, not initialised",
                    StartsWith("~SharedMemoryAllocator:0x")));
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_EQ(mappingsOf(names_.shm()), 0);
    const bool wasOpened = call != "shm_open";
    EXPECT_EQ(objectExists(names_.shm()), !create && !wasOpened);
    EXPECT_EQ(semaphoreExists(names_.sem()), !create);
    shm_unlink(names_.shm().c_str());
    sem_unlink(names_.sem().c_str());
    systemCalls() = {};
  }
}

TEST_F(FailingAllocatorTest, AFailedFtruncateIsReportedAndDoesNotStopTheSetUp) {
  systemCalls().fail("ftruncate", EPERM);
  EXPECT_THAT(
      linesWrittenBy([&] { EXPECT_TRUE(SharedMemoryAllocator(creating(kSize)).initialised()); }),
      Contains("initialize: Trucating data for pid" + std::to_string(getpid()) + " ,Ret = -1"));
}

TEST_F(FailingAllocatorTest, AFullFileSystemRefusesTheCreationAfterFtruncate) {
  systemCalls().fail("posix_fallocate", ENOSPC);
  EXPECT_THAT(
      withoutAddresses(linesWrittenBy([&] { SharedMemoryAllocator(creating(kSize)); })),
      ElementsAre("initialize: Creating shared mem with name:" + names_.shm() +
                      ", SEM name:" + names_.sem(),
                  "initialize: Trucating data for pid" + std::to_string(getpid()) + " ,Ret = 0",
                  "initialize: posix_fallocate failed, error:28",
                  "SharedMemoryAllocator:0xADDRESS, pid:" + hexPid() + ", created",
                  "~SharedMemoryAllocator:0xADDRESS, pid:" + hexPid() + ", destroyed"));
}

TEST_F(FailingAllocatorTest, AnInterruptedReservationIsRepeated) {
  systemCalls().fail("posix_fallocate", EINTR, 3);
  linesWrittenBy([&] { EXPECT_TRUE(SharedMemoryAllocator(creating(kSize)).initialised()); });
  EXPECT_EQ(systemCalls().countOf("posix_fallocate"), 4);
}

TEST_F(FailingAllocatorTest, OnlyTheCreatorSetsTheSize) {
  const auto creator = availableSegment();
  systemCalls().made.clear();
  const auto opener = quiet<SharedMemoryAllocator>(opening(kSize));
  EXPECT_EQ(systemCalls().countOf("ftruncate"), 0);
}

TEST_F(FailingAllocatorTest, TheOpenerReservesNothingOfASegmentThatIsTooShort) {
  RawObject(names_.shm(), kSize - 1);
  systemCalls().made.clear();
  quiet<SharedMemoryAllocator>(opening(kSize));
  EXPECT_EQ(systemCalls().countOf("posix_fallocate"), 0);
}

TEST_F(FailingAllocatorTest, ACreatorRefusesAnotherUsersObject) {
  RawObject(names_.shm(), kSize - 1);
  systemCalls().strangeLook = 1;
  EXPECT_THAT(
      linesWrittenBy([&] { EXPECT_FALSE(SharedMemoryAllocator(creating(kSize)).initialised()); }),
      Contains("shm_open failed, error:1"));
  EXPECT_EQ(RawObject(names_.shm()).size(), kSize - 1) << "it is not touched";
  shm_unlink(names_.shm().c_str());
}

TEST_F(FailingAllocatorTest, ACreatorRefusesAnotherUsersSemaphore) {
  sem_close(sem_open(names_.sem().c_str(), O_CREAT, 0600, 1));
  systemCalls().strangeLook = 2;
  EXPECT_THAT(
      linesWrittenBy([&] { EXPECT_FALSE(SharedMemoryAllocator(creating(kSize)).initialised()); }),
      Contains("initialize: sem_open failed, error:1"));
  EXPECT_FALSE(objectExists(names_.shm()));
  EXPECT_EQ(semaphoreCount(names_.sem()), 1);
  sem_unlink(names_.sem().c_str());
}

TEST_F(FailingAllocatorTest, AnotherUsersSegmentMayBeOpened) {
  const auto creator = availableSegment();
  for (const int look : {1, 2}) {
    systemCalls().strangeLook = look;
    linesWrittenBy([&] { EXPECT_TRUE(SharedMemoryAllocator(opening(kSize)).initialised()); });
    sem_close(sem_open(names_.sem().c_str(), O_CREAT, 0600, 1));
    RawObject(names_.shm(), kSize);
  }
}

TEST_F(FailingAllocatorTest, TearsDownTheMappingTheObjectAndTheSemaphoreInThisOrder) {
  for (const bool create : {true, false}) {
    const auto creator = create ? nullptr : availableSegment();
    auto allocator = quiet<SharedMemoryAllocator>(create ? creating(kSize) : opening(kSize));
    auto calls = callsOf([&] { allocator.reset(); }, "munmap");
    // The C library unmaps a semaphore through a call of its own.
    EXPECT_THAT(calls, ElementsAre("munmap", "close", "shm_unlink", "sem_unlink", "sem_close"));
  }
}

TEST_F(FailingAllocatorTest, AFailedSetUpTearsDownWhatItHadMadeAndOnlyOnce) {
  systemCalls().fail("mmap", ENOMEM);
  std::unique_ptr<SharedMemoryAllocator> allocator;
  EXPECT_THAT(callsOf([&] { allocator = std::make_unique<SharedMemoryAllocator>(creating(kSize)); },
                      "mmap"),
              ElementsAre("mmap", "close", "shm_unlink"));
  EXPECT_THAT(callsOf([&] { allocator.reset(); }), IsEmpty());

  systemCalls().fail("sem_open", ENOSPC);
  EXPECT_THAT(callsOf([&] { allocator = std::make_unique<SharedMemoryAllocator>(creating(kSize)); },
                      "sem_open"),
              ElementsAre("sem_open", "munmap", "close", "shm_unlink"));
  EXPECT_THAT(callsOf([&] { allocator.reset(); }), IsEmpty());

  systemCalls().fail("shm_open", EACCES);
  EXPECT_THAT(callsOf([&] { allocator = std::make_unique<SharedMemoryAllocator>(creating(kSize)); },
                      "shm_open"),
              ElementsAre("shm_open"));
  EXPECT_THAT(callsOf([&] { allocator.reset(); }), IsEmpty());
}

TEST_F(FailingAllocatorTest, WaitsForTheLockUntilFiveSecondsFromNow) {
  const auto creator = availableSegment();
  systemCalls().wallTime = timespec{.tv_sec = 1'000'000, .tv_nsec = 999'999'999};
  systemCalls().fail("sem_timedwait", ETIMEDOUT);
  EXPECT_THAT(linesWrittenBy([&] { EXPECT_FALSE(creator->lockDataAccess()); }),
              ElementsAre("sem_timedwait timedout, error:110"));
  ASSERT_EQ(systemCalls().deadlines.size(), 1u);
  EXPECT_EQ(systemCalls().deadlines[0].tv_sec, 1'000'005);
  EXPECT_EQ(systemCalls().deadlines[0].tv_nsec, 999'999'999);
}

TEST_F(FailingAllocatorTest, ALockThatTimedOutIsNotHeldAndCanBeTriedAgain) {
  const auto creator = availableSegment();
  systemCalls().fail("sem_timedwait", ETIMEDOUT);
  linesWrittenBy([&] {
    EXPECT_FALSE(creator->lockDataAccess());
    EXPECT_EQ(creator->getDataPtr(), nullptr);
    EXPECT_FALSE(creator->unlockDataAccess());
  });
  EXPECT_EQ(semaphoreCount(names_.sem()), 1);
  EXPECT_THAT(linesWrittenBy([&] { EXPECT_TRUE(creator->lockDataAccess()); }), IsEmpty());
  EXPECT_EQ(semaphoreCount(names_.sem()), 0);
}

TEST_F(FailingAllocatorTest, AnInterruptedWaitContinuesToTheSameDeadline) {
  const auto creator = availableSegment();
  systemCalls().fail("sem_timedwait", EINTR, 3);
  const std::string line = "lockDataAccess: in infite loop, error:4";
  EXPECT_THAT(linesWrittenBy([&] { EXPECT_TRUE(creator->lockDataAccess()); }),
              ElementsAre(line, line, line));
  EXPECT_EQ(systemCalls().countOf("clock_gettime"), 1);
  ASSERT_EQ(systemCalls().deadlines.size(), 4u);
  for (const timespec& deadline : systemCalls().deadlines) {
    EXPECT_EQ(deadline.tv_sec, systemCalls().deadlines[0].tv_sec);
    EXPECT_EQ(deadline.tv_nsec, systemCalls().deadlines[0].tv_nsec);
  }
  EXPECT_NE(creator->getDataPtr(), nullptr);
}

TEST_F(FailingAllocatorTest, AnyOtherFailureOfTheWaitPrintsTheLineOfATimeout) {
  const auto creator = availableSegment();
  switchToHexadecimal();
  for (const int error : {EINVAL, EDEADLK, ETIMEDOUT, EAGAIN}) {
    systemCalls().fail("sem_timedwait", error);
    EXPECT_THAT(linesWrittenBy([&] { EXPECT_FALSE(creator->lockDataAccess()); }),
                ElementsAre("sem_timedwait timedout, error:" + std::to_string(error)));
  }
}

TEST_F(FailingAllocatorTest, DoesNotWaitWithoutATime) {
  const auto creator = availableSegment();
  switchToHexadecimal();
  systemCalls().fail("clock_gettime", EINVAL);
  EXPECT_THAT(linesWrittenBy([&] { EXPECT_FALSE(creator->lockDataAccess()); }),
              ElementsAre("clock_gettime failed, error:22"));
  EXPECT_EQ(systemCalls().countOf("sem_timedwait"), 0);
}

TEST_F(FailingAllocatorTest, DoesNotWaitForALockThatItHolds) {
  const auto creator = quiet<SharedMemoryAllocator>(creating(kSize));
  linesWrittenBy([&] { EXPECT_TRUE(creator->lockDataAccess()); });
  EXPECT_EQ(systemCalls().countOf("clock_gettime"), 0);
  EXPECT_EQ(systemCalls().countOf("sem_timedwait"), 0);
}

TEST_F(FailingAllocatorTest, KeepsALockThatItCouldNotRelease) {
  const auto creator = quiet<SharedMemoryAllocator>(creating(kSize));
  switchToHexadecimal();
  systemCalls().fail("sem_post", EOVERFLOW);
  EXPECT_THAT(linesWrittenBy([&] { EXPECT_FALSE(creator->unlockDataAccess()); }),
              ElementsAre("unlockDataAccess sem_post failed, error:75"));
  EXPECT_EQ(semaphoreCount(names_.sem()), 0);
  EXPECT_THAT(linesWrittenBy([&] { EXPECT_TRUE(creator->lockDataAccess()); }),
              ElementsAre("lockDataAccess, already locked!"));
  EXPECT_NE(creator->getDataPtr(), nullptr);
  EXPECT_TRUE(creator->unlockDataAccess());
  EXPECT_EQ(semaphoreCount(names_.sem()), 1);
}

TEST_F(FailingFrameSourceTest, DropsTheFrameWhenTheLockIsNotAvailable) {
  const auto writer = quiet<SharedMemoryVideoFrameSource>(creating(kFrameSegmentSize));
  const auto frame = std::make_shared<FakeVideoFrame>(4, 4);
  systemCalls().fail("sem_timedwait", ETIMEDOUT, 2);
  for (int attempt = 0; attempt < 2; ++attempt) {
    EXPECT_THAT(linesWrittenBy([&] { EXPECT_FALSE(writer->storeVideoFrame(frame, 1)); }),
                ElementsAre("sem_timedwait timedout, error:110"));
  }
  EXPECT_EQ(RawObject(names_.shm()).at<std::uint32_t>(20), 0u) << "nothing was written";
  EXPECT_TRUE(writer->storeVideoFrame(frame, 1));
  EXPECT_EQ(RawObject(names_.shm()).at<std::uint64_t>(8), 0u) << "no number was used up";
}

TEST_F(FailingFrameSourceTest, ReturnsWhetherTheUnlockAfterAStoreSucceeded) {
  const auto writer = quiet<SharedMemoryVideoFrameSource>(creating(kFrameSegmentSize));
  systemCalls().fail("sem_post", EOVERFLOW);
  EXPECT_THAT(linesWrittenBy([&] {
                EXPECT_FALSE(writer->storeVideoFrame(std::make_shared<FakeVideoFrame>(4, 4), 1));
              }),
              ElementsAre("unlockDataAccess sem_post failed, error:75"));
}

TEST_F(FailingFrameSourceTest, ADroppedBufferDoesNotTakeTheLock) {
  const auto writer = quiet<SharedMemoryVideoFrameSource>(creating(kFrameSegmentSize));
  systemCalls().made.clear();
  linesWrittenBy([&] {
    EXPECT_FALSE(writer->storeVideoFrame(std::make_shared<FakeVideoFrame>(), 1));
    EXPECT_FALSE(writer->storeVideoFrame(std::make_shared<FakeVideoFrame>(1920, 1080), 1));
  });
  EXPECT_EQ(systemCalls().countOf("sem_timedwait"), 0);
}

TEST_F(FailingFrameSourceTest, DoesNotChangeTheRecordWhenTheLockIsNotAvailable) {
  const auto writer = quiet<SharedMemoryVideoFrameSource>(creating(kFrameSegmentSize));
  const auto reader = quiet<SharedMemoryVideoFrameSource>(opening(kFrameSegmentSize));
  VideoFrame frame;
  frame.frameId = 4711;
  frame.csrc = 4712;
  systemCalls().fail("sem_timedwait", ETIMEDOUT);
  EXPECT_THAT(linesWrittenBy([&] { EXPECT_FALSE(reader->getVideoFrame(frame, kNoFrame)); }),
              ElementsAre("sem_timedwait timedout, error:110",
                          "getVideoFrame: Failed to get lock on video frame object"));
  EXPECT_FALSE(frame.noUpdate);
  EXPECT_EQ(frame.frameId, 4711u);
  EXPECT_EQ(frame.csrc, 4712u);
  EXPECT_EQ(semaphoreCount(names_.sem()), 1);
}

TEST_F(FailingFrameSourceTest, ReturnsWhetherTheReleaseSucceeded) {
  const auto writer = quiet<SharedMemoryVideoFrameSource>(creating(kFrameSegmentSize));
  VideoFrame frame;
  ASSERT_TRUE(writer->getVideoFrame(frame, kNoFrame));
  systemCalls().fail("sem_post", EOVERFLOW);
  linesWrittenBy([&] { EXPECT_FALSE(writer->releaseVideoFrame()); });
  EXPECT_TRUE(writer->releaseVideoFrame());
}

TEST_F(FailingFrameSourceTest, IsRefusedWhenItsSegmentCannotBeCreated) {
  for (const std::string call : {"shm_open", "posix_fallocate", "mmap", "sem_open"}) {
    systemCalls().fail(call, ENOSPC);
    EXPECT_THAT(
        linesWrittenBy([&] {
          EXPECT_EQ(
              SharedMemoryVideoFrameSource::CreateVideoFrameSource(creating(kFrameSegmentSize)),
              nullptr);
        }),
        Contains("SharedMemoryVideoFrameSource:Failed to initialise video frame shared memory"))
        << call;
  }
}

// The system never maps at address 0; if it did, nothing would be written there.
TEST_F(FailingFrameSourceTest, TreatsAMappingAtAddressZeroAsNoData) {
  systemCalls().fail("mmap", 0);
  std::unique_ptr<SharedMemoryVideoFrameSource> source;
  const auto lines = linesWrittenBy([&] {
    source = std::make_unique<SharedMemoryVideoFrameSource>(creating(kFrameSegmentSize));
  });
  ASSERT_EQ(lines.size(), 8u);
  EXPECT_EQ(lines[6],
            "SharedMemoryVideoFrameSource:Failed to get video shared memory for clearing");
  EXPECT_EQ(semaphoreCount(names_.sem()), 1) << "made available all the same";
  VideoFrame frame;
  EXPECT_TRUE(source->getVideoFrame(frame, 12));
  EXPECT_TRUE(frame.noUpdate);
  EXPECT_EQ(frame.frameId, 12u);
  EXPECT_TRUE(source->releaseVideoFrame());
}

const StreamKey kLocal(TSLM_STREAM_LOCAL, 0);
const StreamKey kRemote(TSLM_STREAM_REMOTE, 3);

TEST_F(FailingManagerTest, IsConstructedEvenWhenItsSegmentCannotBeCreated) {
  systemCalls().fail("posix_fallocate", ENOSPC);
  std::unique_ptr<SharedMemoryManager> manager;
  EXPECT_EQ(linesWrittenBy([&] {
              manager = std::make_unique<SharedMemoryManager>(creating(kMainSegmentSize));
            }).back(),
            "SharedMemoryManager:Failed to initialise shared memory for TesselWrapper");
  const auto lines = linesWrittenBy([&] { EXPECT_FALSE(manager->enableSharedMemory(kRemote)); });
  EXPECT_EQ(lines.back(), "enableSharedMemory: Shared mem lock failed, something is wrong!");
  linesWrittenBy([&] {
    manager->NotifyFrameArrived(std::make_shared<FakeVideoFrame>(2, 2), 1, kRemote);
    EXPECT_FALSE(manager->disableSharedMemory(kRemote));
    EXPECT_EQ(manager->getVideoFrameSource(kRemote), nullptr);
    manager->removeVideoFrameSource(kRemote);
  });
}

TEST_F(FailingManagerTest, WritesNothingIntoAMappingAtAddressZero) {
  systemCalls().fail("mmap", 0);
  std::unique_ptr<SharedMemoryManager> manager;
  const auto lines = linesWrittenBy(
      [&] { manager = std::make_unique<SharedMemoryManager>(creating(kMainSegmentSize)); });
  EXPECT_THAT(std::vector<std::string>(lines.end() - 2, lines.end()),
              ElementsAre("SharedMemoryManager:Failed to get shared memory for clearing",
                          "SharedMemoryManager: Unlocking now"));
  EXPECT_EQ(semaphoreCount(names_.sem()), 1);
  const auto enabling = linesWrittenBy([&] { EXPECT_FALSE(manager->enableSharedMemory(kRemote)); });
  EXPECT_THAT(enabling.back(), StartsWith("SemName = ")) << "given up without a line";
  EXPECT_EQ(semaphoreCount(names_.sem()), 1);
}

TEST_F(FailingManagerTest, AStreamWhoseSegmentCouldNotBeCreatedStaysBlocked) {
  const auto manager = quiet<SharedMemoryManager>(creating(kMainSegmentSize));
  systemCalls().fail("shm_open", EMFILE);
  const auto lines = linesWrittenBy([&] { EXPECT_FALSE(manager->enableSharedMemory(kRemote)); });
  EXPECT_THAT(lines, Contains("shm_open failed, error:24"));
  EXPECT_THAT(lines.back(), StartsWith("~SharedMemoryAllocator:0x"));
  EXPECT_THAT(linesWrittenBy([&] { EXPECT_FALSE(manager->enableSharedMemory(kRemote)); }),
              ElementsAre("enableSharedMemory: Already allocated, something is wrong!"));
  EXPECT_THAT(linesWrittenBy([&] {
                manager->NotifyFrameArrived(std::make_shared<FakeVideoFrame>(2, 2), 1, kRemote);
              }),
              ElementsAre("NotifyFrameArrived: Frame dropped, no shared memory for StreamKey:1, "
                          "index:3"));
  EXPECT_THAT(linesWrittenBy([&] { EXPECT_TRUE(manager->disableSharedMemory(kRemote)); }),
              IsEmpty());
  linesWrittenBy([&] { EXPECT_TRUE(manager->enableSharedMemory(kRemote)); });
}

TEST_F(FailingManagerTest, EnableDropsTheNewSegmentWhenTheTableCannotBeLocked) {
  const auto manager = quiet<SharedMemoryManager>(creating(kMainSegmentSize));
  systemCalls().fail("sem_timedwait", ETIMEDOUT);
  const auto lines = linesWrittenBy([&] { EXPECT_FALSE(manager->enableSharedMemory(kLocal)); });
  EXPECT_THAT(
      withoutAddresses({lines.end() - 4, lines.end()}),
      ElementsAre("sem_timedwait timedout, error:110",
                  "~SharedMemoryVideoFrameSource:0xADDRESS, pid:" + hexPid() + ", destroyed",
                  "~SharedMemoryAllocator:0xADDRESS, pid:" + hexPid() + ", destroyed",
                  "enableSharedMemory: Shared mem lock failed, something is wrong!"));
  EXPECT_EQ(RawObject(names_.shm()).at<std::uint8_t>(0), 0);
  EXPECT_THAT(linesWrittenBy([&] { EXPECT_FALSE(manager->enableSharedMemory(kLocal)); }),
              ElementsAre("enableSharedMemory: Already allocated, something is wrong!"));
}

TEST_F(FailingManagerTest, DisableDropsTheSegmentButNotTheKeyWhenTheTableCannotBeLocked) {
  const auto manager = quiet<SharedMemoryManager>(creating(kMainSegmentSize));
  linesWrittenBy([&] { ASSERT_TRUE(manager->enableSharedMemory(kLocal)); });
  systemCalls().fail("sem_timedwait", ETIMEDOUT);
  EXPECT_THAT(
      withoutAddresses(linesWrittenBy([&] { EXPECT_FALSE(manager->disableSharedMemory(kLocal)); })),
      ElementsAre("sem_timedwait timedout, error:110",
                  "~SharedMemoryVideoFrameSource:0xADDRESS, pid:" + hexPid() + ", destroyed",
                  "~SharedMemoryAllocator:0xADDRESS, pid:" + hexPid() + ", destroyed",
                  "disableSharedMemory: Shared mem lock failed, something is wrong!"));
  EXPECT_EQ(RawObject(names_.shm()).at<std::uint8_t>(0), 1) << "the table was not touched";
  EXPECT_THAT(linesWrittenBy([&] { EXPECT_FALSE(manager->enableSharedMemory(kLocal)); }),
              ElementsAre("enableSharedMemory: Already allocated, something is wrong!"));
  linesWrittenBy([&] { EXPECT_TRUE(manager->disableSharedMemory(kLocal)); });
  EXPECT_EQ(RawObject(names_.shm()).at<std::uint8_t>(0), 0);
}

TEST_F(FailingManagerTest, AFirstLookUpThatTimesOutLeavesTheStreamWithoutASource) {
  const auto creator = quiet<SharedMemoryManager>(creating(kMainSegmentSize));
  const auto opener = quiet<SharedMemoryManager>(opening(kMainSegmentSize));
  linesWrittenBy([&] { ASSERT_TRUE(creator->enableSharedMemory(kRemote)); });
  systemCalls().fail("sem_timedwait", ETIMEDOUT);
  EXPECT_THAT(linesWrittenBy([&] { EXPECT_EQ(opener->getVideoFrameSource(kRemote), nullptr); }),
              ElementsAre("sem_timedwait timedout, error:110",
                          "getVideoFrameSource: Shared mem lock failed, something is wrong!"));
  for (int request = 0; request < 2; ++request) {
    EXPECT_THAT(linesWrittenBy([&] { EXPECT_EQ(opener->getVideoFrameSource(kRemote), nullptr); }),
                IsEmpty());
  }
  linesWrittenBy([&] { opener->removeVideoFrameSource(kRemote); });
  linesWrittenBy([&] { EXPECT_NE(opener->getVideoFrameSource(kRemote), nullptr); });
}

TEST_F(FailingManagerTest, ALaterLookUpThatTimesOutKeepsTheStreamsSource) {
  const auto creator = quiet<SharedMemoryManager>(creating(kMainSegmentSize));
  const auto opener = quiet<SharedMemoryManager>(opening(kMainSegmentSize));
  SharedMemoryManager::SourcePtr source;
  linesWrittenBy([&] {
    ASSERT_TRUE(creator->enableSharedMemory(kRemote));
    source = opener->getVideoFrameSource(kRemote);
  });
  systemCalls().fail("sem_timedwait", ETIMEDOUT);
  EXPECT_THAT(linesWrittenBy([&] { EXPECT_EQ(opener->getVideoFrameSource(kRemote), nullptr); }),
              ElementsAre("sem_timedwait timedout, error:110",
                          "getVideoFrameSource: Shared mem lock failed, something is wrong!"));
  EXPECT_THAT(linesWrittenBy([&] { EXPECT_EQ(opener->getVideoFrameSource(kRemote), source); }),
              IsEmpty());
}

TEST_F(FailingManagerTest,
       ARemovedSourceThatHoldsAFrameBlocksTheWriterUntilTheStreamIsEnabledAgain) {
  const auto creator = quiet<SharedMemoryManager>(creating(kMainSegmentSize));
  const auto opener = quiet<SharedMemoryManager>(opening(kMainSegmentSize));
  linesWrittenBy([&] {
    ASSERT_TRUE(creator->enableSharedMemory(kRemote));
    VideoFrame frame;
    ASSERT_TRUE(opener->getVideoFrameSource(kRemote)->getVideoFrame(frame, kNoFrame));
    opener->removeVideoFrameSource(kRemote);
  });
  systemCalls().waits = false;
  const auto store = [&] {
    creator->NotifyFrameArrived(std::make_shared<FakeVideoFrame>(2, 2), 1, kRemote);
  };
  for (int frame = 0; frame < 2; ++frame) {
    EXPECT_THAT(linesWrittenBy(store), ElementsAre("sem_timedwait timedout, error:110"));
  }
  linesWrittenBy([&] {
    EXPECT_TRUE(creator->disableSharedMemory(kRemote));
    EXPECT_TRUE(creator->enableSharedMemory(kRemote));
  });
  EXPECT_THAT(linesWrittenBy(store), IsEmpty());
}

// The calls of `action` on locks, and those that create or release a segment.
class LockedStepsTest : public FailingSystemCallsTest {
 protected:
  template <typename Action>
  static std::vector<std::string> stepsOf(Action&& action) {
    auto calls = callsOf(action);
    std::erase_if(calls, [](const std::string& call) {
      return call != "sem_timedwait" && call != "sem_post" && call != "shm_open" &&
             call != "shm_unlink";
    });
    return calls;
  }
};

TEST_F(LockedStepsTest, AStreamIsListedAndDroppedWhileTheTableIsLocked) {
  const auto manager = quiet<SharedMemoryManager>(creating(kMainSegmentSize));
  const RawObject table(names_.shm());
  std::vector<int> valid;
  systemCalls().whenMade = [&](const std::string& call) {
    if (call == "sem_timedwait" || call == "sem_post") valid.push_back(table.at<std::uint8_t>(0));
  };
  // The first unlock is that of the new frame segment.
  EXPECT_THAT(stepsOf([&] { EXPECT_TRUE(manager->enableSharedMemory(kLocal)); }),
              ElementsAre("shm_open", "sem_post", "sem_timedwait", "sem_post"));
  EXPECT_THAT(std::exchange(valid, {}), ElementsAre(0, 0, 1));
  EXPECT_THAT(stepsOf([&] { EXPECT_TRUE(manager->disableSharedMemory(kLocal)); }),
              ElementsAre("sem_timedwait", "shm_unlink", "sem_post"));
  EXPECT_THAT(valid, ElementsAre(1, 0));
}

TEST_F(LockedStepsTest, AWidgetOpensAndDropsASourceWhileTheTableIsUnlocked) {
  const auto creator = quiet<SharedMemoryManager>(creating(kMainSegmentSize));
  const auto opener = quiet<SharedMemoryManager>(opening(kMainSegmentSize));
  linesWrittenBy([&] { ASSERT_TRUE(creator->enableSharedMemory(kRemote)); });
  EXPECT_THAT(stepsOf([&] { EXPECT_NE(opener->getVideoFrameSource(kRemote), nullptr); }),
              ElementsAre("sem_timedwait", "sem_post", "shm_open"));
  linesWrittenBy([&] { ASSERT_TRUE(creator->disableSharedMemory(kRemote)); });
  EXPECT_THAT(stepsOf([&] { EXPECT_EQ(opener->getVideoFrameSource(kRemote), nullptr); }),
              ElementsAre("sem_timedwait", "sem_post", "shm_unlink"));
}

TEST_F(FailingManagerTest, MakesBothNamesFromTheSameCharacters) {
  systemCalls().second = 1'700'000'000;
  std::shared_ptr<SharedMemoryManager> manager;
  linesWrittenBy([&] { manager = SharedMemoryManager::CreateSharedMemoryManager(); });
  const SharedMemoryInfo& info = manager->getSharedMemInfo();
  EXPECT_EQ(info.semName.substr(4), info.shmName.substr(4, 20));
  const auto lines = linesWrittenBy([&] { EXPECT_TRUE(manager->enableSharedMemory(kRemote)); });
  EXPECT_EQ(lines[0], "enableSharedMemory: Creating shared video mem with SHMname:" + info.shmName +
                          "13, SEMname:" + info.semName + "13");
}

}  // namespace
