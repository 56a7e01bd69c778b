#include "engine/embedded/participant.h"

#include <string>
#include <utility>

#include "engine/embedded/identity.h"
#include "engine/embedded/random.h"
#include "engine/support/card_source.h"
#include "engine/support/clip_source.h"
#include "engine/support/stream_keys.h"

namespace embedded {
namespace {

constexpr support::FrameRate kCardRate = {30, 1};

std::shared_ptr<support::VideoStream> makeStream(const EngineParts& parts, const MeetingPlan& plan,
                                                 int number) {
  const StreamKey key = support::remoteStream(number);
  return std::make_shared<support::VideoStream>(key, csrcOf(plan.seed, key), parts.log);
}

LossyLink videoLink(const MeetingPlan& plan, int number) {
  constexpr std::uint64_t kVideoLossUse = 21;
  return {plan.lossOf(number),
          chance(plan.seed, kVideoLossUse, static_cast<std::uint64_t>(number))};
}

}  // namespace

Participant::Participant(EngineParts& parts, const MeetingPlan& plan, int number,
                         std::shared_ptr<const support::Y4mClip> clip, Sender::Level level)
    : parts_(parts),
      plan_(plan),
      number_(number),
      clip_(std::move(clip)),
      loudness_(std::move(level)),
      sender_(parts, makeStream(parts, plan, number), videoLink(plan, number),
              [this] { return this->level(); }) {}

void Participant::come(const Reception& reception) {
  reception_ = reception;
  parts_.streams.add(sender_.stream());
  parts_.notifier.notify(&INotifyCallback::NotifyStreamAdded, support::remoteStream(number_),
                         csrc());
  update();
}

void Participant::leave() {
  sender_.stop();
  parts_.streams.remove(support::remoteStream(number_));
  parts_.notifier.notify(&INotifyCallback::NotifyStreamRemoved, support::remoteStream(number_),
                         csrc());
}

void Participant::receive(const Reception& reception) {
  reception_ = reception;
  updateAndNotify();
}

void Participant::setVideoMuted(bool isMuted) {
  isVideoMuted_ = isMuted;
  updateAndNotify();
}

void Participant::setCut(bool isCut) {
  if (isCut == isCut_) return;
  isCut_ = isCut;
  updateAndNotify();
  for (const MediaType type : {MediaType::kVideo, MediaType::kAudio}) {
    parts_.notifier.notify(&INotifyCallback::NotifyRtpMediaState, type, !isCut);
  }
}

std::uint32_t Participant::level() const { return isAudioMuted_ || isCut_ ? 0 : loudness_(); }

std::optional<Participant::Format> Participant::wantedFormat() const {
  if (!reception_.isWanted || isVideoMuted_ || isCut_) return std::nullopt;
  const support::Size size =
      clip_ ? clipSize(clip_->size(), reception_) : cardSize(plan_.size, reception_);
  return Format{size, reception_.mostPerSecond};
}

bool Participant::update() {
  const auto format = wantedFormat();
  if (format == format_) return false;
  const bool wasSending = std::exchange(format_, format).has_value();
  if (!format) {
    sender_.stop();
  } else if (wasSending) {
    sender_.change(camera(format->size), format->mostPerSecond);
  } else {
    const support::FrameRate ownRate = clip_ ? clip_->rate() : kCardRate;
    sender_.start(camera(format->size), plan_.rate.value_or(ownRate), format->mostPerSecond);
  }
  return true;
}

void Participant::updateAndNotify() {
  if (!update()) return;
  parts_.notifier.notify(&INotifyCallback::NotifyStreamUpdated, support::remoteStream(number_),
                         csrc());
}

std::unique_ptr<support::PictureSource> Participant::camera(support::Size size) const {
  if (clip_) return std::make_unique<support::ClipSource>(clip_, plan_.isClipLooped, size);
  const StreamKey key = support::remoteStream(number_);
  const support::CardSubject subject = {key, 0, "REMOTE " + std::to_string(number_),
                                        hueOf(plan_.seed, key)};
  return std::make_unique<support::CardSource>(subject, size);
}

}  // namespace embedded
