// A frame segment as a hostile process writes it, and the reader that looks at it.

#ifndef TEST_FUZZ_FRAME_READER_H_
#define TEST_FUZZ_FRAME_READER_H_

#include <cstddef>
#include <cstdint>
#include <memory>

#include "addon/sharedmem/shared_memory_layout.h"
#include "addon/sharedmem/shared_memory_video_frame_source.h"
#include "test/fuzz/raw_segment.h"

namespace fuzz {

// Owned and called by the fuzzer's thread; another may write into the header meanwhile.
class FrameReader {
 public:
  RawSegment& segment() { return segment_; }

  // Reads as a proxy does. What is handed out must lie inside the segment and agree with itself,
  // and the lock has to be given back.
  void read() {
    VideoFrame frame;
    require(source_->getVideoFrame(frame, kNoFrame));
    if (!frame.noUpdate) {
      require(frame.yPlane.width == frame.width && frame.yPlane.height == frame.height);
      for (const VideoPlane& plane : {frame.yPlane, frame.uPlane, frame.vPlane}) {
        requireInside(plane);
        if (plane.size > 0) {
          touch(plane.data);
          touch(plane.data + plane.size - 1);
        }
      }
    }
    require(source_->releaseVideoFrame());
  }

 private:
  // The number of no frame that an input is likely to name.
  static constexpr unsigned long kNoFrame = 0x7e55e1;

  static void touch(const volatile std::uint8_t* byte) { static_cast<void>(*byte); }

  void requireInside(const VideoPlane& plane) const {
    require(plane.data >= pixels_ && plane.size <= sharedmem::kPixelSpace &&
            plane.data - pixels_ <=
                static_cast<std::ptrdiff_t>(sharedmem::kPixelSpace - plane.size));
    require(std::uint64_t{plane.stride} * plane.height == plane.size);
    require(plane.stride == plane.width);
  }

  // Where the reader has its mapping of the segment, which is not the fuzzer's: the header of zeros
  // is that of an empty picture, and its first plane lies at the start of the pixel space.
  static const std::uint8_t* readersPixelSpace(sharedmem::SharedMemoryVideoFrameSource& source) {
    VideoFrame frame;
    require(source.getVideoFrame(frame, kNoFrame) && !frame.noUpdate);
    require(source.releaseVideoFrame());
    return frame.yPlane.data;
  }

  RawSegment segment_{"frame", sharedmem::kFrameSegmentSize};
  const std::shared_ptr<sharedmem::SharedMemoryVideoFrameSource> source_ =
      sharedmem::SharedMemoryVideoFrameSource::CreateVideoFrameSource(segment_.info());
  const std::uint8_t* const pixels_ = readersPixelSpace(*source_);
};

}  // namespace fuzz

#endif  // TEST_FUZZ_FRAME_READER_H_
