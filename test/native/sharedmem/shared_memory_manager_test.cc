#include "addon/sharedmem/shared_memory_manager.h"

#include <pthread.h>

#include <array>
#include <atomic>
#include <limits>
#include <random>
#include <thread>

#include "addon/sharedmem/shared_memory_layout.h"
#include "test/native/sharedmem/fake_video_frame.h"
#include "test/native/sharedmem/shared_memory_test.h"

using sharedmem::SharedMemoryInfo;
using sharedmem::SharedMemoryKey;
using sharedmem::SharedMemoryManager;

namespace {

using test::linesWrittenBy;
using test::objectExists;
using test::semaphoreCount;
using test::semaphoreExists;
using test::withoutAddresses;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::StartsWith;

using ManagerPtr = std::shared_ptr<SharedMemoryManager>;
using SourcePtr = SharedMemoryManager::SourcePtr;

constexpr std::uint32_t kMainSize = 26'572;
constexpr std::size_t kEntrySize = 511;
constexpr unsigned long kNoFrame = 1'000'000;

const StreamKey kLocal(TSLM_STREAM_LOCAL, 0);
const StreamKey kContent(TSLM_STREAM_CONTENT, 0);
const StreamKey kUnknownKind(static_cast<TSLM_STREAM_INDEX>(7), 3);

StreamKey remote(int index) { return {TSLM_STREAM_REMOTE, index}; }

class SharedMemoryManagerTest : public SharedMemoryTest {
 protected:
  void TearDown() override {
    SharedMemoryTest::TearDown();
    for (const auto& [shmName, semName] : segments_) {
      EXPECT_FALSE(objectExists(shmName));
      EXPECT_FALSE(semaphoreExists(semName));
    }
  }

  ManagerPtr createManager() const { return make(creating(kMainSize)); }
  ManagerPtr openManager() const { return make(opening(kMainSize)); }
  RawObject rawTable() const { return RawObject(names_.shm()); }

  // Enables the stream, which is expected to work, and returns its frame segment's names.
  SharedMemoryKey enable(SharedMemoryManager& manager, const StreamKey& key) {
    const auto lines = linesWrittenBy([&] { EXPECT_TRUE(manager.enableSharedMemory(key)); });
    return segmentOf(lines.at(0));
  }
  // The names in a line that tells of a new frame segment. They are expected to be gone when the
  // test ends.
  SharedMemoryKey segmentOf(const std::string& line) {
    const std::string beforeShm = "SHMname:";
    const std::string beforeSem = ", SEMname:";
    const std::size_t shm = line.find(beforeShm) + beforeShm.size();
    const std::size_t sem = line.find(beforeSem) + beforeSem.size();
    segments_.push_back(
        {.shmName = line.substr(shm, sem - beforeSem.size() - shm), .semName = line.substr(sem)});
    return segments_.back();
  }

  static bool enableQuietly(SharedMemoryManager& manager, const StreamKey& key) {
    bool enabled = false;
    linesWrittenBy([&] { enabled = manager.enableSharedMemory(key); });
    return enabled;
  }
  static bool disableQuietly(SharedMemoryManager& manager, const StreamKey& key) {
    bool disabled = false;
    linesWrittenBy([&] { disabled = manager.disableSharedMemory(key); });
    return disabled;
  }
  static SourcePtr lookUpQuietly(SharedMemoryManager& manager, const StreamKey& key) {
    SourcePtr source;
    linesWrittenBy([&] { source = manager.getVideoFrameSource(key); });
    return source;
  }

 private:
  static ManagerPtr make(const SharedMemoryInfo& info) {
    ManagerPtr manager;
    linesWrittenBy([&] { manager = std::make_shared<SharedMemoryManager>(info); });
    return manager;
  }

  std::vector<SharedMemoryKey> segments_;
};

std::string textAt(const RawObject& object, std::size_t offset) {
  return reinterpret_cast<const char*>(object.bytes() + offset);
}

TEST_F(SharedMemoryManagerTest, CreatesAMainSegmentUnderNewNames) {
  ManagerPtr manager;
  const auto lines =
      linesWrittenBy([&] { manager = SharedMemoryManager::CreateSharedMemoryManager(); });
  const SharedMemoryInfo info = manager->getSharedMemInfo();
  EXPECT_THAT(info.shmName, MatchesRegex("/SHM[0-9A-Za-z]{25}"));
  EXPECT_THAT(info.semName, MatchesRegex("/SEM[0-9A-Za-z]{20}"));
  EXPECT_EQ(info.size, kMainSize);
  EXPECT_TRUE(info.create);
  EXPECT_TRUE(info.owner);
  EXPECT_THAT(
      withoutAddresses(lines),
      ElementsAre("CreateSharedMemoryManager: Creating shared mem with name:" + info.shmName +
                      ", sem name:" + info.semName +
                      ", size:26572thread id:" + std::to_string(pthread_self()),
                  "initialize: Creating shared mem with name:" + info.shmName +
                      ", SEM name:" + info.semName,
                  "initialize: Trucating data for pid" + std::to_string(getpid()) + " ,Ret = 0",
                  "initialize: mapped memory with ptr:0xADDRESS, size:26572, sem count:0, "
                  "flags:66, permission:438",
                  "initialize: creating semaphore with initial count:0, flags:66",
                  "SharedMemoryAllocator:0xADDRESS, pid:" + hexPid() + ", created",
                  "lockDataAccess, already locked!", "SharedMemoryManager: Unlocking now"));
  EXPECT_EQ(semaphoreCount(info.semName), 1);
  manager.reset();
  EXPECT_FALSE(objectExists(info.shmName));
  EXPECT_FALSE(semaphoreExists(info.semName));
}

TEST_F(SharedMemoryManagerTest, OpensTheMainSegmentOfAKey) {
  const ManagerPtr creator = createManager();
  ManagerPtr opener;
  const auto lines = linesWrittenBy([&] {
    opener = SharedMemoryManager::CreateSharedMemoryManagerWithKey(
        {.shmName = names_.shm(), .semName = names_.sem()});
  });
  EXPECT_THAT(withoutAddresses(lines),
              ElementsAre("CreateSharedMemoryManagerWithKey, size of shared main segment:26572",
                          "initialize: Creating shared mem with name:" + names_.shm() +
                              ", SEM name:" + names_.sem(),
                          "initialize: mapped memory with ptr:0xADDRESS, size:26572, sem count:0, "
                          "flags:2, permission:438",
                          "initialize: creating semaphore with initial count:0, flags:2",
                          "SharedMemoryAllocator:0xADDRESS, pid:" + hexPid() + ", created"));
  const SharedMemoryInfo& info = opener->getSharedMemInfo();
  EXPECT_EQ(info.shmName, names_.shm());
  EXPECT_EQ(info.semName, names_.sem());
  EXPECT_EQ(info.size, kMainSize);
  EXPECT_FALSE(info.create);
  EXPECT_FALSE(info.owner);
  EXPECT_EQ(semaphoreCount(names_.sem()), 1);
}

TEST_F(SharedMemoryManagerTest, PrintsItsSizesAndItsThreadInDecimalWhateverTheBase) {
  switchToHexadecimal();
  auto lines = linesWrittenBy([] { SharedMemoryManager::CreateSharedMemoryManager(); });
  EXPECT_THAT(lines.at(0),
              testing::EndsWith(", size:26572thread id:" + std::to_string(pthread_self())));
  switchToHexadecimal();
  lines = linesWrittenBy([] { SharedMemoryManager::CreateSharedMemoryManagerWithKey({}); });
  EXPECT_EQ(lines.at(0), "CreateSharedMemoryManagerWithKey, size of shared main segment:26572");
}

TEST_F(SharedMemoryManagerTest, IsConstructedEvenWhenTheKeyOpensNoSegment) {
  ManagerPtr manager;
  auto lines = linesWrittenBy([&] {
    manager = SharedMemoryManager::CreateSharedMemoryManagerWithKey(
        {.shmName = names_.shm(), .semName = names_.sem()});
  });
  ASSERT_NE(manager, nullptr);
  EXPECT_EQ(lines.back(),
            "SharedMemoryManager:Failed to initialise shared memory for TesselWrapper");
  const std::vector<std::string> refusal = {
      "lockDataAccess, not initialised",
      "getVideoFrameSource: Shared mem lock failed, something is wrong!"};
  EXPECT_EQ(linesWrittenBy([&] { EXPECT_EQ(manager->getVideoFrameSource(kLocal), nullptr); }),
            refusal);
  EXPECT_EQ(linesWrittenBy([&] { EXPECT_EQ(manager->getVideoFrameSource(kLocal), nullptr); }),
            refusal);
}

TEST_F(SharedMemoryManagerTest, RefusesAMainSegmentThatIsTooShort) {
  RawObject(names_.shm(), kMainSize - 1);
  EXPECT_THAT(linesWrittenBy([&] { SharedMemoryManager(opening(kMainSize)); }),
              testing::IsSupersetOf(
                  {"initialize: mmap failed, error:6",
                   "SharedMemoryManager:Failed to initialise shared memory for TesselWrapper"}));
}

TEST_F(SharedMemoryManagerTest, ZeroesTheWholeMainSegmentEvenALeftover) {
  {
    const RawObject leftover(names_.shm(), kMainSize);
    std::memset(leftover.bytes(), 0xEE, kMainSize);
  }
  const ManagerPtr manager = createManager();
  const RawObject table = rawTable();
  ASSERT_EQ(table.size(), kMainSize);
  EXPECT_EQ(std::vector<std::uint8_t>(table.bytes(), table.bytes() + kMainSize),
            std::vector<std::uint8_t>(kMainSize, 0));
}

TEST_F(SharedMemoryManagerTest, PrintsEveryStepWhenTheLocalStreamIsEnabled) {
  const ManagerPtr manager = createManager();
  const auto lines = linesWrittenBy([&] { EXPECT_TRUE(manager->enableSharedMemory(kLocal)); });
  const SharedMemoryKey names = segmentOf(lines.at(0));
  EXPECT_THAT(
      withoutAddresses(lines),
      ElementsAre("enableSharedMemory: Creating shared video mem with SHMname:" + names.shmName +
                      ", SEMname:" + names.semName,
                  "initialize: Creating shared mem with name:" + names.shmName +
                      ", SEM name:" + names.semName,
                  "initialize: Trucating data for pid" + std::to_string(getpid()) + " ,Ret = 0",
                  "initialize: mapped memory with ptr:0xADDRESS, size:2073640, sem count:0, "
                  "flags:66, permission:438",
                  "initialize: creating semaphore with initial count:0, flags:66",
                  "SharedMemoryAllocator:0xADDRESS, pid:" + hexPid() + ", created",
                  "lockDataAccess, already locked!",
                  "SharedMemoryVideoFrameSource:0xADDRESS, pid:" + hexPid() + ", created",
                  "++++++++ Memory Data to read from ++++++++++ ", "ShmName = " + names.shmName,
                  "SemName = " + names.semName,
                  "enableSharedMemory: Local stream initialised, with shm mem name:" +
                      names.shmName + ", sem name:" + names.semName));
  EXPECT_EQ(semaphoreCount(names_.sem()), 1);
}

TEST_F(SharedMemoryManagerTest, PrintsNoMoreWhenAnotherStreamIsListed) {
  const ManagerPtr manager = createManager();
  for (const StreamKey& key : {remote(0), kContent}) {
    const auto lines = linesWrittenBy([&] { EXPECT_TRUE(manager->enableSharedMemory(key)); });
    EXPECT_THAT(lines.back(), StartsWith("SemName = "));
    segmentOf(lines.at(0));
  }
}

TEST_F(SharedMemoryManagerTest, NamesAFrameSegmentAfterItsStream) {
  const ManagerPtr manager = createManager();
  const struct {
    StreamKey key;
    std::string suffix;
  } cases[] = {{kLocal, "00"},
               {{TSLM_STREAM_LOCAL, -12}, "0-12"},
               {remote(3), "13"},
               {remote(49), "149"},
               {{TSLM_STREAM_CONTENT, 2'000'000'000}, "22000000000"}};
  for (const auto& [key, suffix] : cases) {
    const SharedMemoryKey names = enable(*manager, key);
    EXPECT_THAT(names.shmName, MatchesRegex("/SHM[0-9A-Za-z]{25}" + suffix));
    EXPECT_THAT(names.semName, MatchesRegex("/SEM[0-9A-Za-z]{20}" + suffix));
    EXPECT_EQ(RawObject(names.shmName).size(), 2'073'640u);
    EXPECT_EQ(semaphoreCount(names.semName), 1);
  }
}

TEST_F(SharedMemoryManagerTest, ListsEachStreamInItsEntry) {
  const struct {
    StreamKey key;
    std::size_t offset;
  } cases[] = {
      {kLocal, 0}, {kContent, 511}, {remote(0), 1022}, {remote(1), 1533}, {remote(49), 26061}};
  const ManagerPtr manager = createManager();
  const RawObject table = rawTable();
  std::vector<std::uint8_t> expected(kMainSize, 0);
  for (const auto& [key, offset] : cases) {
    const SharedMemoryKey names = enable(*manager, key);
    expected[offset] = 1;
    std::memcpy(&expected[offset + 1], names.shmName.data(), names.shmName.size());
    std::memcpy(&expected[offset + 256], names.semName.data(), names.semName.size());
    EXPECT_EQ(std::vector<std::uint8_t>(table.bytes(), table.bytes() + kMainSize), expected)
        << "entry at " << offset;
  }
}

TEST_F(SharedMemoryManagerTest, HasAnEntryForEveryStream) {
  const ManagerPtr creator = createManager();
  const ManagerPtr opener = openManager();
  std::vector<StreamKey> keys = {kLocal, kContent};
  for (int index = 0; index < 50; ++index) keys.push_back(remote(index));
  for (const StreamKey& key : keys) enable(*creator, key);
  const RawObject table = rawTable();
  for (std::size_t entry = 0; entry < 52; ++entry) {
    EXPECT_EQ(table.at<std::uint8_t>(entry * kEntrySize), 1) << entry;
  }
  for (const StreamKey& key : keys) {
    const auto frame = std::make_shared<FakeVideoFrame>(4, 2);
    creator->NotifyFrameArrived(frame, static_cast<unsigned int>(100 + key.second), key);
  }
  for (const StreamKey& key : keys) {
    const SourcePtr source = lookUpQuietly(*opener, key);
    ASSERT_NE(source, nullptr);
    VideoFrame frame;
    ASSERT_TRUE(source->getVideoFrame(frame, kNoFrame));
    EXPECT_EQ(frame.csrc, static_cast<unsigned int>(100 + key.second));
    source->releaseVideoFrame();
  }
}

TEST_F(SharedMemoryManagerTest, RefusesToEnableAStreamTwice) {
  const ManagerPtr manager = createManager();
  enable(*manager, remote(4));
  EXPECT_THAT(linesWrittenBy([&] { EXPECT_FALSE(manager->enableSharedMemory(remote(4))); }),
              ElementsAre("enableSharedMemory: Already allocated, something is wrong!"));
}

TEST_F(SharedMemoryManagerTest, RefusesToDisableAStreamThatWasNeverEnabled) {
  const ManagerPtr manager = createManager();
  EXPECT_THAT(linesWrittenBy([&] { EXPECT_FALSE(manager->disableSharedMemory(remote(4))); }),
              ElementsAre("disableSharedMemory: Not allocated, something is wrong!"));
}

TEST_F(SharedMemoryManagerTest, ClearsThreeBytesOfTheEntryAndRemovesTheSegment) {
  const ManagerPtr manager = createManager();
  const SharedMemoryKey names = enable(*manager, remote(2));
  const RawObject table = rawTable();
  std::vector<std::uint8_t> expected(table.bytes(), table.bytes() + kMainSize);
  expected[1022 + 2 * 511] = 0;
  expected[1022 + 2 * 511 + 1] = 0;
  expected[1022 + 2 * 511 + 256] = 0;

  EXPECT_THAT(
      withoutAddresses(
          linesWrittenBy([&] { EXPECT_TRUE(manager->disableSharedMemory(remote(2))); })),
      ElementsAre("~SharedMemoryVideoFrameSource:0xADDRESS, pid:" + hexPid() + ", destroyed",
                  "~SharedMemoryAllocator:0xADDRESS, pid:" + hexPid() + ", destroyed"));
  EXPECT_EQ(std::vector<std::uint8_t>(table.bytes(), table.bytes() + kMainSize), expected);
  EXPECT_FALSE(objectExists(names.shmName));
  EXPECT_FALSE(semaphoreExists(names.semName));
  EXPECT_EQ(semaphoreCount(names_.sem()), 1);
}

TEST_F(SharedMemoryManagerTest, EnablesAStreamAgainAfterItWasDisabled) {
  const ManagerPtr manager = createManager();
  for (const StreamKey& key : {kLocal, remote(0), kContent}) {
    enable(*manager, key);
    EXPECT_TRUE(disableQuietly(*manager, key));
    enable(*manager, key);
  }
}

TEST_F(SharedMemoryManagerTest, AWidgetSeesEveryStreamAsNotInitialisedAtFirst) {
  const struct {
    StreamKey key;
    std::string kind;
  } cases[] = {
      {kLocal, "local"}, {remote(0), "remote"}, {remote(49), "remote"}, {kContent, "content"}};
  const ManagerPtr creator = createManager();
  const ManagerPtr opener = openManager();
  for (const auto& [key, kind] : cases) {
    const std::string line = "getVideoFrameSource: Shared mem for " + kind +
                             " stream not initialised, something is wrong!";
    for (int request = 0; request < 2; ++request) {
      EXPECT_THAT(
          linesWrittenBy([&, key = key] { EXPECT_EQ(opener->getVideoFrameSource(key), nullptr); }),
          ElementsAre(line));
    }
  }
  EXPECT_EQ(semaphoreCount(names_.sem()), 1);
}

TEST_F(SharedMemoryManagerTest, AWidgetOpensAStreamOnceItIsListed) {
  const ManagerPtr creator = createManager();
  const ManagerPtr opener = openManager();
  EXPECT_EQ(lookUpQuietly(*opener, remote(7)), nullptr);
  const SharedMemoryKey names = enable(*creator, remote(7));

  SourcePtr source;
  const auto lines = linesWrittenBy([&] { source = opener->getVideoFrameSource(remote(7)); });
  ASSERT_NE(source, nullptr);
  EXPECT_THAT(
      withoutAddresses(lines),
      ElementsAre("getVideoFrameSource: opening video shared memory shm name:" + names.shmName +
                      ", sem name:" + names.semName,
                  "initialize: Creating shared mem with name:" + names.shmName +
                      ", SEM name:" + names.semName,
                  "initialize: mapped memory with ptr:0xADDRESS, size:2073640, sem count:0, "
                  "flags:2, permission:438",
                  "initialize: creating semaphore with initial count:0, flags:2",
                  "SharedMemoryAllocator:0xADDRESS, pid:" + hexPid() + ", created",
                  "SharedMemoryVideoFrameSource:0xADDRESS, pid:" + hexPid() + ", created",
                  "++++++++ Memory Data to read from ++++++++++ ", "ShmName = " + names.shmName,
                  "SemName = " + names.semName));
  EXPECT_THAT(linesWrittenBy([&] { EXPECT_EQ(opener->getVideoFrameSource(remote(7)), source); }),
              IsEmpty());
  EXPECT_EQ(semaphoreCount(names_.sem()), 1);
}

TEST_F(SharedMemoryManagerTest, AWidgetDropsADelistedStreamWithoutALineOfItsOwn) {
  const ManagerPtr creator = createManager();
  const ManagerPtr opener = openManager();
  enable(*creator, remote(7));
  ASSERT_NE(lookUpQuietly(*opener, remote(7)), nullptr);
  ASSERT_TRUE(disableQuietly(*creator, remote(7)));
  EXPECT_THAT(
      withoutAddresses(
          linesWrittenBy([&] { EXPECT_EQ(opener->getVideoFrameSource(remote(7)), nullptr); })),
      ElementsAre("~SharedMemoryVideoFrameSource:0xADDRESS, pid:" + hexPid() + ", destroyed",
                  "~SharedMemoryAllocator:0xADDRESS, pid:" + hexPid() + ", destroyed"));
  EXPECT_THAT(
      linesWrittenBy([&] { EXPECT_EQ(opener->getVideoFrameSource(remote(7)), nullptr); }),
      ElementsAre("getVideoFrameSource: Shared mem for remote stream not initialised, something "
                  "is wrong!"));
  EXPECT_EQ(semaphoreCount(names_.sem()), 1);
}

TEST_F(SharedMemoryManagerTest, AWidgetReopensAStreamThatWasEnteredAgain) {
  const ManagerPtr creator = createManager();
  const ManagerPtr opener = openManager();
  for (unsigned int round = 0; round < 3; ++round) {
    enable(*creator, kContent);
    creator->NotifyFrameArrived(std::make_shared<FakeVideoFrame>(2, 2), round, kContent);
    const SourcePtr source = lookUpQuietly(*opener, kContent);
    ASSERT_NE(source, nullptr);
    VideoFrame frame;
    ASSERT_TRUE(source->getVideoFrame(frame, kNoFrame));
    EXPECT_EQ(frame.csrc, round);
    source->releaseVideoFrame();
    ASSERT_TRUE(disableQuietly(*creator, kContent));
    EXPECT_EQ(lookUpQuietly(*opener, kContent), nullptr);
  }
}

TEST_F(SharedMemoryManagerTest, LocalStreamsShareOneEntryWhateverTheirIndex) {
  const ManagerPtr creator = createManager();
  const ManagerPtr opener = openManager();
  const SharedMemoryKey names = enable(*creator, {TSLM_STREAM_LOCAL, 5});
  EXPECT_EQ(textAt(rawTable(), 1), names.shmName);
  EXPECT_NE(lookUpQuietly(*opener, kLocal), nullptr);
  EXPECT_NE(lookUpQuietly(*opener, {TSLM_STREAM_LOCAL, -9}), nullptr);

  for (const int index : {123'456'789, 0}) {
    const SharedMemoryKey later = enable(*creator, {TSLM_STREAM_LOCAL, index});
    EXPECT_EQ(textAt(rawTable(), 1), later.shmName);
    EXPECT_EQ(textAt(rawTable(), 256), later.semName);
  }
  EXPECT_TRUE(disableQuietly(*creator, kLocal));
  EXPECT_EQ(rawTable().at<std::uint8_t>(0), 0);
}

TEST_F(SharedMemoryManagerTest, ContentStreamsShareOneEntryWhateverTheirIndex) {
  const ManagerPtr creator = createManager();
  const ManagerPtr opener = openManager();
  const SharedMemoryKey names = enable(*creator, {TSLM_STREAM_CONTENT, 12});
  EXPECT_EQ(textAt(rawTable(), 512), names.shmName);
  EXPECT_NE(lookUpQuietly(*opener, kContent), nullptr);
}

TEST_F(SharedMemoryManagerTest, RefusesRemoteIndexesOutsideTheTableBeforeItCreatesASegment) {
  const ManagerPtr creator = createManager();
  const ManagerPtr opener = openManager();
  for (const int index : {50, 51, 1000, -1, -2, -51, std::numeric_limits<int>::max(),
                          std::numeric_limits<int>::min()}) {
    SCOPED_TRACE(index);
    for (int request = 0; request < 2; ++request) {
      EXPECT_THAT(linesWrittenBy([&] { EXPECT_FALSE(creator->enableSharedMemory(remote(index))); }),
                  ElementsAre("enableSharedMemory: Unknown stream index!"));
      EXPECT_THAT(
          linesWrittenBy([&] { EXPECT_FALSE(creator->disableSharedMemory(remote(index))); }),
          ElementsAre("disableSharedMemory: Unknown stream index!"));
      EXPECT_THAT(
          linesWrittenBy([&] { EXPECT_EQ(opener->getVideoFrameSource(remote(index)), nullptr); }),
          ElementsAre("getVideoFrameSource: Unknown stream index!"));
    }
    EXPECT_THAT(linesWrittenBy([&] { opener->removeVideoFrameSource(remote(index)); }), IsEmpty());
  }
  const RawObject table = rawTable();
  EXPECT_EQ(std::vector<std::uint8_t>(table.bytes(), table.bytes() + kMainSize),
            std::vector<std::uint8_t>(kMainSize, 0));
}

TEST_F(SharedMemoryManagerTest, KeepsTheSourceOfAnUnknownKindWithoutListingIt) {
  const ManagerPtr manager = createManager();
  const auto lines =
      linesWrittenBy([&] { EXPECT_FALSE(manager->enableSharedMemory(kUnknownKind)); });
  const SharedMemoryKey names = segmentOf(lines.at(0));
  EXPECT_THAT(names.shmName, testing::EndsWith("73"));
  EXPECT_EQ(lines.back(), "enableSharedMemory: Unknown stream index!");
  EXPECT_EQ(semaphoreCount(names_.sem()), 1);
  EXPECT_TRUE(objectExists(names.shmName));

  EXPECT_THAT(linesWrittenBy([&] { EXPECT_FALSE(manager->enableSharedMemory(kUnknownKind)); }),
              ElementsAre("enableSharedMemory: Already allocated, something is wrong!"));
  EXPECT_THAT(linesWrittenBy([&] { EXPECT_FALSE(manager->disableSharedMemory(kUnknownKind)); }),
              ElementsAre("disableSharedMemory: Unknown stream index!"));
  EXPECT_THAT(
      linesWrittenBy([&] { EXPECT_NE(manager->getVideoFrameSource(kUnknownKind), nullptr); }),
      ElementsAre("getVideoFrameSource: Unknown stream index!"));
  EXPECT_EQ(semaphoreCount(names_.sem()), 1);
  EXPECT_TRUE(objectExists(names.shmName));
}

TEST_F(SharedMemoryManagerTest, AWidgetRemembersThatAnUnknownKindHasNoSource) {
  const ManagerPtr creator = createManager();
  const ManagerPtr opener = openManager();
  for (int request = 0; request < 3; ++request) {
    EXPECT_THAT(
        linesWrittenBy([&] { EXPECT_EQ(opener->getVideoFrameSource(kUnknownKind), nullptr); }),
        ElementsAre("getVideoFrameSource: Unknown stream index!"));
  }
  EXPECT_THAT(linesWrittenBy([&] { opener->removeVideoFrameSource(kUnknownKind); }),
              ElementsAre("removeVideoFrameSource: StreamKey:7, index:3"));
  EXPECT_EQ(semaphoreCount(names_.sem()), 1);
}

TEST_F(SharedMemoryManagerTest, AWidgetRemembersThatASegmentCouldNotBeOpened) {
  const ManagerPtr creator = createManager();
  const ManagerPtr opener = openManager();
  const SharedMemoryKey names = enable(*creator, remote(1));
  shm_unlink(names.shmName.c_str());
  EXPECT_THAT(linesWrittenBy([&] { EXPECT_EQ(opener->getVideoFrameSource(remote(1)), nullptr); }),
              Contains("shm_open failed, error:2"));
  EXPECT_THAT(linesWrittenBy([&] { EXPECT_EQ(opener->getVideoFrameSource(remote(1)), nullptr); }),
              IsEmpty());

  ASSERT_TRUE(disableQuietly(*creator, remote(1)));
  enable(*creator, remote(1));
  EXPECT_THAT(linesWrittenBy([&] { EXPECT_EQ(opener->getVideoFrameSource(remote(1)), nullptr); }),
              IsEmpty())
      << "the stream was listed again before the widget saw it gone";
  EXPECT_THAT(linesWrittenBy([&] { opener->removeVideoFrameSource(remote(1)); }),
              ElementsAre("removeVideoFrameSource: StreamKey:1, index:1"));
  EXPECT_NE(lookUpQuietly(*opener, remote(1)), nullptr);
}

TEST_F(SharedMemoryManagerTest, AWidgetForgetsAFailedStreamThatWasDelisted) {
  const ManagerPtr creator = createManager();
  const ManagerPtr opener = openManager();
  const SharedMemoryKey names = enable(*creator, remote(1));
  shm_unlink(names.shmName.c_str());
  EXPECT_EQ(lookUpQuietly(*opener, remote(1)), nullptr);
  ASSERT_TRUE(disableQuietly(*creator, remote(1)));
  EXPECT_THAT(linesWrittenBy([&] { EXPECT_EQ(opener->getVideoFrameSource(remote(1)), nullptr); }),
              IsEmpty());
  enable(*creator, remote(1));
  EXPECT_NE(lookUpQuietly(*opener, remote(1)), nullptr);
}

TEST_F(SharedMemoryManagerTest, ForgetsAStreamThatTheWidgetRemoves) {
  const ManagerPtr creator = createManager();
  const ManagerPtr opener = openManager();
  const SharedMemoryKey names = enable(*creator, remote(7));
  ASSERT_NE(lookUpQuietly(*opener, remote(7)), nullptr);
  EXPECT_THAT(
      withoutAddresses(linesWrittenBy([&] { opener->removeVideoFrameSource(remote(7)); })),
      ElementsAre("removeVideoFrameSource: StreamKey:1, index:7",
                  "~SharedMemoryVideoFrameSource:0xADDRESS, pid:" + hexPid() + ", destroyed",
                  "~SharedMemoryAllocator:0xADDRESS, pid:" + hexPid() + ", destroyed"));
  EXPECT_FALSE(objectExists(names.shmName));
  EXPECT_THAT(linesWrittenBy([&] { opener->removeVideoFrameSource(remote(7)); }), IsEmpty());
  // The names are gone, so it cannot be opened again, until it is entered again.
  EXPECT_EQ(lookUpQuietly(*opener, remote(7)), nullptr);
}

TEST_F(SharedMemoryManagerTest, PrintsAStreamsKeyInTheBaseThatAnEarlierLineLeft) {
  const ManagerPtr creator = createManager();
  const ManagerPtr opener = openManager();
  enable(*creator, remote(42));
  ASSERT_NE(lookUpQuietly(*opener, remote(42)), nullptr);
  EXPECT_THAT(linesWrittenBy([&] { creator->NotifyFrameArrived(nullptr, 1, remote(43)); }),
              ElementsAre("NotifyFrameArrived: No mapped video frame shared mem object found for "
                          "StreamKey:1, index:43"));
  switchToHexadecimal();
  EXPECT_THAT(linesWrittenBy([&] { creator->NotifyFrameArrived(nullptr, 1, remote(43)); }),
              ElementsAre("NotifyFrameArrived: No mapped video frame shared mem object found for "
                          "StreamKey:1, index:2b"));
  EXPECT_THAT(linesWrittenBy([&] { opener->removeVideoFrameSource(remote(42)); }),
              Contains("removeVideoFrameSource: StreamKey:1, index:2a"));
}

TEST_F(SharedMemoryManagerTest, DeliversArrivingFrames) {
  const ManagerPtr creator = createManager();
  const ManagerPtr opener = openManager();
  enable(*creator, remote(0));
  enable(*creator, remote(1));
  const auto stored = std::make_shared<FakeVideoFrame>(16, 8, 1);
  EXPECT_THAT(linesWrittenBy([&] { creator->NotifyFrameArrived(stored, 77, remote(1)); }),
              IsEmpty());
  const SourcePtr source = lookUpQuietly(*opener, remote(1));
  VideoFrame frame;
  ASSERT_TRUE(source->getVideoFrame(frame, kNoFrame));
  EXPECT_EQ(frame.csrc, 77u);
  EXPECT_EQ(std::vector<std::uint8_t>(frame.yPlane.data, frame.yPlane.data + stored->pixels.size()),
            stored->pixels);
  source->releaseVideoFrame();

  const SourcePtr other = lookUpQuietly(*opener, remote(0));
  ASSERT_TRUE(other->getVideoFrame(frame, kNoFrame));
  EXPECT_EQ(frame.width, 0u) << "nothing arrived for this stream";
  other->releaseVideoFrame();
}

TEST_F(SharedMemoryManagerTest, DropsAFrameOfAStreamWhoseSourceIsEmpty) {
  const ManagerPtr creator = createManager();
  EXPECT_EQ(lookUpQuietly(*creator, kUnknownKind), nullptr);
  EXPECT_THAT(linesWrittenBy([&] {
                creator->NotifyFrameArrived(std::make_shared<FakeVideoFrame>(2, 2), 1,
                                            kUnknownKind);
              }),
              ElementsAre("NotifyFrameArrived: Frame dropped, no shared memory for StreamKey:7, "
                          "index:3"));
}

// When its width is read, the frame removes the stream, like another thread could.
TEST_F(SharedMemoryManagerTest, AStreamMayBeDisabledWhileItsFrameIsBeingStored) {
  const ManagerPtr creator = createManager();
  const SharedMemoryKey names = enable(*creator, remote(0));
  const auto frame = std::make_shared<FakeVideoFrame>(2, 2);
  bool existedUntilStored = false;
  frame->whileAsked = [&] {
    EXPECT_TRUE(creator->disableSharedMemory(remote(0)));
    existedUntilStored = objectExists(names.shmName);
  };
  const auto lines = linesWrittenBy([&] { creator->NotifyFrameArrived(frame, 1, remote(0)); });
  EXPECT_TRUE(existedUntilStored);
  EXPECT_FALSE(objectExists(names.shmName));
  EXPECT_THAT(lines, ElementsAre(StartsWith("~SharedMemoryVideoFrameSource:0x"),
                                 StartsWith("~SharedMemoryAllocator:0x")));
}

TEST_F(SharedMemoryManagerTest, FramesArriveWhileOtherStreamsAreEnabledAndDisabled) {
  const ManagerPtr creator = createManager();
  const ManagerPtr opener = openManager();
  const test::CapturedOutput output;
  for (int index = 0; index < 3; ++index) {
    ASSERT_TRUE(creator->enableSharedMemory(remote(index)));
  }
  std::atomic<bool> ended = false;
  std::array<unsigned int, 3> delivered = {};
  std::vector<std::thread> engine;
  for (int index = 0; index < 3; ++index) {
    engine.emplace_back([&, index] {
      const auto frame = std::make_shared<FakeVideoFrame>(64, 36);
      unsigned int csrc = 0;
      while (!ended) creator->NotifyFrameArrived(frame, ++csrc, remote(index));
      delivered[static_cast<std::size_t>(index)] = csrc;
    });
  }
  // Enough streams, before and after those that stay, for the map to rebalance.
  const StreamKey others[] = {kLocal, remote(30), remote(31), remote(32), kContent};
  for (int round = 0; round < 20; ++round) {
    for (const StreamKey& key : others) EXPECT_TRUE(creator->enableSharedMemory(key));
    for (const StreamKey& key : others) EXPECT_TRUE(creator->disableSharedMemory(key));
  }
  ended = true;
  for (std::thread& thread : engine) thread.join();
  for (int index = 0; index < 3; ++index) {
    VideoFrame frame;
    const SourcePtr source = opener->getVideoFrameSource(remote(index));
    ASSERT_NE(source, nullptr);
    ASSERT_TRUE(source->getVideoFrame(frame, kNoFrame));
    EXPECT_EQ(frame.csrc, delivered[static_cast<std::size_t>(index)]);
    source->releaseVideoFrame();
  }
}

TEST_F(SharedMemoryManagerTest, FramesArriveWhileTheirOwnStreamIsEnabledAndDisabled) {
  const ManagerPtr creator = createManager();
  const test::CapturedOutput output;
  std::atomic<bool> ended = false;
  std::thread engine([&] {
    const auto frame = std::make_shared<FakeVideoFrame>(64, 36);
    while (!ended) creator->NotifyFrameArrived(frame, 1, remote(0));
  });
  for (int round = 0; round < 50; ++round) {
    EXPECT_TRUE(creator->enableSharedMemory(remote(0)));
    EXPECT_TRUE(creator->disableSharedMemory(remote(0)));
  }
  ended = true;
  engine.join();
}

TEST_F(SharedMemoryManagerTest, RemovesTheFrameSegmentsAndThenTheMainSegmentWhenItIsDestroyed) {
  for (const bool isClosed : {true, false}) {
    ManagerPtr manager = createManager();
    const SharedMemoryKey local = enable(*manager, kLocal);
    const SharedMemoryKey content = enable(*manager, kContent);
    const auto end = [&] {
      if (isClosed) {
        manager->close();
      } else {
        manager.reset();
      }
    };
    EXPECT_THAT(linesWrittenBy(end), ElementsAre(StartsWith("~SharedMemoryVideoFrameSource:0x"),
                                                 StartsWith("~SharedMemoryAllocator:0x"),
                                                 StartsWith("~SharedMemoryVideoFrameSource:0x"),
                                                 StartsWith("~SharedMemoryAllocator:0x"),
                                                 StartsWith("~SharedMemoryAllocator:0x")));
    for (const std::string& name : {local.shmName, content.shmName, names_.shm()}) {
      EXPECT_FALSE(objectExists(name));
    }
    for (const std::string& name : {local.semName, content.semName, names_.sem()}) {
      EXPECT_FALSE(semaphoreExists(name));
    }
    EXPECT_THAT(linesWrittenBy([&] { manager.reset(); }), IsEmpty());
  }
}

TEST_F(SharedMemoryManagerTest, OpenMappingsKeepWorkingAfterTheWidgetRemovedTheNames) {
  const ManagerPtr creator = createManager();
  ManagerPtr opener = openManager();
  const SharedMemoryKey names = enable(*creator, kLocal);
  ASSERT_NE(lookUpQuietly(*opener, kLocal), nullptr);
  linesWrittenBy([&] { opener.reset(); });
  EXPECT_FALSE(objectExists(names_.shm()));
  EXPECT_FALSE(objectExists(names.shmName));

  EXPECT_THAT(linesWrittenBy([&] {
                creator->NotifyFrameArrived(std::make_shared<FakeVideoFrame>(2, 2), 1, kLocal);
              }),
              IsEmpty());
  EXPECT_TRUE(disableQuietly(*creator, kLocal));
  enable(*creator, kLocal);
}

TEST_F(SharedMemoryManagerTest, ReadsNamesWithoutAnEndUpToTheFieldsEnd) {
  const ManagerPtr creator = createManager();
  const ManagerPtr opener = openManager();
  const RawObject table = rawTable();
  std::memset(table.bytes(), 'x', kMainSize);
  const auto lines =
      linesWrittenBy([&] { EXPECT_EQ(opener->getVideoFrameSource(remote(49)), nullptr); });
  const std::string name(255, 'x');
  EXPECT_EQ(lines.at(0), "getVideoFrameSource: opening video shared memory shm name:" + name +
                             ", sem name:" + name);
}

TEST_F(SharedMemoryManagerTest, TreatsAListedStreamWithoutANameAsOneThatCouldNotBeOpened) {
  const ManagerPtr creator = createManager();
  const ManagerPtr opener = openManager();
  const RawObject table = rawTable();
  table.put<std::uint8_t>(0, 1);
  table.put<char>(1, 'x');
  EXPECT_THAT(
      linesWrittenBy([&] { EXPECT_EQ(opener->getVideoFrameSource(kLocal), nullptr); }),
      ElementsAre("getVideoFrameSource: opening video shared memory shm name:x, sem name:"));
  EXPECT_THAT(linesWrittenBy([&] { EXPECT_EQ(opener->getVideoFrameSource(kLocal), nullptr); }),
              IsEmpty());
}

TEST_F(SharedMemoryManagerTest, SurvivesATableOfRandomBytes) {
  const ManagerPtr creator = createManager();
  const ManagerPtr opener = openManager();
  const RawObject table = rawTable();
  std::mt19937 random(1);
  int attempts = 0;
  for (int round = 0; round < 50; ++round) {
    for (std::size_t offset = 0; offset < kMainSize; ++offset) {
      table.put(offset, static_cast<std::uint8_t>(random()));
    }
    for (const StreamKey& key : {kLocal, kContent, remote(0), remote(25), remote(49)}) {
      const auto lines = linesWrittenBy([&] {
        EXPECT_EQ(opener->getVideoFrameSource(key), nullptr);
        EXPECT_EQ(opener->getVideoFrameSource(key), nullptr);
        opener->removeVideoFrameSource(key);
      });
      if (lines.at(0).starts_with("getVideoFrameSource: opening")) ++attempts;
    }
    enable(*creator, remote(25));
    EXPECT_TRUE(disableQuietly(*creator, remote(25)));
  }
  EXPECT_GT(attempts, 200) << "too few entries that say they are valid to say anything";
}

TEST_F(SharedMemoryManagerTest, TwoCreatedInOneSecondMayShareNamesAndStillWork) {
  // Like a second manager within one second: the names are already in use.
  const ManagerPtr first = createManager();
  const ManagerPtr second = createManager();
  EXPECT_EQ(semaphoreCount(names_.sem()), 2);
  EXPECT_TRUE(enableQuietly(*first, remote(0)));
  EXPECT_TRUE(disableQuietly(*first, remote(0)));
  EXPECT_TRUE(enableQuietly(*second, remote(1)));
  EXPECT_TRUE(disableQuietly(*second, remote(1)));
}

}  // namespace
