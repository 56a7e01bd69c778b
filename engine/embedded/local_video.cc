#include "engine/embedded/local_video.h"

#include <utility>

#include "engine/embedded/card_source.h"
#include "engine/embedded/identity.h"

namespace embedded {
namespace {

// The local stream is there before any meeting, and so has a seed of its own.
constexpr std::uint32_t kSeed = 0;
constexpr Size kCameraSize = {1280, 720};
constexpr FrameRate kCameraRate = {30, 1};

}  // namespace

LocalVideo::LocalVideo(EngineParts& parts, Sender::Level level)
    : parts_(parts),
      stream_(std::make_shared<VideoStream>(kLocalStream, csrcOf(kSeed, kLocalStream), parts.log)),
      sender_(parts, stream_, std::move(level)) {
  parts_.streams.add(stream_);
}

void LocalVideo::setCapturing(bool capturing) {
  if (capturing == capturing_) return;
  capturing_ = capturing;
  if (capturing) {
    parts_.notifier.notify(&INotifyCallback::NotifyStreamAdded, kLocalStream, stream_->csrc());
  }
  startOrStop();
  if (!capturing) {
    parts_.notifier.notify(&INotifyCallback::NotifyStreamRemoved, kLocalStream, stream_->csrc());
  }
}

void LocalVideo::setMuted(bool muted) {
  if (muted == muted_) return;
  muted_ = muted;
  if (!capturing_) return;
  startOrStop();
  parts_.notifier.notify(&INotifyCallback::NotifyStreamUpdated, kLocalStream, stream_->csrc());
}

void LocalVideo::startOrStop() {
  if (!capturing_ || muted_) {
    sender_.stop();
    return;
  }
  const CardSubject subject = {kLocalStream, 0, "CAMERA", hueOf(kSeed, kLocalStream)};
  sender_.start(std::make_unique<CardSource>(subject, kCameraSize), kCameraRate);
}

}  // namespace embedded
