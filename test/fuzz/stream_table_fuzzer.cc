// What a widget makes of a main segment whose table holds any bytes, and of the frame segments that
// it then names: nothing may crash, hang, or keep a stream from being read once its entry is right.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "sharedmem/shared_memory_layout.h"
#include "sharedmem/shared_memory_manager.h"
#include "test/fuzz/raw_segment.h"

namespace {

const StreamKey kStream(TSLM_STREAM_REMOTE, 0);
constexpr std::size_t kEntry = kFirstRemoteStreamEntry * sizeof(SharedStreamEntry);

struct Fixture {
  Fixture() { fuzz::require(widget != nullptr); }

  fuzz::RawSegment main{"main", kMainSegmentSize};
  fuzz::RawSegment whole{"whole", kFrameSegmentSize};
  fuzz::RawSegment tooShort{"short", kFrameSegmentSize - 1};
  std::shared_ptr<SharedMemoryManager> widget =
      SharedMemoryManager::CreateSharedMemoryManagerWithKey(
          {.shmName = main.info().shmName, .semName = main.info().semName});

  SharedStreamEntry& entry() {
    return *reinterpret_cast<SharedStreamEntry*>(main.bytes() + kEntry);
  }

  void list(const fuzz::RawSegment& segment) {
    entry().valid = 1;
    const std::string& shm = segment.info().shmName;
    const std::string& sem = segment.info().semName;
    entry().shmName[shm.copy(entry().shmName, sizeof(entry().shmName) - 1)] = '\0';
    entry().semName[sem.copy(entry().semName, sizeof(entry().semName) - 1)] = '\0';
  }

  // Reads the stream as a proxy does for each frame.
  bool read() {
    const auto source = widget->getVideoFrameSource(kStream);
    if (!source) return false;
    VideoFrame frame;
    fuzz::require(source->getVideoFrame(frame, 0));
    fuzz::require(source->releaseVideoFrame());
    return true;
  }
};

}  // namespace

// The first byte says what becomes of the entry after the rest of the input was written over it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Fixture fixture;
  if (size == 0) return 0;
  fixture.main.put(kEntry, data + 1, size - 1, sizeof(SharedStreamEntry));
  switch (data[0] % 4) {
    case 0:
      break;
    case 1:
      fixture.list(fixture.tooShort);
      break;
    case 2:
      fixture.list(fixture.whole);
      fixture.entry().valid = size > 1 ? data[1] : 0;
      break;
    case 3:
      // Between two looks at the table the entry changes.
      fixture.list(fixture.whole);
      fixture.read();
      fixture.main.put(kEntry, data + 1, size - 1, sizeof(SharedStreamEntry));
      break;
  }
  fixture.read();

  fixture.widget->removeVideoFrameSource(kStream);
  fixture.whole.makeNamesAgain();
  fixture.tooShort.makeNamesAgain();
  fixture.list(fixture.whole);
  fuzz::require(fixture.read());
  fixture.widget->removeVideoFrameSource(kStream);
  fixture.whole.makeNamesAgain();
  return 0;
}
