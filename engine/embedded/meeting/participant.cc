#include "engine/embedded/meeting/participant.h"

#include <string>
#include <utility>

#include "engine/embedded/random.h"
#include "engine/embedded/streams/identity.h"
#include "engine/support/pictures/card_source.h"
#include "engine/support/pictures/clip_source.h"
#include "engine/support/streams/stream_keys.h"

namespace embedded {
namespace {

constexpr support::FrameRate kCardRate = {30, 1};

LossyLink videoLink(const MeetingPlan& plan, int number) {
  constexpr std::uint64_t kVideoLossUse = 21;
  return {plan.lossOf(number),
          chance(plan.seed, kVideoLossUse, static_cast<std::uint64_t>(number))};
}

}  // namespace

Participant::Participant(const StreamMaker& streams, support::Notifier& notifier,
                         const MeetingPlan& plan, int number,
                         std::shared_ptr<const support::Y4mClip> clip, Sender::Level level)
    : notifier_(notifier),
      plan_(plan),
      number_(number),
      clip_(std::move(clip)),
      loudness_(std::move(level)),
      stream_(streams.make(support::remoteStream(number),
                           csrcOf(plan.seed, support::remoteStream(number)),
                           videoLink(plan, number), [this] { return this->level(); })) {}

void Participant::join(const support::Reception& reception) {
  reception_ = reception;
  stream_->addToTable();
  stream_->notifyAdded();
  update();
}

void Participant::leave() {
  stream_->removeFromTable();
  stream_->notifyRemoved();
}

void Participant::receive(const support::Reception& reception) {
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
    notifier_.notify(&INotifyCallback::NotifyRtpMediaState, type, !isCut);
  }
}

support::Person Participant::person() const {
  const auto given = plan_.names.find(number_);
  return {.stream = support::remoteStream(number_),
          .csrc = csrc(),
          .guid = guidOf(plan_.seed, number_),
          .name = given == plan_.names.end() ? usualNameOf(plan_.seed, number_) : given->second,
          .audioMuted = isAudioMuted_,
          .videoMuted = isVideoMuted_,
          .speaking = level() > 0};
}

std::uint32_t Participant::level() const { return isAudioMuted_ || isCut_ ? 0 : loudness_(); }

std::optional<Participant::Format> Participant::wantedFormat() const {
  if (!reception_.isWanted || isVideoMuted_ || isCut_) return std::nullopt;
  const support::Size size = clip_ ? support::shapedSize(clip_->size(), reception_)
                                   : support::cardSize(plan_.size, reception_);
  return Format{size, reception_.mostPerSecond};
}

bool Participant::update() {
  const auto format = wantedFormat();
  if (format == format_) return false;
  const bool wasSending = std::exchange(format_, format).has_value();
  if (!format) {
    stream_->sender().stop();
  } else if (wasSending) {
    stream_->sender().change(camera(format->size), format->mostPerSecond);
  } else {
    const support::FrameRate ownRate = clip_ ? clip_->rate() : kCardRate;
    stream_->sender().start(camera(format->size), plan_.rate.value_or(ownRate),
                            format->mostPerSecond);
  }
  return true;
}

void Participant::updateAndNotify() {
  if (!update()) return;
  stream_->notifyUpdated();
}

std::unique_ptr<support::PictureSource> Participant::camera(support::Size size) const {
  if (clip_) return std::make_unique<support::ClipSource>(clip_, plan_.isClipLooped, size);
  const StreamKey key = support::remoteStream(number_);
  const support::CardSubject subject = {key, 0, "REMOTE " + std::to_string(number_),
                                        hueOf(plan_.seed, key)};
  return std::make_unique<support::CardSource>(subject, size);
}

}  // namespace embedded
