#include "engine/embedded/meeting.h"

#include <utility>

#include "engine/embedded/card_source.h"
#include "engine/embedded/clip_source.h"
#include "engine/embedded/identity.h"

namespace embedded {
namespace {

using namespace std::chrono_literals;

constexpr Time kLevelPeriod = 200ms;
constexpr FrameRate kCardRate = {30, 1};

}  // namespace

Meeting::Meeting(EngineParts& parts, int callId, MeetingPlan plan,
                 std::shared_ptr<const Y4mClip> clip, const tsl::ConnectParams& params)
    : parts_(parts),
      callId_(callId),
      plan_(std::move(plan)),
      clip_(std::move(clip)),
      speech_(plan_.seed, plan_.participants, plan_.speech),
      params_(params),
      localAudioMuted_(params.mediaStreamState.outgoingAudioMuted),
      stateTimer_(parts.loop),
      eventTimer_(parts.loop),
      levelTimer_(parts.loop) {}

void Meeting::join() {
  state_ = State::kJoining;
  joinedAt_ = parts_.loop.now() + plan_.joinDelay;
  stateTimer_.runAt(joinedAt_, [this] { enter(); });
}

void Meeting::leave() {
  if (!isOver()) end(kLeft, "the call was left");
}

std::uint32_t Meeting::localLevel() const {
  return state_ == State::kJoined && !localAudioMuted_ ? speech_.level(kMyself, sinceJoin()) : 0;
}

void Meeting::enter() {
  if (plan_.refusal) {
    end(*plan_.refusal, "the meeting refused the join");
    return;
  }
  state_ = State::kJoined;
  parts_.log->write("joined " + plan_.room);
  parts_.notifier.notify(&INotifyCallback::NotifyCallConnectionStatus, true);
  for (const auto& [event, isEnabled] : params_.gracefulEvents) {
    if (isEnabled) parts_.notifier.notify(&INotifyCallback::NotifyGracefulEvent, event, true);
  }
  for (int number = 0; number < plan_.participants; ++number) addParticipant(number);
  nextLevelAt_ = joinedAt_;
  setLevelTimer();
  setEventTimer();
  if (plan_.dropAfter) {
    stateTimer_.runAt(joinedAt_ + *plan_.dropAfter,
                      [this] { end(kDropped, "the call was dropped"); });
  }
}

void Meeting::end(int code, const std::string& reason) {
  stateTimer_.stop();
  eventTimer_.stop();
  levelTimer_.stop();
  while (!participants_.empty()) removeParticipant(participants_.begin()->first);
  state_ = State::kOver;
  parts_.log->write("call " + std::to_string(callId_) + " ended: " + reason);
  parts_.notifier.notify(&INotifyCallback::NotifyCallConnectionStatus, false);
  parts_.notifier.notify(&INotifyCallback::NotifyCallDisconnect, callId_, reason, code);
}

void Meeting::setEventTimer() {
  if (nextEvent_ == plan_.events.size()) return;
  eventTimer_.runAt(joinedAt_ + plan_.events[nextEvent_].at, [this] { happen(); });
}

void Meeting::happen() {
  const PlannedEvent& event = plan_.events[nextEvent_++];
  setEventTimer();
  happen(event);
}

void Meeting::happen(const PlannedEvent& event) {
  switch (event.kind) {
    case PlannedEvent::Kind::kCome:
      addParticipant(event.participant);
      break;
    case PlannedEvent::Kind::kLeave:
      removeParticipant(event.participant);
      break;
  }
}

void Meeting::addParticipant(int number) {
  if (participants_.contains(number)) return;
  const StreamKey key = remoteStream(number);
  auto stream = std::make_shared<VideoStream>(key, csrcOf(plan_.seed, key), parts_.log);
  parts_.streams.add(stream);
  auto& sender = participants_[number];
  sender = std::make_unique<Sender>(parts_, stream,
                                    [this, number] { return speech_.level(number, sinceJoin()); });
  parts_.notifier.notify(&INotifyCallback::NotifyStreamAdded, key, stream->csrc());
  const FrameRate ownRate = clip_ ? clip_->rate() : kCardRate;
  sender->start(cameraOf(number), plan_.rate.value_or(ownRate));
}

void Meeting::removeParticipant(int number) {
  const auto found = participants_.find(number);
  if (found == participants_.end()) return;
  const StreamKey key = found->second->stream().key();
  const std::uint32_t csrc = found->second->stream().csrc();
  participants_.erase(found);
  parts_.streams.remove(key);
  parts_.notifier.notify(&INotifyCallback::NotifyStreamRemoved, key, csrc);
}

std::unique_ptr<PictureSource> Meeting::cameraOf(int number) const {
  if (clip_) return std::make_unique<ClipSource>(clip_, plan_.isClipLooped);
  const StreamKey key = remoteStream(number);
  const CardSubject subject = {key, 0, "REMOTE " + std::to_string(number), hueOf(plan_.seed, key)};
  return std::make_unique<CardSource>(subject, plan_.size);
}

void Meeting::setLevelTimer() {
  levelTimer_.runAt(nextLevelAt_, [this] { reportLevel(); });
}

void Meeting::reportLevel() {
  nextLevelAt_ += kLevelPeriod;
  setLevelTimer();
  if (localAudioMuted_) return;
  parts_.notifier.notify(&INotifyCallback::NotifyMicLevel, localLevel());
}

}  // namespace embedded
