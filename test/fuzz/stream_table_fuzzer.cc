// A widget reads a main segment whose table has arbitrary bytes, and the frame segments named in
// it: it must not crash or hang, and a stream must be readable again once its entry is valid.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "addon/sharedmem/shared_memory_layout.h"
#include "addon/sharedmem/shared_memory_manager.h"
#include "test/fuzz/raw_segment.h"

using sharedmem::kFrameSegmentSize;
using sharedmem::kMainSegmentSize;
using sharedmem::kRemoteStreams;
using sharedmem::kStreamEntries;
using sharedmem::SharedMemoryManager;
using sharedmem::SharedStreamEntry;

namespace {

// Any kind of stream, also unknown ones, with any index of the table and one beyond at each end.
StreamKey keyOf(std::uint8_t byte) {
  constexpr int kIndexes = kRemoteStreams + 2;
  return {static_cast<TSLM_STREAM_INDEX>(byte / kIndexes), byte % kIndexes - 1};
}

// The number of the stream's entry in the table; none for a stream that has no place there.
std::optional<std::size_t> entryOf(const StreamKey& key) {
  if (key.first == TSLM_STREAM_LOCAL) return 0;
  if (key.first == TSLM_STREAM_CONTENT) return 1;
  if (key.first != TSLM_STREAM_REMOTE || key.second < 0 || key.second > 49) return std::nullopt;
  return 2 + static_cast<std::size_t>(key.second);
}

struct Fixture {
  Fixture() { fuzz::require(widget != nullptr); }

  // With room for one entry more than the table has.
  fuzz::RawSegment main{"main", kMainSegmentSize + sizeof(SharedStreamEntry)};
  fuzz::RawSegment whole{"whole", kFrameSegmentSize};
  fuzz::RawSegment tooShort{"short", kFrameSegmentSize - 1};
  std::shared_ptr<SharedMemoryManager> widget =
      SharedMemoryManager::CreateSharedMemoryManagerWithKey(
          {.shmName = main.info().shmName, .semName = main.info().semName});

  SharedStreamEntry& entry(std::size_t number) {
    return reinterpret_cast<SharedStreamEntry*>(main.bytes())[number];
  }

  void put(std::size_t number, const std::uint8_t* data, std::size_t size) {
    main.put(number * sizeof(SharedStreamEntry), data, size, sizeof(SharedStreamEntry));
  }

  void list(std::size_t number, const fuzz::RawSegment& segment) {
    SharedStreamEntry& listed = entry(number);
    listed.valid = 1;
    const std::string& shm = segment.info().shmName;
    const std::string& sem = segment.info().semName;
    listed.shmName[shm.copy(listed.shmName, sizeof(listed.shmName) - 1)] = '\0';
    listed.semName[sem.copy(listed.semName, sizeof(listed.semName) - 1)] = '\0';
  }

  // Reads the stream as a proxy does for each frame.
  bool read(const StreamKey& key) {
    const auto source = widget->getVideoFrameSource(key);
    if (!source) return false;
    VideoFrame frame;
    fuzz::require(source->getVideoFrame(frame, 0));
    fuzz::require(source->releaseVideoFrame());
    return true;
  }

  void tryStreamInTable(const StreamKey& key, std::size_t number, std::uint8_t action,
                        const std::uint8_t* data, std::size_t size) {
    put(number, data, size);
    switch (action % 4) {
      case 0:
        break;
      case 1:
        list(number, tooShort);
        fuzz::require(!read(key));
        break;
      case 2:
        list(number, whole);
        entry(number).valid = size > 0 ? data[0] : 0;
        break;
      case 3:
        // The entry changes between two reads of the table.
        list(number, whole);
        fuzz::require(read(key));
        put(number, data, size);
        break;
    }
    read(key);

    widget->removeVideoFrameSource(key);
    whole.makeNamesAgain();
    tooShort.makeNamesAgain();
    list(number, whole);
    fuzz::require(read(key));
    widget->removeVideoFrameSource(key);
    whole.makeNamesAgain();
  }

  // It must not be found in another stream's entry, nor in one beyond the table.
  void tryStreamOutsideTable(const StreamKey& key) {
    for (std::size_t number = 0; number <= kStreamEntries; ++number) list(number, whole);
    fuzz::require(!read(key));
    fuzz::require(!read(key));
    widget->removeVideoFrameSource(key);
  }
};

}  // namespace

// The first byte selects the change of the stream's entry after the rest of the input was written
// over it, and the second one selects the stream.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Fixture fixture;
  if (size < 2) return 0;
  const StreamKey key = keyOf(data[1]);
  if (const auto number = entryOf(key)) {
    fixture.tryStreamInTable(key, *number, data[0], data + 2, size - 2);
  } else {
    fixture.tryStreamOutsideTable(key);
  }
  return 0;
}
