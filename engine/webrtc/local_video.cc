#include "engine/webrtc/local_video.h"

#include <chrono>
#include <exception>
#include <tuple>
#include <utility>

#include "engine/support/pictures/card_source.h"
#include "engine/support/pictures/clip_source.h"
#include "engine/support/streams/stream_keys.h"

namespace webrtc {
namespace {

using support::kLocalStream;

constexpr std::int32_t kLargestSide = 3840;
constexpr std::int32_t kHighestRate = 60;
// Cameras pause for less while they adapt to the light.
constexpr support::Time kLongestPause = std::chrono::seconds(3);

std::uint32_t randomSsrc() {
  // 0 stands for none.
  return g_random_int() | 1;
}

bool isPossible(const tsl::VideoDevice& camera) {
  return camera.width >= static_cast<std::int32_t>(support::kSmallestCard.width) &&
         camera.width <= kLargestSide &&
         camera.height >= static_cast<std::int32_t>(support::kSmallestCard.height) &&
         camera.height <= kLargestSide && camera.maxFps >= 1 && camera.maxFps <= kHighestRate;
}

}  // namespace

LocalVideo::LocalVideo(support::EngineContext& context, Devices& devices,
                       std::shared_ptr<support::FramePool> pool, std::function<void()> changed)
    : context_(context),
      devices_(devices),
      pool_(std::move(pool)),
      stream_(std::make_shared<support::VideoStream>(kLocalStream, randomSsrc(), context.log)),
      changed_(std::move(changed)),
      watch_(context.loop) {
  context_.streams.add(stream_);
}

void LocalVideo::setCapturing(bool isCapturing) {
  if (isCapturing == isCapturing_) return;
  isCapturing_ = isCapturing;
  if (isCapturing) {
    context_.notifier.notify(&INotifyCallback::NotifyStreamAdded, kLocalStream, csrc());
  }
  update();
  if (!isCapturing) {
    context_.notifier.notify(&INotifyCallback::NotifyStreamRemoved, kLocalStream, csrc());
  }
}

void LocalVideo::setMuted(bool isMuted) {
  isMuted_ = isMuted;
  updateAndNotify();
}

void LocalVideo::select(const tsl::VideoDevice& camera) {
  if (!isPossible(camera)) {
    context_.log->write("no camera captures " + std::to_string(camera.width) + 'x' +
                        std::to_string(camera.height) + " at " + std::to_string(camera.maxFps));
    return;
  }
  const auto before = std::pair(size_, rate_);
  size_ = {static_cast<std::uint32_t>(camera.width), static_cast<std::uint32_t>(camera.height)};
  rate_ = {static_cast<std::uint32_t>(camera.maxFps), 1};
  // Another device is opened in this size at once.
  if (!devices_.select(DeviceType::kVideo, camera.id)) std::tie(size_, rate_) = before;
  updateAndNotify();
}

void LocalVideo::deviceChanged() { updateAndNotify(); }

void LocalVideo::setSource(const CameraSource& source) {
  if (source == source_) return;
  source_ = source;
  updateAndNotify();
}

void LocalVideo::setSender(std::shared_ptr<VideoSender> sender) {
  base::MutexLock lock(mutex_);
  sender_.swap(sender);
}

std::optional<LocalVideo::Capture> LocalVideo::wantedCapture() const {
  if (!isCapturing_ || isMuted_) return std::nullopt;
  Capture wanted = {.source = source_, .deviceId = {}, .size = size_, .rate = rate_};
  if (source_.kind == CameraSource::Kind::kDevice) {
    const Device* const device = devices_.used(DeviceType::kVideo);
    if (!device) return std::nullopt;
    wanted.deviceId = device->id;
  }
  return wanted;
}

bool LocalVideo::update() {
  auto wanted = wantedCapture();
  if (wanted == capture_) return false;
  capture_ = std::move(wanted);
  camera_.reset();
  watch_.stop();
  if (capture_) open();
  if (!camera_) stream_->clear();
  changed_();
  return true;
}

void LocalVideo::updateAndNotify() {
  if (update() && isCapturing_) {
    context_.notifier.notify(&INotifyCallback::NotifyStreamUpdated, kLocalStream, csrc());
  }
}

void LocalVideo::open() {
  camera_.reset();
  {
    base::MutexLock lock(mutex_);
    shownAt_.reset();
  }
  try {
    camera_ = openCamera();
  } catch (const std::exception& error) {
    context_.log->write(std::string("the camera cannot be opened: ") + error.what());
  }
  if (capture_->source.kind == CameraSource::Kind::kDevice) watch();
}

void LocalVideo::watch() {
  const support::Time now = context_.loop.now();
  support::Time waitsSince = now;
  {
    base::MutexLock lock(mutex_);
    waitsSince = shownAt_.value_or(now);
  }
  if (now - waitsSince < kLongestPause) {
    watch_.runAt(waitsSince + kLongestPause, [this] { watch(); });
    return;
  }
  context_.log->write(capture_->deviceId + " shows nothing any more: it is opened again");
  open();
  if (camera_) return;
  stream_->clear();
  changed_();
}

std::unique_ptr<Camera> LocalVideo::openCamera() {
  const auto viewer = [this](const std::shared_ptr<support::Frame>& frame) { show(frame); };
  std::unique_ptr<support::PictureSource> source;
  support::FrameRate rate = rate_;
  switch (source_.kind) {
    case CameraSource::Kind::kDevice: {
      const Device* const device = devices_.used(DeviceType::kVideo);
      return std::make_unique<DeviceCamera>(
          context_.loop, *device, size_, rate, pool_, viewer,
          [this](const std::string& reason) { devices_.fail(DeviceType::kVideo, reason); });
    }
    case CameraSource::Kind::kCard: {
      const support::CardSubject subject = {kLocalStream, source_.detail,
                                            "CARD " + std::to_string(source_.detail),
                                            source_.detail / 7.0};
      source = std::make_unique<support::CardSource>(subject, size_);
      break;
    }
    case CameraSource::Kind::kClip: {
      rate = source_.clip->rate();
      source = std::make_unique<support::ClipSource>(source_.clip, true, source_.clip->size());
      break;
    }
  }
  return std::make_unique<DrawnCamera>(std::move(source), lastId() + 1, rate, support::realClock(),
                                       pool_, context_.log, viewer);
}

std::uint64_t LocalVideo::lastId() {
  base::MutexLock lock(mutex_);
  return lastId_;
}

void LocalVideo::show(const std::shared_ptr<support::Frame>& frame) {
  std::shared_ptr<VideoSender> sender;
  {
    base::MutexLock lock(mutex_);
    frame->id = ++lastId_;
    shownAt_ = context_.loop.now();
    sender = sender_;
  }
  frame->csrc = csrc();
  stream_->publish(frame);
  if (sender) sender->send(frame);
}

}  // namespace webrtc
