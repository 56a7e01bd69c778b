// What the reader makes of a frame segment whose header holds any bytes: no plane may reach beyond
// the segment, and the lock has to be given back every time.

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "sharedmem/shared_memory_layout.h"
#include "sharedmem/shared_memory_video_frame_source.h"
#include "test/fuzz/raw_segment.h"

namespace {

// Where the reader has its mapping of the segment, which is not the fuzzer's: the header of zeros
// is that of an empty picture, and its first plane lies at the start of the pixel space.
const std::uint8_t* readersPixelSpace(SharedMemoryVideoFrameSource& source) {
  VideoFrame frame;
  fuzz::require(source.getVideoFrame(frame, 1) && !frame.noUpdate);
  fuzz::require(source.releaseVideoFrame());
  return frame.yPlane.data;
}

struct Fixture {
  fuzz::RawSegment segment{"frame", kFrameSegmentSize};
  std::shared_ptr<SharedMemoryVideoFrameSource> source =
      SharedMemoryVideoFrameSource::CreateVideoFrameSource(segment.info());
  const std::uint8_t* pixels = readersPixelSpace(*source);
};

void touch(const volatile std::uint8_t* byte) { static_cast<void>(*byte); }

void requireInside(const VideoPlane& plane, const std::uint8_t* pixels) {
  fuzz::require(plane.data >= pixels && plane.size <= kPixelSpace &&
                plane.data - pixels <= static_cast<std::ptrdiff_t>(kPixelSpace - plane.size));
  fuzz::require(std::uint64_t{plane.stride} * plane.height == plane.size);
  fuzz::require(plane.stride == plane.width);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Fixture fixture;
  fixture.segment.put(0, data, size, sizeof(SharedFrameHeader));
  VideoFrame frame;
  fuzz::require(fixture.source->getVideoFrame(frame, 0));
  if (!frame.noUpdate) {
    for (const VideoPlane& plane : {frame.yPlane, frame.uPlane, frame.vPlane}) {
      requireInside(plane, fixture.pixels);
      if (plane.size > 0) {
        touch(plane.data);
        touch(plane.data + plane.size - 1);
      }
    }
  }
  fuzz::require(fixture.source->releaseVideoFrame());
  return 0;
}
