#include "engine/support/streams/video_stream.h"

#include <utility>

namespace support {
namespace {

VideoPlane plane(const std::uint8_t* data, Size size) {
  return {data, size.width, size.height, static_cast<std::uint32_t>(pixels(size)), size.width};
}

void fill(VideoFrame& target, const std::shared_ptr<Frame>& frame) {
  const Size size = frame->size();
  const Size chroma = chromaSize(size);
  const std::uint8_t* const y = frame->frameBuffer();
  const std::uint8_t* const u = y + pixels(size);
  target.frameId = frame->id;
  target.frame = frame;
  target.width = size.width;
  target.height = size.height;
  target.engineValue = static_cast<std::uint64_t>(frame->capturedAt.count());
  target.yPlane = plane(y, size);
  target.uPlane = plane(u, chroma);
  target.vPlane = plane(u + pixels(chroma), chroma);
}

}  // namespace

VideoStream::VideoStream(const StreamKey& key, std::uint32_t csrc, std::shared_ptr<const Log> log)
    : key_(key), csrc_(csrc), delivery_(std::make_shared<FrameDelivery>(key, std::move(log))) {}

bool VideoStream::isCapturing() const {
  base::MutexLock lock(mutex_);
  return capturing_;
}

void VideoStream::publish(const std::shared_ptr<Frame>& frame) {
  std::shared_ptr<Frame> replaced = frame;
  base::MutexLock lock(mutex_);
  if (!capturing_ || ended_) return;
  newest_.swap(replaced);
  showsNothing_ = false;
  delivery_->offer(frame, csrc_);
}

void VideoStream::clear() {
  std::shared_ptr<Frame> forgotten;
  base::MutexLock lock(mutex_);
  forgotten.swap(newest_);
  showsNothing_ = true;
  delivery_->withdraw();
}

void VideoStream::end() {
  std::shared_ptr<Frame> forgotten;
  {
    base::MutexLock lock(mutex_);
    forgotten.swap(newest_);
    showsNothing_ = true;
    ended_ = true;
  }
  // Releases the receiver, whose destructor is the application's.
  delivery_->close();
}

void VideoStream::GetFrame(std::uint32_t frameId, VideoFrame& frame) {
  frame = VideoFrame();
  frame.csrc = csrc_;
  base::MutexLock lock(mutex_);
  const bool isNew = newest_ && static_cast<std::uint32_t>(newest_->id) != frameId;
  if (isNew) {
    fill(frame, newest_);
  } else {
    frame.noUpdate = true;
    frame.clearFrame = showsNothing_;
    frame.frameId = newest_ ? newest_->id : 0;
  }
}

void VideoStream::ReleaseFrame(std::int64_t) {}

void VideoStream::EnableFrameCapture() {
  base::MutexLock lock(mutex_);
  capturing_ = true;
}

void VideoStream::DisableFrameCapture() {
  {
    base::MutexLock lock(mutex_);
    capturing_ = false;
  }
  clear();
}

void VideoStream::SetFrameReceiver(std::shared_ptr<IFrameRecieveCallback> receiver) {
  delivery_->setReceiver(std::move(receiver));
}

}  // namespace support
