#include "engine/embedded/devices/local_media.h"

#include <utility>

#include "engine/embedded/streams/identity.h"
#include "engine/support/pictures/card_source.h"
#include "engine/support/streams/stream_keys.h"

namespace embedded {
namespace {

// The local stream is there before any meeting, and so has a seed of its own.
constexpr std::uint32_t kSeed = 0;

constexpr std::int32_t kLargestSide = 3840;
constexpr std::int32_t kHighestRate = 60;

// The camera's link to the application loses nothing.
LossyLink perfectLink() { return {0, 0}; }

bool canCapture(const tsl::VideoDevice& camera) {
  return camera.width >= static_cast<std::int32_t>(support::kSmallestCard.width) &&
         camera.width <= kLargestSide &&
         camera.height >= static_cast<std::int32_t>(support::kSmallestCard.height) &&
         camera.height <= kLargestSide && camera.maxFps >= 1 && camera.maxFps <= kHighestRate;
}

}  // namespace

LocalMedia::LocalMedia(const StreamMaker& streams, support::Notifier& notifier,
                       std::shared_ptr<const support::Log> log, Sender::Level level)
    : notifier_(notifier),
      log_(std::move(log)),
      stream_(streams.make(support::kLocalStream, csrcOf(kSeed, support::kLocalStream),
                           perfectLink(), std::move(level))),
      devices_(notifier, log_) {
  stream_->addToTable();
}

void LocalMedia::setCapturing(bool isCapturing) {
  if (isCapturing == isCapturing_) return;
  isCapturing_ = isCapturing;
  if (isCapturing) {
    stream_->notifyAdded();
  }
  update();
  if (!isCapturing) {
    stream_->notifyRemoved();
  }
}

void LocalMedia::setVideoMuted(bool isMuted) {
  isVideoMuted_ = isMuted;
  updateAndNotify();
  notifier_.notify(&INotifyCallback::NotifyMediaMuteState, MediaType::kVideo, isMuted);
}

void LocalMedia::setAudioMuted(bool isMuted) {
  isAudioMuted_ = isMuted;
  notifier_.notify(&INotifyCallback::NotifyMediaMuteState, MediaType::kAudio, isMuted);
}

bool LocalMedia::hasOpenMicrophone() const {
  return !isAudioMuted_ && devices_.selected(DeviceType::kAudioIn).has_value();
}

void LocalMedia::selectCamera(const tsl::VideoDevice& camera) {
  if (!canCapture(camera)) {
    log_->write("no camera captures " + std::to_string(camera.width) + 'x' +
                std::to_string(camera.height) + " at " + std::to_string(camera.maxFps));
    return;
  }
  if (!devices_.select(DeviceType::kVideo, camera.id)) return;
  size_ = {static_cast<std::uint32_t>(camera.width), static_cast<std::uint32_t>(camera.height)};
  rate_ = static_cast<std::uint32_t>(camera.maxFps);
  updateAndNotify();
}

void LocalMedia::setPlugged(const std::string& id, bool isPlugged) {
  devices_.setPlugged(id, isPlugged);
  updateAndNotify();
}

void LocalMedia::restoreDevices() {
  devices_.restore();
  updateAndNotify();
}

std::optional<LocalMedia::Capture> LocalMedia::wantedCapture() const {
  const auto camera = devices_.selected(DeviceType::kVideo);
  if (!isCapturing_ || isVideoMuted_ || !camera) return std::nullopt;
  return Capture{*camera, size_, rate_};
}

bool LocalMedia::update() {
  const auto capture = wantedCapture();
  if (capture == capture_) return false;
  capture_ = capture;
  if (!capture) {
    stream_->sender().stop();
    return true;
  }
  const auto number = static_cast<std::uint32_t>(capture->camera);
  // Another camera has another colour.
  const double hue = hueOf(kSeed, support::kLocalStream) + number / 4.0;
  const support::CardSubject subject = {support::kLocalStream, number,
                                        "CAMERA " + std::to_string(number), hue};
  stream_->sender().start(std::make_unique<support::CardSource>(subject, capture->size),
                          {capture->rate, 1}, 0);
  return true;
}

void LocalMedia::updateAndNotify() {
  if (update() && isCapturing_) {
    stream_->notifyUpdated();
  }
}

}  // namespace embedded
