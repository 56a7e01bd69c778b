#include "addon/sharedmem/shared_memory_video_frame_source.h"

#include <sys/mman.h>

#include <csignal>
#include <limits>
#include <optional>
#include <random>

#include "addon/sharedmem/shared_memory_layout.h"
#include "test/native/sharedmem/fake_video_frame.h"
#include "test/native/sharedmem/shared_memory_test.h"

using sharedmem::SharedMemoryInfo;
using sharedmem::SharedMemoryVideoFrameSource;

namespace {

using test::linesWrittenBy;
using test::semaphoreCount;
using test::withoutAddresses;
using testing::ElementsAre;
using testing::IsEmpty;

using SourcePtr = std::shared_ptr<SharedMemoryVideoFrameSource>;

constexpr std::uint32_t kSegmentSize = 2'073'640;
constexpr std::uint32_t kPixels = 2'073'600;
constexpr std::uint32_t kLargest = std::numeric_limits<std::uint32_t>::max();
// Not the sequence number of any frame in these tests.
constexpr unsigned long kNoFrame = 1'000'000;

class SharedMemoryVideoFrameSourceTest : public SharedMemoryTest {
 protected:
  SourcePtr createWriter() const { return make(creating(kSegmentSize)); }
  SourcePtr openReader() const { return make(opening(kSegmentSize)); }
  RawObject rawSegment() const { return RawObject(names_.shm()); }

  static std::shared_ptr<FakeVideoFrame> picture(std::uint32_t width, std::uint32_t height,
                                                 std::uint8_t firstByte = 0) {
    return std::make_shared<FakeVideoFrame>(width, height, firstByte);
  }

 private:
  static SourcePtr make(const SharedMemoryInfo& info) {
    SourcePtr source;
    linesWrittenBy([&] { source = SharedMemoryVideoFrameSource::CreateVideoFrameSource(info); });
    EXPECT_NE(source, nullptr);
    return source;
  }
};

TEST_F(SharedMemoryVideoFrameSourceTest, PrintsItsCreationAndItsEnd) {
  SourcePtr source;
  auto lines = linesWrittenBy([&] {
    source = SharedMemoryVideoFrameSource::CreateVideoFrameSource(creating(kSegmentSize));
  });
  ASSERT_EQ(lines.size(), 10u);
  EXPECT_THAT(lines[4], testing::StartsWith("SharedMemoryAllocator:0x"));
  lines.erase(lines.begin(), lines.begin() + 5);
  EXPECT_THAT(lines, ElementsAre("lockDataAccess, already locked!",
                                 "SharedMemoryVideoFrameSource:" + addressText(source.get()) +
                                     ", pid:" + hexPid() + ", created",
                                 "++++++++ Memory Data to read from ++++++++++ ",
                                 "ShmName = " + names_.shm(), "SemName = " + names_.sem()));

  const std::string address = addressText(source.get());
  lines = linesWrittenBy([&] { source.reset(); });
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0],
            "~SharedMemoryVideoFrameSource:" + address + ", pid:" + hexPid() + ", destroyed");
  EXPECT_THAT(lines[1], testing::StartsWith("~SharedMemoryAllocator:0x"));
}

TEST_F(SharedMemoryVideoFrameSourceTest, TheReaderTakesNoLockWhenItOpens) {
  const SourcePtr writer = createWriter();
  const RawObject segment = rawSegment();
  segment.put<std::uint8_t>(0, 1);
  VideoFrame held;
  ASSERT_TRUE(writer->getVideoFrame(held, kNoFrame));
  SourcePtr reader;
  auto lines = linesWrittenBy([&] {
    reader = SharedMemoryVideoFrameSource::CreateVideoFrameSource(opening(kSegmentSize));
  });
  lines.erase(lines.begin(), lines.begin() + 4);
  EXPECT_THAT(withoutAddresses(lines),
              ElementsAre("SharedMemoryVideoFrameSource:0xADDRESS, pid:" + hexPid() + ", created",
                          "++++++++ Memory Data to read from ++++++++++ ",
                          "ShmName = " + names_.shm(), "SemName = " + names_.sem()));
  EXPECT_EQ(segment.at<std::uint8_t>(0), 1) << "nor does it clear anything";
}

TEST_F(SharedMemoryVideoFrameSourceTest, LeavesTheBaseDecimalAfterConstructionAndDestruction) {
  auto ambient = [] { return linesWrittenBy([] { base::DiagnosticLine("").integer(255); }); };
  switchToHexadecimal();
  SourcePtr source = createWriter();
  EXPECT_THAT(ambient(), ElementsAre("255"));
  switchToHexadecimal();
  linesWrittenBy([&] { source.reset(); });
  EXPECT_THAT(ambient(), ElementsAre("255"));
}

TEST_F(SharedMemoryVideoFrameSourceTest, IsNotReturnedWhenItsSegmentCannotBeOpened) {
  auto lines = linesWrittenBy([&] {
    EXPECT_EQ(SharedMemoryVideoFrameSource::CreateVideoFrameSource(opening(kSegmentSize)), nullptr);
  });
  lines.erase(lines.begin());
  EXPECT_THAT(
      withoutAddresses(lines),
      ElementsAre("shm_open failed, error:2",
                  "SharedMemoryAllocator:0xADDRESS, pid:" + hexPid() + ", created",
                  "SharedMemoryVideoFrameSource:Failed to initialise video frame shared memory",
                  "~SharedMemoryVideoFrameSource:0xADDRESS, pid:" + hexPid() + ", destroyed",
                  "~SharedMemoryAllocator:0xADDRESS, pid:" + hexPid() + ", destroyed"));
}

TEST_F(SharedMemoryVideoFrameSourceTest, RefusesASegmentOfAnotherVersionThatIsTooShort) {
  RawObject(names_.shm(), kSegmentSize - 1);
  linesWrittenBy([&] {
    EXPECT_EQ(SharedMemoryVideoFrameSource::CreateVideoFrameSource(opening(kSegmentSize)), nullptr);
  });
}

TEST_F(SharedMemoryVideoFrameSourceTest, CreatesAZeroedUnlockedSegmentOfFixedSize) {
  const SourcePtr writer = createWriter();
  const RawObject segment = rawSegment();
  ASSERT_EQ(segment.size(), kSegmentSize);
  EXPECT_EQ(std::vector<std::uint8_t>(segment.bytes(), segment.bytes() + kSegmentSize),
            std::vector<std::uint8_t>(kSegmentSize, 0));
  EXPECT_EQ(semaphoreCount(names_.sem()), 1);
}

TEST_F(SharedMemoryVideoFrameSourceTest, ClearsOnlyTheFirstByteOfALeftoverSegment) {
  {
    const RawObject leftover(names_.shm(), kSegmentSize);
    std::memset(leftover.bytes(), 0xEE, kSegmentSize);
  }
  const SourcePtr writer = createWriter();
  const RawObject segment = rawSegment();
  std::vector<std::uint8_t> expected(kSegmentSize, 0xEE);
  expected[0] = 0;
  EXPECT_EQ(std::vector<std::uint8_t>(segment.bytes(), segment.bytes() + kSegmentSize), expected);
}

TEST_F(SharedMemoryVideoFrameSourceTest, StoresEveryFieldAtItsPlace) {
  const SourcePtr writer = createWriter();
  const RawObject segment = rawSegment();
  std::memset(segment.bytes(), 0xEE, kSegmentSize);
  const auto frame = picture(6, 4, 10);
  frame->valueA = 0xA0A1A2A3;
  frame->valueB = 0xB0B1B2B3;
  frame->valueC = 0xC0C1C2C3;
  EXPECT_THAT(linesWrittenBy([&] { EXPECT_TRUE(writer->storeVideoFrame(frame, 0xD0D1D2D3)); }),
              IsEmpty());

  std::vector<std::uint8_t> expected = {
      0xEE, 0,    0,    0xEE, 0xEE, 0xEE, 0xEE, 0xEE,  // two bytes cleared, the rest untouched
      0,    0,    0,    0,    0,    0,    0,    0,     // sequence
      0xD3, 0xD2, 0xD1, 0xD0, 6,    0,    0,    0,     // csrc, width
      4,    0,    0,    0,    0xA3, 0xA2, 0xA1, 0xA0,  // height, value A
      0xB3, 0xB2, 0xB1, 0xB0, 0xC3, 0xC2, 0xC1, 0xC0,  // values B and C
  };
  for (std::uint8_t i = 0; i < 36; ++i) expected.push_back(static_cast<std::uint8_t>(10 + i));
  expected.resize(kSegmentSize, 0xEE);
  EXPECT_EQ(std::vector<std::uint8_t>(segment.bytes(), segment.bytes() + kSegmentSize), expected);
}

TEST_F(SharedMemoryVideoFrameSourceTest, CountsTheStoredFramesFromZero) {
  const SourcePtr writer = createWriter();
  for (std::uint64_t sequence = 0; sequence < 4; ++sequence) {
    ASSERT_TRUE(writer->storeVideoFrame(picture(2, 2), 1));
    EXPECT_EQ(rawSegment().at<std::uint64_t>(8), sequence);
  }
}

TEST_F(SharedMemoryVideoFrameSourceTest, CountsFromZeroAgainInASecondSourceOfTheSegment) {
  SourcePtr writer = createWriter();
  ASSERT_TRUE(writer->storeVideoFrame(picture(2, 2), 1));
  ASSERT_TRUE(writer->storeVideoFrame(picture(2, 2), 1));
  const SourcePtr second = openReader();
  ASSERT_TRUE(second->storeVideoFrame(picture(2, 2), 1));
  EXPECT_EQ(rawSegment().at<std::uint64_t>(8), 0u);
}

TEST_F(SharedMemoryVideoFrameSourceTest, AnEmptyFrameCountsAndKeepsThePicture) {
  const SourcePtr writer = createWriter();
  const RawObject segment = rawSegment();
  const auto frame = picture(4, 2, 1);
  frame->valueA = 11;
  frame->valueB = 12;
  frame->valueC = 13;
  ASSERT_TRUE(writer->storeVideoFrame(frame, 7));
  const std::vector<std::uint8_t> before(segment.bytes(), segment.bytes() + kSegmentSize);

  segment.put<std::uint8_t>(1, 1);
  segment.put<std::uint8_t>(2, 1);
  EXPECT_TRUE(writer->storeVideoFrame(nullptr, 8));
  EXPECT_EQ(segment.at<std::uint64_t>(8), 1u);
  EXPECT_EQ(segment.at<std::uint32_t>(16), 8u);
  segment.put<std::uint64_t>(8, 0);
  segment.put<std::uint32_t>(16, 7);
  EXPECT_EQ(std::vector<std::uint8_t>(segment.bytes(), segment.bytes() + kSegmentSize), before);
}

TEST_F(SharedMemoryVideoFrameSourceTest, AReaderBeforeTheFirstFrameSeesAnEmptyPicture) {
  const SourcePtr writer = createWriter();
  const SourcePtr reader = openReader();
  VideoFrame frame;
  EXPECT_TRUE(reader->getVideoFrame(frame, 0));
  EXPECT_TRUE(frame.noUpdate);
  EXPECT_EQ(frame.frameId, 0u);

  linesWrittenBy([&] { EXPECT_TRUE(reader->getVideoFrame(frame, kNoFrame)); });
  EXPECT_FALSE(frame.noUpdate);
  EXPECT_FALSE(frame.clearFrame);
  EXPECT_EQ(frame.csrc, 0u);
  EXPECT_EQ(frame.width, 0u);
  EXPECT_EQ(frame.height, 0u);
  for (const VideoPlane& plane : {frame.yPlane, frame.uPlane, frame.vPlane}) {
    EXPECT_NE(plane.data, nullptr);
    EXPECT_EQ(plane.width, 0u);
    EXPECT_EQ(plane.height, 0u);
    EXPECT_EQ(plane.size, 0u);
    EXPECT_EQ(plane.stride, 0u);
  }
}

TEST_F(SharedMemoryVideoFrameSourceTest, TheFirstFrameIsNoUpdateForTheFrameIdZero) {
  const SourcePtr writer = createWriter();
  const SourcePtr reader = openReader();
  VideoFrame frame;
  ASSERT_TRUE(writer->storeVideoFrame(picture(2, 2), 1));
  EXPECT_TRUE(reader->getVideoFrame(frame, 0));
  EXPECT_TRUE(frame.noUpdate);
  EXPECT_TRUE(reader->releaseVideoFrame());

  ASSERT_TRUE(writer->storeVideoFrame(picture(2, 2), 1));
  EXPECT_TRUE(reader->getVideoFrame(frame, 0));
  EXPECT_FALSE(frame.noUpdate);
}

TEST_F(SharedMemoryVideoFrameSourceTest, DescribesTheFrameInPlace) {
  const SourcePtr writer = createWriter();
  const SourcePtr reader = openReader();
  const auto stored = picture(64, 36, 3);
  ASSERT_TRUE(writer->storeVideoFrame(stored, 4711));
  VideoFrame frame;
  EXPECT_THAT(linesWrittenBy([&] { EXPECT_TRUE(reader->getVideoFrame(frame, kNoFrame)); }),
              IsEmpty());
  EXPECT_FALSE(frame.noUpdate);
  EXPECT_FALSE(frame.clearFrame);
  EXPECT_EQ(frame.frameId, reinterpret_cast<std::uintptr_t>(frame.yPlane.data));
  EXPECT_EQ(frame.csrc, 4711u);
  EXPECT_EQ(frame.width, 64u);
  EXPECT_EQ(frame.height, 36u);
  EXPECT_EQ(frame.frame, nullptr);

  EXPECT_EQ(std::vector<std::uint8_t>(frame.yPlane.data, frame.yPlane.data + stored->pixels.size()),
            stored->pixels);
  // Another process's change shows without reading again: nothing was copied.
  rawSegment().put<std::uint8_t>(40, 99);
  EXPECT_EQ(frame.yPlane.data[0], 99);
}

TEST_F(SharedMemoryVideoFrameSourceTest, LaysThePlanesOneAfterTheOther) {
  const struct {
    std::uint32_t width, height, chromaWidth, chromaHeight;
  } cases[] = {{641, 361, 321, 181},
               {640, 360, 320, 180},
               {1, 1, 1, 1},
               {2, 1, 1, 1},
               {1600, 864, 800, 432}};
  for (const auto& [width, height, chromaWidth, chromaHeight] : cases) {
    SCOPED_TRACE(std::to_string(width) + " x " + std::to_string(height));
    const SourcePtr writer = createWriter();
    const SourcePtr reader = openReader();
    ASSERT_TRUE(writer->storeVideoFrame(picture(width, height), 1));
    VideoFrame frame;
    ASSERT_TRUE(reader->getVideoFrame(frame, kNoFrame));
    ASSERT_FALSE(frame.noUpdate);
    EXPECT_EQ(frame.yPlane.width, width);
    EXPECT_EQ(frame.yPlane.height, height);
    EXPECT_EQ(frame.yPlane.size, width * height);
    EXPECT_EQ(frame.yPlane.stride, width);
    for (const VideoPlane& plane : {frame.uPlane, frame.vPlane}) {
      EXPECT_EQ(plane.width, chromaWidth);
      EXPECT_EQ(plane.height, chromaHeight);
      EXPECT_EQ(plane.size, chromaWidth * chromaHeight);
      EXPECT_EQ(plane.stride, chromaWidth);
    }
    EXPECT_EQ(frame.uPlane.data - frame.yPlane.data, width * height);
    EXPECT_EQ(frame.vPlane.data - frame.uPlane.data, chromaWidth * chromaHeight);
  }
}

TEST_F(SharedMemoryVideoFrameSourceTest, PlacesTheChromaOfOddDimensions) {
  const SourcePtr writer = createWriter();
  const SourcePtr reader = openReader();
  ASSERT_TRUE(writer->storeVideoFrame(picture(641, 361), 1));
  VideoFrame frame;
  ASSERT_TRUE(reader->getVideoFrame(frame, kNoFrame));
  EXPECT_EQ(frame.uPlane.data - frame.yPlane.data, 231'401);
  EXPECT_EQ(frame.uPlane.size, 58'101u);
  EXPECT_EQ(frame.vPlane.size, 58'101u);
}

TEST_F(SharedMemoryVideoFrameSourceTest, PassingTheFrameIdBackGetsTheFrameAgain) {
  const SourcePtr writer = createWriter();
  const SourcePtr reader = openReader();
  ASSERT_TRUE(writer->storeVideoFrame(picture(8, 8), 1));
  VideoFrame first;
  ASSERT_TRUE(reader->getVideoFrame(first, kNoFrame));
  ASSERT_TRUE(reader->releaseVideoFrame());
  VideoFrame second;
  ASSERT_TRUE(reader->getVideoFrame(second, first.frameId));
  EXPECT_FALSE(second.noUpdate);
  EXPECT_EQ(second.frameId, first.frameId);
}

TEST_F(SharedMemoryVideoFrameSourceTest, PassingTheSequenceNumberGivesNoUpdate) {
  const SourcePtr writer = createWriter();
  const SourcePtr reader = openReader();
  for (int i = 0; i < 6; ++i) ASSERT_TRUE(writer->storeVideoFrame(picture(8, 8), 1));
  VideoFrame frame;
  ASSERT_TRUE(reader->getVideoFrame(frame, 5));
  EXPECT_TRUE(frame.noUpdate);
  EXPECT_EQ(frame.frameId, 5u);
  EXPECT_EQ(frame.width, 0u);
}

TEST_F(SharedMemoryVideoFrameSourceTest, ReturnsTheClearFlag) {
  const SourcePtr writer = createWriter();
  const SourcePtr reader = openReader();
  ASSERT_TRUE(writer->storeVideoFrame(picture(8, 8), 1));
  for (const int flag : {0, 1, 255}) {
    rawSegment().put(2, static_cast<std::uint8_t>(flag));
    VideoFrame frame;
    ASSERT_TRUE(reader->getVideoFrame(frame, kNoFrame));
    EXPECT_EQ(frame.clearFrame, flag != 0);
    ASSERT_TRUE(reader->releaseVideoFrame());
  }
}

TEST_F(SharedMemoryVideoFrameSourceTest, TheReaderKeepsTheLockUntilTheRelease) {
  const SourcePtr writer = createWriter();
  const SourcePtr reader = openReader();
  ASSERT_TRUE(writer->storeVideoFrame(picture(8, 8), 1));
  for (const unsigned long frameId : {kNoFrame, 0ul}) {
    VideoFrame frame;
    ASSERT_TRUE(reader->getVideoFrame(frame, frameId));
    EXPECT_EQ(semaphoreCount(names_.sem()), 0) << "noUpdate " << frame.noUpdate;
    EXPECT_TRUE(reader->releaseVideoFrame());
    EXPECT_EQ(semaphoreCount(names_.sem()), 1);
  }
}

TEST_F(SharedMemoryVideoFrameSourceTest, ASecondReadBeforeTheReleaseDoesNotWait) {
  const SourcePtr writer = createWriter();
  const SourcePtr reader = openReader();
  VideoFrame frame;
  ASSERT_TRUE(reader->getVideoFrame(frame, kNoFrame));
  EXPECT_THAT(linesWrittenBy([&] { EXPECT_TRUE(reader->getVideoFrame(frame, kNoFrame)); }),
              ElementsAre("lockDataAccess, already locked!"));
  EXPECT_TRUE(reader->releaseVideoFrame());
  EXPECT_EQ(semaphoreCount(names_.sem()), 1);
}

TEST_F(SharedMemoryVideoFrameSourceTest, AReleaseWithoutAReadChangesNothing) {
  const SourcePtr writer = createWriter();
  const SourcePtr reader = openReader();
  EXPECT_THAT(linesWrittenBy([&] { EXPECT_FALSE(reader->releaseVideoFrame()); }),
              ElementsAre("unlockDataAccess failed, trying to unlock without locking!"));
  EXPECT_EQ(semaphoreCount(names_.sem()), 1);
}

TEST_F(SharedMemoryVideoFrameSourceTest, StoresABufferThatFillsThePixelSpace) {
  const SourcePtr writer = createWriter();
  const auto frame = picture(1600, 864, 5);
  ASSERT_EQ(frame->bufferSize, kPixels);
  EXPECT_TRUE(writer->storeVideoFrame(frame, 1));
  const RawObject segment = rawSegment();
  EXPECT_EQ(std::vector<std::uint8_t>(segment.bytes() + 40, segment.bytes() + kSegmentSize),
            frame->pixels);
}

// The reader holds the lock: a writer that tried to take it would print a line 5 seconds later.
TEST_F(SharedMemoryVideoFrameSourceTest, DropsABufferThatDoesNotFitBeforeItTakesTheLock) {
  const SourcePtr writer = createWriter();
  const SourcePtr reader = openReader();
  ASSERT_TRUE(writer->storeVideoFrame(picture(8, 8, 7), 7));
  VideoFrame held;
  ASSERT_TRUE(reader->getVideoFrame(held, kNoFrame));
  const RawObject segment = rawSegment();
  const std::vector<std::uint8_t> before(segment.bytes(), segment.bytes() + kSegmentSize);

  const auto tooLarge = picture(1920, 1080);
  EXPECT_THAT(linesWrittenBy([&] { EXPECT_FALSE(writer->storeVideoFrame(tooLarge, 8)); }),
              ElementsAre("storeVideoFrame: Frame dropped, its buffer is too large, size:3110400"));
  const auto oneTooMany = picture(8, 8);
  oneTooMany->bufferSize = kPixels + 1;
  EXPECT_THAT(linesWrittenBy([&] { EXPECT_FALSE(writer->storeVideoFrame(oneTooMany, 8)); }),
              ElementsAre("storeVideoFrame: Frame dropped, its buffer is too large, size:2073601"));
  const auto endless = picture(8, 8);
  endless->bufferSize = std::numeric_limits<std::uint64_t>::max();
  EXPECT_THAT(linesWrittenBy([&] { EXPECT_FALSE(writer->storeVideoFrame(endless, 8)); }),
              ElementsAre("storeVideoFrame: Frame dropped, its buffer is too large, "
                          "size:18446744073709551615"));
  EXPECT_EQ(std::vector<std::uint8_t>(segment.bytes(), segment.bytes() + kSegmentSize), before);
}

TEST_F(SharedMemoryVideoFrameSourceTest, DropsANullBufferBeforeItTakesTheLock) {
  const SourcePtr writer = createWriter();
  const SourcePtr reader = openReader();
  VideoFrame held;
  ASSERT_TRUE(reader->getVideoFrame(held, kNoFrame));
  for (const std::uint64_t size : {0u, 1u, 96u}) {
    const auto frame = picture(8, 8);
    frame->buffer = nullptr;
    frame->bufferSize = size;
    EXPECT_THAT(linesWrittenBy([&] { EXPECT_FALSE(writer->storeVideoFrame(frame, 8)); }),
                ElementsAre("storeVideoFrame: Frame dropped, its buffer is null"));
  }
}

TEST_F(SharedMemoryVideoFrameSourceTest, ADroppedFrameTakesNoSequenceNumber) {
  const SourcePtr writer = createWriter();
  linesWrittenBy([&] {
    EXPECT_FALSE(writer->storeVideoFrame(picture(1920, 1080), 1));
    EXPECT_FALSE(writer->storeVideoFrame(std::make_shared<FakeVideoFrame>(), 1));
  });
  ASSERT_TRUE(writer->storeVideoFrame(picture(8, 8), 1));
  EXPECT_EQ(rawSegment().at<std::uint64_t>(8), 0u);
}

TEST_F(SharedMemoryVideoFrameSourceTest, GivesNoUpdateForDimensionsThatDoNotFit) {
  const struct {
    std::uint32_t width, height;
  } cases[] = {{1920, 1080},
               {1600, 865},
               {1601, 864},
               {2'073'600, 1},
               {1, 2'073'600},
               {kLargest, 1},
               {1, kLargest},
               {kLargest, kLargest},
               {0x10000, 0x10000},
               {0x80000000, 2},
               {2, 0x80000000},
               {0x80000000, 0x80000000},
               {0x55555556, 3},
               {kLargest - 1, 2},
               // Bytes in all: 2 to the power of 64, plus 1,507,196.
               {4'294'901'772, 2'863'355'214}};
  const SourcePtr writer = createWriter();
  const SourcePtr reader = openReader();
  ASSERT_TRUE(writer->storeVideoFrame(picture(8, 8), 1));
  const RawObject segment = rawSegment();
  for (const auto& [width, height] : cases) {
    SCOPED_TRACE(std::to_string(width) + " x " + std::to_string(height));
    segment.put(20, width);
    segment.put(24, height);
    VideoFrame frame;
    EXPECT_THAT(linesWrittenBy([&] { EXPECT_TRUE(reader->getVideoFrame(frame, kNoFrame)); }),
                IsEmpty());
    EXPECT_TRUE(frame.noUpdate);
    EXPECT_EQ(frame.frameId, kNoFrame);
    EXPECT_EQ(frame.width, 0u);
    EXPECT_EQ(frame.yPlane.data, nullptr);
    EXPECT_EQ(semaphoreCount(names_.sem()), 0) << "still locked";
    EXPECT_TRUE(reader->releaseVideoFrame());
  }
}

TEST_F(SharedMemoryVideoFrameSourceTest, GivesEmptyPlanesForDimensionsWithoutArea) {
  const SourcePtr writer = createWriter();
  const SourcePtr reader = openReader();
  ASSERT_TRUE(writer->storeVideoFrame(picture(8, 8), 1));
  const RawObject segment = rawSegment();
  const struct {
    std::uint32_t width, height, chromaWidth, chromaHeight;
  } cases[] = {{kLargest, 0, 0x80000000, 0}, {0, kLargest, 0, 0x80000000}, {0, 1, 0, 1}};
  for (const auto& [width, height, chromaWidth, chromaHeight] : cases) {
    segment.put(20, width);
    segment.put(24, height);
    VideoFrame frame;
    ASSERT_TRUE(reader->getVideoFrame(frame, kNoFrame));
    EXPECT_FALSE(frame.noUpdate);
    EXPECT_EQ(frame.width, width);
    EXPECT_EQ(frame.height, height);
    EXPECT_EQ(frame.yPlane.size, 0u);
    for (const VideoPlane& plane : {frame.uPlane, frame.vPlane}) {
      EXPECT_EQ(plane.data, frame.yPlane.data);
      EXPECT_EQ(plane.size, 0u);
      EXPECT_EQ(plane.width, chromaWidth);
      EXPECT_EQ(plane.height, chromaHeight);
    }
    ASSERT_TRUE(reader->releaseVideoFrame());
  }
}

TEST_F(SharedMemoryVideoFrameSourceTest, KeepsEveryPlaneInsideTheSegmentWhateverTheHeaderSays) {
  const SourcePtr writer = createWriter();
  const SourcePtr reader = openReader();
  const RawObject segment = rawSegment();
  std::mt19937 random(1);
  const auto anySize = [&random] {
    return static_cast<std::uint32_t>(random()) >> std::uniform_int_distribution<>(0, 31)(random);
  };
  int described = 0;
  for (int round = 0; round < 20'000; ++round) {
    for (std::size_t offset = 0; offset < 40; ++offset) {
      segment.put(offset, static_cast<std::uint8_t>(random()));
    }
    segment.put(20, anySize());
    segment.put(24, anySize());
    VideoFrame frame;
    ASSERT_TRUE(reader->getVideoFrame(frame, kNoFrame));
    if (!frame.noUpdate) {
      ++described;
      const auto* begin = reinterpret_cast<const std::uint8_t*>(frame.frameId);
      const VideoPlane* planes[] = {&frame.yPlane, &frame.uPlane, &frame.vPlane};
      for (const VideoPlane* plane : planes) {
        ASSERT_GE(plane->data, begin);
        ASSERT_LE(static_cast<std::size_t>(plane->data - begin) + plane->size, kPixels);
        ASSERT_EQ(std::uint64_t{plane->stride} * plane->height, plane->size);
      }
    }
    ASSERT_TRUE(reader->releaseVideoFrame());
  }
  EXPECT_GT(described, 1000) << "too few pictures that fit to say anything";
}

TEST_F(SharedMemoryVideoFrameSourceTest, AnEngineFrameThatMisstatesItsSizeIsNoUpdateForReaders) {
  const SourcePtr writer = createWriter();
  const SourcePtr reader = openReader();
  const auto frame = picture(8, 8);
  frame->width = kLargest;
  frame->height = kLargest;
  EXPECT_TRUE(writer->storeVideoFrame(frame, 1));
  VideoFrame read;
  ASSERT_TRUE(reader->getVideoFrame(read, kNoFrame));
  EXPECT_TRUE(read.noUpdate);
}

TEST_F(SharedMemoryVideoFrameSourceTest, CallsNoMethodOfTheFrameWhileTheSegmentIsLocked) {
  const SourcePtr writer = createWriter();
  const auto frame = picture(8, 8);
  int countWhileAsked = -1;
  frame->whileAsked = [&] { countWhileAsked = semaphoreCount(names_.sem()); };
  EXPECT_TRUE(writer->storeVideoFrame(frame, 1));
  EXPECT_EQ(countWhileAsked, 1);
}

// A page of pixels that cannot be read until somebody has tried to, and what a frame segment's
// header said at that moment.
class WatchedPage {
 public:
  explicit WatchedPage(const RawObject& segment) : segment_(segment) {
    bytes_ = static_cast<std::uint8_t*>(
        mmap(nullptr, kSize, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    EXPECT_NE(static_cast<void*>(bytes_), MAP_FAILED);
    watched = this;
    struct sigaction action = {};
    action.sa_handler = [](int) { watched->open(); };
    sigaction(SIGSEGV, &action, &former_);
  }
  ~WatchedPage() {
    sigaction(SIGSEGV, &former_, nullptr);
    munmap(bytes_, kSize);
  }
  WatchedPage(const WatchedPage&) = delete;
  WatchedPage& operator=(const WatchedPage&) = delete;

  static constexpr std::size_t kSize = 4096;

  const std::uint8_t* bytes() const { return bytes_; }
  std::optional<std::uint32_t> widthWhenRead() const { return width_; }
  std::optional<std::uint32_t> valueWhenRead() const { return value_; }

 private:
  void open() {
    width_ = segment_.at<std::uint32_t>(20);
    value_ = segment_.at<std::uint32_t>(36);
    mprotect(bytes_, kSize, PROT_READ);
  }

  static inline WatchedPage* watched = nullptr;

  const RawObject& segment_;
  std::uint8_t* bytes_ = nullptr;
  struct sigaction former_ = {};
  std::optional<std::uint32_t> width_;
  std::optional<std::uint32_t> value_;
};

TEST_F(SharedMemoryVideoFrameSourceTest, WritesTheValuesThenThePixelsThenTheSize) {
  const SourcePtr writer = createWriter();
  EXPECT_TRUE(writer->storeVideoFrame(picture(8, 8), 1));
  const RawObject segment = rawSegment();
  const WatchedPage pixels(segment);
  FakeVideoFrame frame;
  frame.width = 64;
  frame.height = 32;
  frame.valueC = 77;
  frame.buffer = pixels.bytes();
  frame.bufferSize = WatchedPage::kSize;
  EXPECT_TRUE(writer->storeVideoFrame(std::make_shared<FakeVideoFrame>(frame), 1));
  EXPECT_EQ(pixels.valueWhenRead(), 77);
  EXPECT_EQ(pixels.widthWhenRead(), 8) << "the former picture's";
  EXPECT_EQ(segment.at<std::uint32_t>(20), 64);
}

}  // namespace
