#include "addon/sharedmem/shared_memory_allocator.h"

#include <sys/resource.h>

#include <optional>

#include "test/native/sharedmem/shared_memory_test.h"

using sharedmem::SharedMemoryAllocator;
using sharedmem::SharedMemoryInfo;

namespace {

using test::linesWrittenBy;
using test::objectExists;
using test::semaphoreCount;
using test::semaphoreExists;
using test::withoutAddresses;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

constexpr std::uint32_t kSize = 10'000;

class SharedMemoryAllocatorTest : public SharedMemoryTest {
 protected:
  std::string startLine() const {
    return "initialize: Creating shared mem with name:" + names_.shm() +
           ", SEM name:" + names_.sem();
  }
  static std::string truncateLine() {
    return "initialize: Trucating data for pid" + std::to_string(getpid()) + " ,Ret = 0";
  }
  static std::string createdLine() {
    return "SharedMemoryAllocator:0xADDRESS, pid:" + hexPid() + ", created";
  }
  static std::string destroyedLine() {
    return "~SharedMemoryAllocator:0xADDRESS, pid:" + hexPid() + ", destroyed";
  }

  // An allocator whose lines of construction are ignored.
  static std::unique_ptr<SharedMemoryAllocator> quiet(const SharedMemoryInfo& info) {
    std::unique_ptr<SharedMemoryAllocator> allocator;
    linesWrittenBy([&] { allocator = std::make_unique<SharedMemoryAllocator>(info); });
    return allocator;
  }
  // A creating allocator whose segment is unlocked for other processes.
  std::unique_ptr<SharedMemoryAllocator> quietAvailable() const {
    auto allocator = quiet(creating(kSize));
    EXPECT_TRUE(allocator->unlockDataAccess());
    return allocator;
  }
};

TEST_F(SharedMemoryAllocatorTest, PrintsEveryStepOnTheCreatingSide) {
  EXPECT_THAT(withoutAddresses(linesWrittenBy([&] { SharedMemoryAllocator(creating(kSize)); })),
              ElementsAre(startLine(), truncateLine(),
                          "initialize: mapped memory with ptr:0xADDRESS, size:10000, sem count:0, "
                          "flags:66, permission:438",
                          "initialize: creating semaphore with initial count:0, flags:66",
                          createdLine(), destroyedLine()));
}

TEST_F(SharedMemoryAllocatorTest, PrintsEveryStepOnTheOpeningSide) {
  const auto creator = quiet(creating(kSize));
  EXPECT_THAT(withoutAddresses(linesWrittenBy([&] { SharedMemoryAllocator(opening(kSize)); })),
              ElementsAre(startLine(),
                          "initialize: mapped memory with ptr:0xADDRESS, size:10000, sem count:0, "
                          "flags:2, permission:438",
                          "initialize: creating semaphore with initial count:0, flags:2",
                          createdLine(), destroyedLine()));
}

TEST_F(SharedMemoryAllocatorTest, DoesNotOpenItsSegmentAsAClosedStandardDescriptor) {
  const int original = dup(STDOUT_FILENO);
  close(STDOUT_FILENO);
  std::optional<SharedMemoryAllocator> allocator(creating(kSize));
  const std::string bytes(static_cast<const char*>(allocator->getDataPtr()), kSize);
  allocator.reset();
  dup2(original, STDOUT_FILENO);
  close(original);
  EXPECT_EQ(bytes, std::string(kSize, '\0'));
}

TEST_F(SharedMemoryAllocatorTest, IsNotInitialisedWhenOnlyAStandardDescriptorIsFree) {
  for (const bool create : {true, false}) {
    if (!create) RawObject(names_.shm(), kSize);
    const int original = dup(STDOUT_FILENO);
    rlimit usual = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &usual), 0);
    const rlimit few = {STDERR_FILENO + 1, usual.rlim_max};
    close(STDOUT_FILENO);
    setrlimit(RLIMIT_NOFILE, &few);
    const bool isInitialised =
        SharedMemoryAllocator(create ? creating(kSize) : opening(kSize)).initialised();
    setrlimit(RLIMIT_NOFILE, &usual);
    dup2(original, STDOUT_FILENO);
    close(original);
    EXPECT_FALSE(isInitialised);
    EXPECT_EQ(objectExists(names_.shm()), !create) << "what was made is gone, another's is there";
  }
  shm_unlink(names_.shm().c_str());
}

TEST_F(SharedMemoryAllocatorTest, NamesItsMappingsAndItsOwnAddress) {
  std::optional<SharedMemoryAllocator> allocator;
  auto lines = linesWrittenBy([&] { allocator.emplace(creating(kSize)); });
  const void* data = nullptr;
  linesWrittenBy([&] { data = allocator->getDataPtr(); });
  ASSERT_EQ(lines.size(), 5u);
  EXPECT_THAT(lines[2], testing::StartsWith(
                            "initialize: mapped memory with ptr:" + addressText(data) + ", size:"));
  EXPECT_EQ(lines[4], "SharedMemoryAllocator:" + addressText(&*allocator) + ", pid:" + hexPid() +
                          ", created");
  lines = linesWrittenBy([&] { allocator.reset(); });
  EXPECT_THAT(lines, ElementsAre("~SharedMemoryAllocator:" + addressText(&*allocator) +
                                 ", pid:" + hexPid() + ", destroyed"));
}

TEST_F(SharedMemoryAllocatorTest, PrintsItsIntegersInDecimalWhateverTheBase) {
  switchToHexadecimal();
  auto lines = linesWrittenBy([&] { SharedMemoryAllocator(creating(kSize)); });
  lines.resize(4);
  EXPECT_THAT(withoutAddresses(lines),
              ElementsAre(startLine(), truncateLine(),
                          "initialize: mapped memory with ptr:0xADDRESS, size:10000, sem count:0, "
                          "flags:66, permission:438",
                          "initialize: creating semaphore with initial count:0, flags:66"));
}

TEST_F(SharedMemoryAllocatorTest, LeavesTheBaseDecimalAfterConstructionAndDestruction) {
  std::optional<SharedMemoryAllocator> allocator;
  auto ambient = [] { return linesWrittenBy([] { base::DiagnosticLine("").integer(255); }); };
  switchToHexadecimal();
  linesWrittenBy([&] { allocator.emplace(creating(kSize)); });
  EXPECT_THAT(ambient(), ElementsAre("255"));
  switchToHexadecimal();
  linesWrittenBy([&] { allocator.reset(); });
  EXPECT_THAT(ambient(), ElementsAre("255"));
}

TEST_F(SharedMemoryAllocatorTest, FailsEveryOperationWhenTheNameDoesNotExist) {
  EXPECT_THAT(withoutAddresses(linesWrittenBy([&] {
                SharedMemoryAllocator allocator(opening(kSize));
                EXPECT_FALSE(allocator.initialised());
                EXPECT_FALSE(allocator.lockDataAccess());
                EXPECT_EQ(allocator.getDataPtr(), nullptr);
                EXPECT_FALSE(allocator.unlockDataAccess());
              })),
              ElementsAre(startLine(), "shm_open failed, error:2", createdLine(),
                          "lockDataAccess, not initialised", "getDataPtr, not initialised",
                          "unlockDataAccess, not initialised", destroyedLine()));
}

TEST_F(SharedMemoryAllocatorTest, KeepsACopyOfItsInfo) {
  SharedMemoryInfo info = creating(kSize);
  const auto allocator = quiet(info);
  info.shmName = "/another";
  EXPECT_EQ(allocator->getSharedMemInfo().shmName, names_.shm());
  EXPECT_EQ(allocator->getSharedMemInfo().semName, names_.sem());
  EXPECT_EQ(allocator->getSharedMemInfo().size, kSize);
  EXPECT_TRUE(allocator->getSharedMemInfo().create);
  EXPECT_TRUE(allocator->getSharedMemInfo().owner);
}

TEST_F(SharedMemoryAllocatorTest, CreatorHoldsTheLockUntilItsFirstUnlock) {
  const auto creator = quiet(creating(kSize));
  EXPECT_EQ(semaphoreCount(names_.sem()), 0);
  EXPECT_THAT(linesWrittenBy([&] { EXPECT_TRUE(creator->lockDataAccess()); }),
              ElementsAre("lockDataAccess, already locked!"));
  EXPECT_EQ(semaphoreCount(names_.sem()), 0);
  EXPECT_THAT(linesWrittenBy([&] { EXPECT_TRUE(creator->unlockDataAccess()); }), IsEmpty());
  EXPECT_EQ(semaphoreCount(names_.sem()), 1);
}

TEST_F(SharedMemoryAllocatorTest, LocksAndUnlocksWithoutPrinting) {
  const auto creator = quietAvailable();
  EXPECT_THAT(linesWrittenBy([&] {
                EXPECT_TRUE(creator->lockDataAccess());
                EXPECT_EQ(semaphoreCount(names_.sem()), 0);
                EXPECT_NE(creator->getDataPtr(), nullptr);
                EXPECT_TRUE(creator->unlockDataAccess());
                EXPECT_EQ(semaphoreCount(names_.sem()), 1);
              }),
              IsEmpty());
}

TEST_F(SharedMemoryAllocatorTest, OpenerDoesNotStartWithTheLock) {
  const auto creator = quietAvailable();
  const auto opener = quiet(opening(kSize));
  EXPECT_THAT(linesWrittenBy([&] { EXPECT_EQ(opener->getDataPtr(), nullptr); }),
              ElementsAre("getDataPtr failed, trying to access data without lock!"));
  EXPECT_THAT(linesWrittenBy([&] { EXPECT_FALSE(opener->unlockDataAccess()); }),
              ElementsAre("unlockDataAccess failed, trying to unlock without locking!"));
}

TEST_F(SharedMemoryAllocatorTest, ReturnsNoDataAfterTheUnlock) {
  const auto creator = quietAvailable();
  EXPECT_THAT(linesWrittenBy([&] { EXPECT_EQ(creator->getDataPtr(), nullptr); }),
              ElementsAre("getDataPtr failed, trying to access data without lock!"));
}

TEST_F(SharedMemoryAllocatorTest, ASecondUnlockFailsAndPostsNothing) {
  const auto creator = quietAvailable();
  EXPECT_THAT(linesWrittenBy([&] { EXPECT_FALSE(creator->unlockDataAccess()); }),
              ElementsAre("unlockDataAccess failed, trying to unlock without locking!"));
  EXPECT_EQ(semaphoreCount(names_.sem()), 1);
}

TEST_F(SharedMemoryAllocatorTest, ASecondLockOfTheSameObjectSharesTheAccess) {
  const auto creator = quietAvailable();
  ASSERT_TRUE(creator->lockDataAccess());
  EXPECT_THAT(linesWrittenBy([&] { EXPECT_TRUE(creator->lockDataAccess()); }),
              ElementsAre("lockDataAccess, already locked!"));
  EXPECT_TRUE(creator->unlockDataAccess());
  EXPECT_EQ(semaphoreCount(names_.sem()), 1);
}

TEST_F(SharedMemoryAllocatorTest, BothSidesSeeTheSameBytes) {
  const auto creator = quietAvailable();
  const auto opener = quiet(opening(kSize));
  ASSERT_TRUE(creator->lockDataAccess());
  std::memset(creator->getDataPtr(), 0xA5, kSize);
  ASSERT_TRUE(creator->unlockDataAccess());
  ASSERT_TRUE(opener->lockDataAccess());
  auto* bytes = static_cast<std::uint8_t*>(opener->getDataPtr());
  EXPECT_EQ(bytes[0], 0xA5);
  EXPECT_EQ(bytes[kSize - 1], 0xA5);
  bytes[kSize - 1] = 7;
  ASSERT_TRUE(opener->unlockDataAccess());
  EXPECT_EQ(RawObject(names_.shm()).at<std::uint8_t>(kSize - 1), 7);
}

TEST_F(SharedMemoryAllocatorTest, TheCreatorRemovesBothNamesWhenItIsDestroyed) {
  auto creator = quiet(creating(kSize));
  EXPECT_TRUE(objectExists(names_.shm()));
  EXPECT_TRUE(semaphoreExists(names_.sem()));
  linesWrittenBy([&] { creator.reset(); });
  EXPECT_FALSE(objectExists(names_.shm()));
  EXPECT_FALSE(semaphoreExists(names_.sem()));
}

TEST_F(SharedMemoryAllocatorTest, TheOpenerRemovesBothNamesTooAndTheCreatorKeepsWorking) {
  const auto creator = quietAvailable();
  auto opener = quiet(opening(kSize));
  linesWrittenBy([&] { opener.reset(); });
  EXPECT_FALSE(objectExists(names_.shm()));
  EXPECT_FALSE(semaphoreExists(names_.sem()));

  EXPECT_FALSE(quiet(opening(kSize))->initialised());
  ASSERT_TRUE(creator->lockDataAccess());
  std::memset(creator->getDataPtr(), 1, kSize);
  EXPECT_TRUE(creator->unlockDataAccess());
}

TEST_F(SharedMemoryAllocatorTest, SetsTheSizeOfAnObjectThatExistsUnderItsName) {
  for (const std::size_t sizeBefore : {kSize / 2, kSize * 2}) {
    RawObject(names_.shm(), sizeBefore).put<std::uint8_t>(100, 42);
    const auto creator = quiet(creating(kSize));
    EXPECT_TRUE(creator->initialised());
    const RawObject object(names_.shm());
    EXPECT_EQ(object.size(), kSize) << "was " << sizeBefore;
    EXPECT_EQ(object.at<std::uint8_t>(100), 42) << "was " << sizeBefore;
  }
}

TEST_F(SharedMemoryAllocatorTest, UsesAnExistingSemaphoreUnchanged) {
  sem_close(sem_open(names_.sem().c_str(), O_CREAT, 0600, 5));
  const auto creator = quiet(creating(kSize));
  EXPECT_TRUE(creator->initialised());
  EXPECT_EQ(semaphoreCount(names_.sem()), 5);
}

TEST_F(SharedMemoryAllocatorTest, TheOpenerDoesNotChangeTheObjectsSize) {
  RawObject(names_.shm(), kSize * 2);
  sem_close(sem_open(names_.sem().c_str(), O_CREAT, 0600, 1));
  const auto opener = quiet(opening(kSize));
  EXPECT_TRUE(opener->initialised());
  EXPECT_EQ(RawObject(names_.shm()).size(), kSize * 2);
}

TEST_F(SharedMemoryAllocatorTest, TheCreatorReservesMemoryForEveryByte) {
  const auto creator = quiet(creating(kSize));
  EXPECT_GE(RawObject(names_.shm()).reserved(), kSize);
}

TEST_F(SharedMemoryAllocatorTest, TheCreatorFillsTheHolesOfAnObjectThatExists) {
  RawObject(names_.shm(), kSize);
  const auto creator = quiet(creating(kSize));
  EXPECT_GE(RawObject(names_.shm()).reserved(), kSize);
}

TEST_F(SharedMemoryAllocatorTest, AppliesTheUmaskToItsFiles) {
  const struct {
    mode_t umask;
    mode_t permission;
  } cases[] = {{0, 0666}, {022, 0644}, {077, 0600}};
  for (const auto& [mask, permission] : cases) {
    const mode_t before = umask(mask);
    const auto creator = quiet(creating(kSize));
    umask(before);
    for (const std::string& path :
         {test::objectPath(names_.shm()), test::semaphorePath(names_.sem())}) {
      struct stat status = {};
      ASSERT_EQ(stat(path.c_str(), &status), 0) << path;
      EXPECT_EQ(status.st_mode & 0777, permission) << path;
    }
  }
}

TEST_F(SharedMemoryAllocatorTest, RefusesAnObjectThatIsTooShort) {
  RawObject(names_.shm(), kSize - 1);
  sem_close(sem_open(names_.sem().c_str(), O_CREAT, 0600, 1));
  EXPECT_THAT(
      withoutAddresses(linesWrittenBy([&] {
        SharedMemoryAllocator opener(opening(kSize));
        EXPECT_FALSE(opener.initialised());
      })),
      ElementsAre(startLine(), "initialize: mmap failed, error:6", createdLine(), destroyedLine()));
  EXPECT_FALSE(objectExists(names_.shm())) << "a failed set-up removes what it had opened";
  EXPECT_TRUE(semaphoreExists(names_.sem())) << "which it had not";
  sem_unlink(names_.sem().c_str());
}

TEST_F(SharedMemoryAllocatorTest, RefusesAnEmptyObject) {
  close(shm_open(names_.shm().c_str(), O_RDWR | O_CREAT, 0600));
  EXPECT_THAT(linesWrittenBy([&] { SharedMemoryAllocator(opening(kSize)); }),
              testing::Contains("initialize: mmap failed, error:6"));
}

TEST_F(SharedMemoryAllocatorTest, RefusesAMissingSemaphore) {
  RawObject(names_.shm(), kSize);
  EXPECT_THAT(withoutAddresses(linesWrittenBy([&] {
                SharedMemoryAllocator opener(opening(kSize));
                EXPECT_FALSE(opener.initialised());
              })),
              ElementsAre(startLine(),
                          "initialize: mapped memory with ptr:0xADDRESS, size:10000, sem count:0, "
                          "flags:2, permission:438",
                          "initialize: creating semaphore with initial count:0, flags:2",
                          "initialize: sem_open failed, error:2", createdLine(), destroyedLine()));
  EXPECT_FALSE(objectExists(names_.shm()));
}

TEST_F(SharedMemoryAllocatorTest, RefusesASemaphoreWhoseFileIsTooShortOrInvalid) {
  const struct {
    std::size_t size;
    char byte;
  } files[] = {{0, '\0'},   {sizeof(sem_t) - 1, '\0'}, {sizeof(sem_t), '\0'}, {sizeof(sem_t), 'x'},
               {5000, 'x'}, {sizeof(sem_t), '\xff'}};
  for (const auto& [size, byte] : files) {
    for (const bool create : {false, true}) {
      RawObject(names_.shm(), kSize);
      makeSemaphoreFile(names_.sem(), size, byte);
      EXPECT_THAT(linesWrittenBy([&, create = create] {
                    SharedMemoryAllocator allocator(create ? creating(kSize) : opening(kSize));
                    EXPECT_FALSE(allocator.lockDataAccess());
                  }),
                  testing::IsSupersetOf(
                      {"initialize: sem_open failed, error:22", "lockDataAccess, not initialised"}))
          << size << " bytes of " << static_cast<int>(byte) << ", create " << create;
      EXPECT_FALSE(objectExists(names_.shm()));
      EXPECT_EQ(mappingsOf(names_.sem().substr(1)), 0);
      unlink(test::semaphorePath(names_.sem()).c_str());
    }
  }
}

// Writes over a semaphore that is in use.
void writeOver(const std::string& semName) {
  std::fstream file(test::semaphorePath(semName), std::ios::in | std::ios::out);
  file << std::string(sizeof(sem_t), 'x');
}

TEST_F(SharedMemoryAllocatorTest, DoesNotTakeALockThatWasOverwritten) {
  const auto allocator = quietAvailable();
  writeOver(names_.sem());
  EXPECT_THAT(linesWrittenBy([&] { EXPECT_FALSE(allocator->lockDataAccess()); }),
              ElementsAre("sem_timedwait timedout, error:22"));
}

TEST_F(SharedMemoryAllocatorTest, DoesNotReleaseALockThatWasOverwritten) {
  const auto allocator = quiet(creating(kSize));
  writeOver(names_.sem());
  EXPECT_THAT(linesWrittenBy([&] { EXPECT_FALSE(allocator->unlockDataAccess()); }),
              ElementsAre("unlockDataAccess sem_post failed, error:22"));
}

TEST_F(SharedMemoryAllocatorTest, ReservesTheMemoryOfASparseSegment) {
  RawObject(names_.shm(), kSize);
  sem_close(sem_open(names_.sem().c_str(), O_CREAT, 0600, 1));
  EXPECT_LT(RawObject(names_.shm()).reserved(), kSize);
  const auto opener = quiet(opening(kSize));
  EXPECT_GE(RawObject(names_.shm()).reserved(), kSize);
}

TEST_F(SharedMemoryAllocatorTest, LeavesNoDescriptorOpen) {
  const int before = openDescriptors();
  quietAvailable();
  quiet(opening(kSize));  // fails: no object
  RawObject(names_.shm(), 1);
  quiet(opening(kSize));  // fails: too short
  RawObject(names_.shm(), kSize);
  quiet(opening(kSize));  // fails: no semaphore
  EXPECT_EQ(openDescriptors(), before);
  EXPECT_EQ(mappingsOf(names_.shm()), 0);
  EXPECT_EQ(mappingsOf(names_.sem().substr(1)), 0);
}

TEST_F(SharedMemoryAllocatorTest, FailsForInvalidNames) {
  const std::string names[] = {"",
                               "/",
                               "//",
                               "/a/b",
                               "/../../etc/passwd",
                               "/%s%n%s%n",
                               "/tab\t",
                               "/\xff\xfe\n",
                               "no-slash-tessel-test",
                               "/" + std::string(300, 'x')};
  for (const std::string& name : names) {
    const auto lines = linesWrittenBy([&] {
      SharedMemoryAllocator allocator({.shmName = name, .semName = name, .size = kSize});
      EXPECT_FALSE(allocator.initialised());
    });
    ASSERT_THAT(lines, Not(IsEmpty()));
    if (name.find('\n') != std::string::npos) continue;
    EXPECT_EQ(lines[0], "initialize: Creating shared mem with name:" + name + ", SEM name:" + name);
  }
}

TEST_F(SharedMemoryAllocatorTest, FailsForAnInvalidSemaphoreName) {
  for (const std::string name : {"", "/", "/a/b", "/.."}) {
    RawObject(names_.shm(), kSize);
    SharedMemoryInfo info = opening(kSize);
    info.semName = name;
    EXPECT_FALSE(quiet(info)->initialised()) << name;
  }
}

}  // namespace
