#include "engine/embedded/local_media.h"

#include <utility>

#include "engine/embedded/identity.h"
#include "engine/support/card_source.h"
#include "engine/support/stream_keys.h"

namespace embedded {
namespace {

// The local stream is there before any meeting, and so has a seed of its own.
constexpr std::uint32_t kSeed = 0;

constexpr std::int32_t kLargestSide = 3840;
constexpr std::int32_t kHighestRate = 60;

// The camera's link to the application loses nothing.
LossyLink perfectLink() { return {0, 0}; }

bool canFilm(const tsl::VideoDevice& camera) {
  return camera.width >= static_cast<std::int32_t>(support::kSmallestCard.width) &&
         camera.width <= kLargestSide &&
         camera.height >= static_cast<std::int32_t>(support::kSmallestCard.height) &&
         camera.height <= kLargestSide && camera.maxFps >= 1 && camera.maxFps <= kHighestRate;
}

}  // namespace

LocalMedia::LocalMedia(EngineParts& parts, Sender::Level level)
    : parts_(parts),
      stream_(std::make_shared<support::VideoStream>(
          support::kLocalStream, csrcOf(kSeed, support::kLocalStream), parts.log)),
      sender_(parts, stream_, perfectLink(), std::move(level)),
      devices_(parts) {
  parts_.streams.add(stream_);
}

void LocalMedia::setCapturing(bool isCapturing) {
  if (isCapturing == isCapturing_) return;
  isCapturing_ = isCapturing;
  if (isCapturing) {
    parts_.notifier.notify(&INotifyCallback::NotifyStreamAdded, support::kLocalStream, csrc());
  }
  update();
  if (!isCapturing) {
    parts_.notifier.notify(&INotifyCallback::NotifyStreamRemoved, support::kLocalStream, csrc());
  }
}

void LocalMedia::setVideoMuted(bool isMuted) {
  isVideoMuted_ = isMuted;
  updateAndNotify();
  parts_.notifier.notify(&INotifyCallback::NotifyMediaMuteState, MediaType::kVideo, isMuted);
}

void LocalMedia::setAudioMuted(bool isMuted) {
  isAudioMuted_ = isMuted;
  parts_.notifier.notify(&INotifyCallback::NotifyMediaMuteState, MediaType::kAudio, isMuted);
}

bool LocalMedia::hears() const {
  return !isAudioMuted_ && devices_.selected(DeviceType::kAudioIn).has_value();
}

void LocalMedia::selectCamera(const tsl::VideoDevice& camera) {
  if (!canFilm(camera)) {
    parts_.log->write("no camera films " + std::to_string(camera.width) + 'x' +
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

std::optional<LocalMedia::Film> LocalMedia::wantedFilm() const {
  const auto camera = devices_.selected(DeviceType::kVideo);
  if (!isCapturing_ || isVideoMuted_ || !camera) return std::nullopt;
  return Film{*camera, size_, rate_};
}

bool LocalMedia::update() {
  const auto film = wantedFilm();
  if (film == film_) return false;
  film_ = film;
  if (!film) {
    sender_.stop();
    return true;
  }
  const auto number = static_cast<std::uint32_t>(film->camera);
  // Another camera has another colour.
  const double hue = hueOf(kSeed, support::kLocalStream) + number / 4.0;
  const support::CardSubject subject = {support::kLocalStream, number,
                                        "CAMERA " + std::to_string(number), hue};
  sender_.start(std::make_unique<support::CardSource>(subject, film->size), {film->rate, 1}, 0);
  return true;
}

void LocalMedia::updateAndNotify() {
  if (update() && isCapturing_) {
    parts_.notifier.notify(&INotifyCallback::NotifyStreamUpdated, support::kLocalStream, csrc());
  }
}

}  // namespace embedded
