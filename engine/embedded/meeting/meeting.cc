#include "engine/embedded/meeting/meeting.h"

#include <algorithm>
#include <sstream>
#include <utility>

#include "engine/embedded/streams/identity.h"
#include "engine/support/streams/stream_keys.h"

namespace embedded {
namespace {

using namespace std::chrono_literals;

constexpr support::Time kLevelPeriod = 200ms;

// What streams carried together in a window.
struct Sum {
  std::uint64_t bytes = 0;
  std::uint64_t packets = 0;
  std::uint64_t lostPackets = 0;

  // The statistics of one stream more.
  tsl::VideoStats add(const TrafficMeter::Window& window) {
    bytes += window.bytes;
    packets += window.packets;
    lostPackets += window.lostPackets;
    return window.stats;
  }
  std::int32_t bitsPerSecond(support::Time window) const {
    return toBits(static_cast<double>(bytes) * 8 / std::chrono::duration<double>(window).count());
  }
  float loss() const {
    return packets == 0 ? 0 : static_cast<float>(lostPackets) / static_cast<float>(packets);
  }
};

// Those of the plan, and those that the application asks for.
std::set<std::string> attributesOf(const MeetingPlan& plan, const tsl::ConnectParams& params) {
  std::set<std::string> attributes = plan.requiredAttributes;
  attributes.insert(params.meetingFeatures.begin(), params.meetingFeatures.end());
  std::istringstream listed(params.meetingAttributes);
  for (std::string attribute; std::getline(listed, attribute, ',');) {
    if (!attribute.empty()) attributes.insert(attribute);
  }
  return attributes;
}

}  // namespace

std::vector<tsl::ScreenMonitor> usualMonitors() {
  return {{0, 0, 1920, 1080, 0}, {1920, 0, 1280, 720, 1}};
}

Incoming incomingOf(const tsl::MediaStreamState& state) {
  return {state.incomingAudioEnabled, state.incomingVideoEnabled, state.contentStreamEnabled};
}

Meeting::Meeting(support::EngineContext& context, const StreamMaker& streams, LocalMedia& local,
                 int callId, MeetingPlan plan, std::shared_ptr<const support::Y4mClip> clip,
                 const tsl::ConnectParams& params, std::function<void()> peopleChanged)
    : context_(context),
      streams_(streams),
      local_(local),
      callId_(callId),
      plan_(std::move(plan)),
      clip_(std::move(clip)),
      speech_(plan_.seed, plan_.participants, plan_.speech),
      localName_(params.endpointName.empty() ? usualNameOf(plan_.seed, kLocalParticipant)
                                             : params.endpointName),
      peopleChanged_(std::move(peopleChanged)),
      requiredAttributes_(attributesOf(plan_, params)),
      gracefulEvents_(params.gracefulEvents),
      incoming_(incomingOf(params.mediaStreamState)),
      content_(streams, context.notifier, context.log, context.monitors, plan_, incoming_.content),
      stateTimer_(context.loop),
      eventTimer_(context.loop),
      levelTimer_(context.loop) {
  layout_.setTopRung(context.configuration->maxVOQualityIndex());
}

void Meeting::join() {
  state_ = State::kJoining;
  joinedAt_ = context_.loop.now() + plan_.joinDelay;
  stateTimer_.runAt(joinedAt_, [this] { enter(); });
}

void Meeting::leave() {
  if (!isOver()) end(kLeft, "the call was left");
}

void Meeting::setIncoming(const Incoming& incoming) {
  incoming_ = incoming;
  content_.setReceiving(incoming.content);
  updateReceptions();
}

void Meeting::setLayout(std::vector<tsl::VideoStreamInfo> streams,
                        std::vector<std::vector<tsl::VideoStreamConstraints>> constraints) {
  layout_.setWishes(std::move(streams), std::move(constraints));
  updateReceptions();
}

void Meeting::setTopRung(int rung) {
  layout_.setTopRung(rung);
  updateReceptions();
}

std::vector<support::Person> Meeting::people() const {
  if (!isJoined()) return {};
  std::vector<support::Person> people = {{.stream = support::kLocalStream,
                                          .csrc = local_.csrc(),
                                          .guid = guidOf(plan_.seed, kLocalParticipant),
                                          .name = localName_,
                                          .audioMuted = local_.isAudioMuted(),
                                          .videoMuted = local_.isVideoMuted(),
                                          .speaking = localLevel() > 0,
                                          .presenting = content_.isPresenting(kLocalParticipant)}};
  for (const auto& [number, participant] : participants_) {
    people.push_back(participant->person());
    people.back().presenting = content_.isPresenting(number);
  }
  return people;
}

std::uint32_t Meeting::localLevel() const {
  return isJoined() && local_.hasOpenMicrophone() ? speech_.level(kLocalParticipant, sinceJoin())
                                                  : 0;
}

std::uint32_t Meeting::incomingLevel() const {
  std::uint32_t loudest = 0;
  if (!incoming_.audio) return loudest;
  for (const auto& [number, participant] : participants_) {
    loudest = std::max(loudest, participant->level());
  }
  return loudest;
}

void Meeting::collect(support::Time window, const TrafficMeter::Window& localVideo,
                      tsl::MeetingStats& stats) {
  Sum in;
  Sum out;
  for (const auto& [number, participant] : participants_) {
    const auto traffic = participant->meter().closeWindow(window);
    if (participant->isReceived()) stats.videoReceive[participant->csrc()] = in.add(traffic);
  }
  if (auto* const meter = content_.receivedMeter()) {
    stats.contentReceive = in.add(meter->closeWindow(window));
  }
  if (local_.isSending()) stats.videoSend[local_.csrc()] = out.add(localVideo);
  if (auto* const meter = content_.sentMeter()) {
    stats.contentSend = out.add(meter->closeWindow(window));
  }
  stats.totalInboundBps = in.bitsPerSecond(window);
  stats.totalOutboundBps = out.bitsPerSecond(window);
  stats.instantInboundLoss = in.loss();
  stats.instantOutboundLoss = out.loss();
  stats.audio.transmitLevel = localLevel();
}

void Meeting::enter() {
  if (plan_.refusal) {
    end(*plan_.refusal, "the meeting refused the join");
    return;
  }
  state_ = State::kJoined;
  context_.log->write("joined " + plan_.room);
  context_.requiredAttributes.set(requiredAttributes_);
  if (plan_.monitors) context_.monitors.set(*plan_.monitors);
  context_.notifier.notify(&INotifyCallback::NotifyCallConnectionStatus, true);
  for (const auto& [event, isEnabled] : gracefulEvents_) {
    if (isEnabled) context_.notifier.notify(&INotifyCallback::NotifyGracefulEvent, event, true);
  }
  for (int number = 0; number < plan_.participants; ++number) addParticipant(number);
  peopleChanged_();
  nextLevelAt_ = joinedAt_;
  setLevelTimer();
  setEventTimer();
  if (plan_.dropAfter) {
    stateTimer_.runAt(joinedAt_ + *plan_.dropAfter,
                      [this] { end(kDropped, "the call was dropped"); });
  }
}

void Meeting::end(int code, const std::string& reason) {
  state_ = State::kOver;
  peopleChanged_();
  stateTimer_.stop();
  eventTimer_.stop();
  levelTimer_.stop();
  content_.end();
  while (!participants_.empty()) removeParticipant(participants_.begin()->first);
  local_.restoreDevices();
  context_.monitors.set(usualMonitors());
  context_.requiredAttributes.set({});
  context_.log->write("call " + std::to_string(callId_) + " ended: " + reason);
  context_.notifier.notify(&INotifyCallback::NotifyCallConnectionStatus, false);
  context_.notifier.notify(&INotifyCallback::NotifyCallDisconnect, callId_, reason, code);
}

void Meeting::setEventTimer() {
  if (nextEvent_ == plan_.events.size()) return;
  eventTimer_.runAt(joinedAt_ + plan_.events[nextEvent_].at, [this] { applyNextEvent(); });
}

void Meeting::applyNextEvent() {
  const PlannedEvent& event = plan_.events[nextEvent_++];
  setEventTimer();
  apply(event);
  peopleChanged_();
}

void Meeting::apply(const PlannedEvent& event) {
  if (event.participant == kLocalParticipant) {
    applyToLocal(event);
    return;
  }
  if (event.kind == PlannedEvent::Kind::kJoin) {
    addParticipant(event.participant);
    return;
  }
  // What is planned for somebody who is away does not happen.
  const auto found = participants_.find(event.participant);
  if (found != participants_.end()) applyTo(*found->second, event);
}

void Meeting::applyToLocal(const PlannedEvent& event) {
  switch (event.kind) {
    case PlannedEvent::Kind::kMuteVideo:
    case PlannedEvent::Kind::kUnmuteVideo:
      local_.setVideoMuted(event.kind == PlannedEvent::Kind::kMuteVideo);
      break;
    case PlannedEvent::Kind::kMuteAudio:
    case PlannedEvent::Kind::kUnmuteAudio:
      local_.setAudioMuted(event.kind == PlannedEvent::Kind::kMuteAudio);
      break;
    case PlannedEvent::Kind::kPlug:
    case PlannedEvent::Kind::kUnplug:
      local_.setPlugged(event.device, event.kind == PlannedEvent::Kind::kPlug);
      break;
    default:
      break;
  }
}

void Meeting::applyTo(Participant& participant, const PlannedEvent& event) {
  switch (event.kind) {
    case PlannedEvent::Kind::kLeave:
      removeParticipant(event.participant);
      break;
    case PlannedEvent::Kind::kMuteVideo:
    case PlannedEvent::Kind::kUnmuteVideo:
      participant.setVideoMuted(event.kind == PlannedEvent::Kind::kMuteVideo);
      break;
    case PlannedEvent::Kind::kMuteAudio:
    case PlannedEvent::Kind::kUnmuteAudio:
      participant.setAudioMuted(event.kind == PlannedEvent::Kind::kMuteAudio);
      break;
    case PlannedEvent::Kind::kPresent:
      content_.present(event.participant, participant.isCut());
      break;
    case PlannedEvent::Kind::kStopPresenting:
      content_.stopPresenting(event.participant);
      break;
    case PlannedEvent::Kind::kCutLink:
    case PlannedEvent::Kind::kRestoreLink: {
      const bool isCut = event.kind == PlannedEvent::Kind::kCutLink;
      participant.setCut(isCut);
      content_.setCut(event.participant, isCut);
      break;
    }
    default:
      break;
  }
}

void Meeting::addParticipant(int number) {
  if (participants_.contains(number)) return;
  auto& participant = participants_[number];
  participant =
      std::make_unique<Participant>(streams_, context_.notifier, plan_, number, clip_,
                                    [this, number] { return speech_.level(number, sinceJoin()); });
  participant->join(receptions().at(participant->csrc()));
  // The newcomer may change the number of tiles.
  updateReceptions();
}

void Meeting::removeParticipant(int number) {
  const auto found = participants_.find(number);
  content_.stopPresenting(number);
  found->second->leave();
  participants_.erase(found);
  if (!isOver()) updateReceptions();
}

std::map<std::uint32_t, support::Reception> Meeting::receptions() const {
  std::set<std::uint32_t> present;
  for (const auto& [number, participant] : participants_) present.insert(participant->csrc());
  auto receptions = layout_.receptions(present);
  if (!incoming_.video) {
    for (auto& [csrc, reception] : receptions) reception.isWanted = false;
  }
  return receptions;
}

void Meeting::updateReceptions() {
  const auto receptions = this->receptions();
  for (const auto& [number, participant] : participants_) {
    participant->receive(receptions.at(participant->csrc()));
  }
}

void Meeting::setLevelTimer() {
  levelTimer_.runAt(nextLevelAt_, [this] { reportLevel(); });
}

void Meeting::reportLevel() {
  nextLevelAt_ += kLevelPeriod;
  setLevelTimer();
  peopleChanged_();
  if (!local_.hasOpenMicrophone()) return;
  const std::uint32_t level = localLevel();
  if (local_.isDebugging()) context_.log->write("microphone level " + std::to_string(level));
  context_.notifier.notify(&INotifyCallback::NotifyMicLevel, level);
}

}  // namespace embedded
