// One stream's frames in shared memory.

#ifndef ADDON_SHAREDMEM_SHARED_MEMORY_VIDEO_FRAME_SOURCE_H_
#define ADDON_SHAREDMEM_SHARED_MEMORY_VIDEO_FRAME_SOURCE_H_

#include <cstdint>
#include <memory>

#include "addon/sharedmem/shared_memory_allocator.h"
#include "addon/sharedmem/shared_memory_info.h"
#include "tesselclient/video_frame.h"

namespace sharedmem {

// One stream's frame segment: a slot for a single frame, which a newer frame overwrites. The main
// process creates it and writes every arriving frame into it; the widget process opens it and reads
// the frame in place, holding the segment's lock meanwhile.
//
// Held through shared ownership, so that a thread that works with a source keeps it alive while its
// stream is being removed. Used from one thread at a time: the writer's engine frame thread, the
// reader's JavaScript thread. Nothing throws.
class SharedMemoryVideoFrameSource {
 public:
  // Empty when the segment cannot be created or opened.
  static std::shared_ptr<SharedMemoryVideoFrameSource> CreateVideoFrameSource(
      const SharedMemoryInfo& info);

  // Check initialised() before use; CreateVideoFrameSource does.
  explicit SharedMemoryVideoFrameSource(const SharedMemoryInfo& info);
  ~SharedMemoryVideoFrameSource();
  SharedMemoryVideoFrameSource(const SharedMemoryVideoFrameSource&) = delete;
  SharedMemoryVideoFrameSource& operator=(const SharedMemoryVideoFrameSource&) = delete;

  bool initialised() const { return allocator_->initialised(); }

  // Writer: copies the frame into the slot. An empty frame leaves the picture as it is and counts
  // as a new one. Returns whether the frame is there for readers: not when the lock stays taken for
  // 5 seconds, nor when the frame's buffer is null or larger than the slot.
  bool storeVideoFrame(const std::shared_ptr<QVXCommon::IVideoFrame>& videoFrame,
                       unsigned int csrc);

  // Reader: describes the slot's frame in `frame`, or sets noUpdate when its sequence number is
  // `lastFrameId`, or when what the segment says cannot be a frame. The planes point into the
  // segment, and frameId is the address of the first; they hold until releaseVideoFrame().
  //
  // Returns whether the segment is now locked, which is then up to the caller to end, also after
  // noUpdate. If it could not be locked within 5 seconds, `frame` is left as it was.
  bool getVideoFrame(VideoFrame& frame, unsigned long lastFrameId);

  // Reader: unlocks the segment.
  bool releaseVideoFrame();

 private:
  void makeAvailable();

  const std::unique_ptr<SharedMemoryAllocator> allocator_;
  std::uint64_t nextSequence_ = 0;
};

}  // namespace sharedmem

#endif  // ADDON_SHAREDMEM_SHARED_MEMORY_VIDEO_FRAME_SOURCE_H_
