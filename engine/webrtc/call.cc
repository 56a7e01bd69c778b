#include "engine/webrtc/call.h"

#include <algorithm>
#include <limits>
#include <set>
#include <utility>

#include "engine/support/streams/stream_keys.h"
#include "engine/webrtc/glib.h"

namespace webrtc {
namespace {

using namespace std::chrono_literals;

constexpr const char* kPlugin = "janus.plugin.videoroom";
constexpr const char* kProtocol = "janus-protocol";
constexpr int kMostParticipants = 50;
// Of one of the server's answers; of the offer and its answer, and of the way for media.
constexpr support::Time kLongestAnswer = 10s;
constexpr support::Time kLongestSearch = 15s;

// The room plugin's own codes.
constexpr int kJanusNoSuchRoom = 426;
constexpr int kJanusMissingElement = 429;
constexpr int kJanusInvalidElement = 430;
constexpr int kJanusPublishersFull = 432;
constexpr int kJanusUnauthorized = 433;

struct Refusal {
  int code;
  const char* reason;
};

Refusal refusalOf(const JanusAnswer& answer) {
  switch (answer.errorCode) {
    case kJanusNoSuchRoom:
      return {kNoSuchRoom, "there is no such room"};
    case kJanusPublishersFull:
      return {kRoomFull, "the room is full"};
    case kJanusUnauthorized:
    case kJanusMissingElement:
      // The code of the list of those who are allowed is that of the pin.
      if (answer.errorReason.find("allowed") != std::string::npos) {
        return {kNotAllowed, "the room does not allow this token"};
      }
      return {kWrongPin, "the room asks for another pin"};
    default:
      return {kNotAnSfu, "the server refused the join"};
  }
}

std::uint32_t bitsPerSecond(std::int32_t most) {
  // What an application does not limit is limited by the picture's size alone.
  return most > 0 ? static_cast<std::uint32_t>(most) : UINT32_MAX;
}

// What is in front of several servers chooses one by the room, which the server itself reads in the
// messages. Pins and tokens are in these only: requests are logged.
std::string requestUrl(const CallTarget& target) {
  const TextPtr room(g_uri_escape_string(target.room.c_str(), nullptr, FALSE));
  return target.url + "?room=" + room.get();
}

// Whether a room may have this number.
bool isNumber(const std::string& room) {
  constexpr std::size_t kMostDigits = 18;
  return room.size() <= kMostDigits && room.find_first_not_of("0123456789") == std::string::npos;
}

}  // namespace

Call::Call(support::EngineContext& context, std::shared_ptr<support::FramePool> pool,
           LocalVideo& localVideo, Devices& devices, int id, CallTarget target,
           const tsl::ConnectParams& params, PeopleChanged peopleChanged)
    : context_(context),
      pool_(std::move(pool)),
      localVideo_(localVideo),
      id_(id),
      target_(std::move(target)),
      params_(params),
      devices_(devices),
      peopleChanged_(std::move(peopleChanged)),
      ownState_{.guid = params.meetingGuid,
                .isAudioMuted = params.mediaStreamState.outgoingAudioMuted,
                .isVideoMuted = params.mediaStreamState.outgoingVideoMuted},
      ownSpeech_(context.loop, peopleChanged_),
      incoming_(incomingOf(params.mediaStreamState)),
      inbox_(context.loop),
      timer_(context.loop),
      turnServers_(std::make_unique<TurnServers>(context, params, target_.authorityFile, [this] {
        if (!isJoined()) fail(kNoMediaPath, kNoRelay);
      })) {
  layout_.setTopRung(context.configuration->maxVOQualityIndex());
}

Call::~Call() { release(); }

void Call::join() {
  audio_ = std::make_unique<CallAudio>(context_.loop, devices_, target_.microphone);
  audio_->speaker().setMuted(isRemoteAudioMuted_);
  session_ = std::make_unique<JanusSession>(
      context_.loop, WebSocketTarget{requestUrl(target_), kProtocol, target_.authorityFile},
      target_.token,
      JanusSession::Handlers{
          .opened = [this] { attach(); },
          .ended =
              [this](JanusSession::End end, const std::string& reason) {
                switch (end) {
                  case JanusSession::End::kCertificateRefused:
                    return fail(kCertificateRefused, "the server's certificate is refused");
                  case JanusSession::End::kNotAnSfu:
                    return fail(kNotAnSfu, "the server is no SFU that this engine knows");
                  case JanusSession::End::kRefused:
                    return fail(kNotAllowed, "the server refused the session");
                  case JanusSession::End::kUnreachable:
                    return fail(kUnreachable, "the server cannot be reached: " + reason);
                  case JanusSession::End::kLost:
                    return fail(kUnreachable, "the server was lost: " + reason);
                }
              }});
  localVideo_.setSource(target_.camera);
  waitForAnswer();
}

void Call::waitForAnswer() {
  timer_.runAt(context_.loop.now() + kLongestAnswer, [this] { timeOut(); });
}

void Call::attach() {
  waitForAnswer();
  handle_ = std::make_unique<JanusHandle>(
      *session_,
      JanusHandle::Handlers{
          .event = [this](const Json& data, const std::optional<Jsep>&) { received(data); },
          .trickle =
              [this](const Json& candidate) {
                if (publisher_) publisher_->addCandidate(candidate);
              },
          .hungUp =
              [this](const std::string& reason) {
                fail(kNoMediaPath, "the server gave up the media: " + reason);
              }});
  handle_->attach(kPlugin, [this](const JanusAnswer& answer) {
    if (answer.isError()) {
      fail(kNotAnSfu, "the server has no rooms");
    } else {
      enter(isNumber(target_.room));
    }
  });
}

void Call::enter(bool isRoomNumber) {
  state_ = State::kEntering;
  waitForAnswer();
  room_ = Json::object();
  if (isRoomNumber) {
    room_["room"] = std::stoull(target_.room);
  } else {
    room_["room"] = target_.room;
  }
  if (!target_.pin.empty()) room_["pin"] = target_.pin;
  Json request = room_;
  request["request"] = "join";
  request["ptype"] = "publisher";
  request["display"] = params_.endpointName;
  if (!target_.token.empty()) request["token"] = target_.token;
  handle_->ask(std::move(request), std::nullopt,
               [this, isRoomNumber](const JanusAnswer& answer) { entered(answer, isRoomNumber); });
}

void Call::entered(const JanusAnswer& answer, bool isRoomNumber) {
  if (answer.errorCode == kJanusInvalidElement) {
    // A server whose rooms have names may have a name of digits; one whose rooms have numbers has no
    // names.
    if (isRoomNumber) {
      enter(false);
    } else {
      fail(kNoSuchRoom, "there is no such room");
    }
    return;
  }
  if (answer.isError()) {
    const auto [code, reason] = refusalOf(answer);
    fail(code, reason);
    return;
  }
  ownId_ = memberOf(answer.data, "id");
  // Ties our subscriptions to us.
  room_["private_id"] = memberOf(answer.data, "private_id");
  publish();
  addFeeds(answer.data);
}

void Call::publish() {
  state_ = State::kPublishing;
  publisher_ = std::make_unique<Publisher>(
      context_.loop, *handle_, turnServers_->ice(),
      Publisher::Settings{.videoSsrc = localVideo_.csrc(),
                          .isLayered = target_.camera.kind != CameraSource::Kind::kClip,
                          .mostBitsPerSecond = bitsPerSecond(params_.maxBandwidth),
                          .pool = pool_,
                          .state = ownState_},
      Publisher::Handlers{
          .accepted = [this] { waitForMedia(); },
          .connected = [this] { joined(); },
          .refused =
              [this](int code, const std::string& reason) {
                const auto refusal = refusalOf({code, reason, {}, {}});
                fail(refusal.code, refusal.reason);
              },
          .failed = [this](const std::string& reason) { fail(kNoMediaPath, reason); },
          .heard =
              [this](unsigned level) {
                ownLevel_ = level;
                ownSpeech_.heard(level);
                if (isJoined()) context_.notifier.notify(&INotifyCallback::NotifyMicLevel, level);
              }});
  audio_->captureInto(publisher_->audioSource());
  publisher_->start();
  waitForMedia();
}

void Call::waitForMedia() {
  timer_.runAt(context_.loop.now() + kLongestSearch, [this] { timeOut(); });
}

void Call::joined() {
  if (state_ != State::kPublishing) return;
  state_ = State::kJoined;
  timer_.stop();
  context_.log->write("call " + std::to_string(id_) + " joined");
  if (!publisher_->video()) {
    context_.log->write("the room takes no video in an encoding of ours: none is sent");
  }
  localVideo_.setSender(publisher_->video());
  context_.notifier.notify(&INotifyCallback::NotifyCallConnectionStatus, true);
  for (const auto& [event, isEnabled] : params_.gracefulEvents) {
    if (isEnabled) context_.notifier.notify(&INotifyCallback::NotifyGracefulEvent, event, true);
  }
  for (const auto& [key, participant] : participants_) participant->announce();
  peopleChanged_();
}

std::vector<support::Person> Call::people() const {
  if (!isJoined()) return {};
  std::vector<support::Person> people = {
      {.stream = support::kLocalStream,
       .csrc = localVideo_.csrc(),
       .guid = params_.meetingGuid,
       .name = params_.endpointName,
       .audioMuted = ownState_.isAudioMuted,
       .videoMuted = ownState_.isVideoMuted,
       .speaking = ownSpeech_.isSpeaking() && !ownState_.isAudioMuted}};
  for (const auto& [key, participant] : participants_) people.push_back(participant->person());
  std::sort(people.begin(), people.end(),
            [](const auto& a, const auto& b) { return a.stream < b.stream; });
  return people;
}

void Call::received(const Json& data) {
  if (textAt(data, "videoroom") == "destroyed") {
    fail(kRemoved, "the room was closed");
    return;
  }
  addFeeds(data);
  for (const char* const gone : {"unpublished", "leaving"}) {
    const Json& id = memberOf(data, gone);
    if (id == "ok" && textAt(data, "reason") == "kicked") {
      fail(kRemoved, "the call was removed from the room");
    } else if (!id.is_null()) {
      removeFeed(id);
    }
  }
}

void Call::addFeeds(const Json& data) {
  for (const Json& publisher : listAt(data, "publishers")) {
    const auto feed = parseFeed(publisher);
    if (!feed || feed->id == ownId_) continue;
    auto& participant = participants_[feed->key()];
    if (participant) {
      participant->update(*feed);
    } else if (const auto index = freeIndex()) {
      participant = std::make_unique<Participant>(context_, pool_, *session_, audio_->speaker(),
                                                  turnServers_->ice(), room_, *feed, *index,
                                                  incoming_, [this] {
                                                    updateReceptions();
                                                    peopleChanged_();
                                                  });
      if (isJoined()) participant->announce();
    } else {
      participants_.erase(feed->key());
      context_.log->write("a participant more than can be received");
    }
  }
  updateLowerLayers();
  peopleChanged_();
}

void Call::removeFeed(const Json& id) {
  participants_.erase(id.dump());
  updateReceptions();
  peopleChanged_();
}

void Call::updateReceptions() {
  std::set<std::uint32_t> present;
  for (const auto& [key, participant] : participants_) {
    if (participant->csrc() != 0) present.insert(participant->csrc());
  }
  const auto receptions = layout_.receptions(present);
  for (const auto& [key, participant] : participants_) {
    const auto found = receptions.find(participant->csrc());
    if (found != receptions.end()) participant->receive(found->second);
  }
  updateLowerLayers();
}

void Call::updateLowerLayers() {
  const auto isAny = [this](bool (Participant::*is)() const) {
    return std::any_of(participants_.begin(), participants_.end(),
                       [is](const auto& each) { return ((*each.second).*is)(); });
  };
  ownState_.usesLowerLayers = isAny(&Participant::isReceivedLower);
  if (!publisher_) return;
  publisher_->setLowerLayers(isAny(&Participant::usesLowerLayers));
  publisher_->setState(ownState_);
}

std::optional<int> Call::freeIndex() const {
  std::set<int> used;
  for (const auto& [key, participant] : participants_) {
    if (participant) used.insert(participant->index());
  }
  int index = 0;
  while (used.contains(index)) ++index;
  if (index == kMostParticipants) return std::nullopt;
  return index;
}

void Call::deviceChanged(DeviceType type) {
  if (audio_) audio_->deviceChanged(type);
}

void Call::setRemoteAudioMuted(bool isMuted) {
  isRemoteAudioMuted_ = isMuted;
  if (audio_) audio_->speaker().setMuted(isMuted);
}

void Call::setIncoming(Incoming incoming) {
  incoming_ = incoming;
  for (const auto& [key, participant] : participants_) participant->setIncoming(incoming);
}

void Call::setLayout(std::vector<tsl::VideoStreamInfo> streams,
                     std::vector<std::vector<tsl::VideoStreamConstraints>> constraints) {
  layout_.setWishes(std::move(streams), std::move(constraints));
  updateReceptions();
}

void Call::setTopRung(int rung) {
  layout_.setTopRung(rung);
  updateReceptions();
}

void Call::setAudioMuted(bool isMuted) {
  ownState_.isAudioMuted = isMuted;
  if (publisher_) publisher_->setState(ownState_);
  peopleChanged_();
}

void Call::setVideoMuted(bool isMuted) {
  ownState_.isVideoMuted = isMuted;
  if (publisher_) publisher_->setState(ownState_);
  peopleChanged_();
}

void Call::collectStatistics(support::Time window, tsl::MeetingStats& stats) {
  if (!isJoined()) return;
  const Traffic sent = publisher_->closeWindow(window);
  std::vector<Traffic> received;
  for (const auto& [key, participant] : participants_) {
    received.push_back(participant->closeWindow(window));
  }
  statistics_.collect(window, sent, received, stats);
  constexpr std::uint32_t kMost = std::numeric_limits<std::int32_t>::max();
  stats.outboundBweBps =
      static_cast<std::int32_t>(std::min(publisher_->grantedBitsPerSecond(), kMost));
  stats.audio.transmitLevel = ownState_.isAudioMuted ? 0 : ownLevel_;
  stats.audio.outputLevel = audio_->speaker().level();
}

void Call::timeOut() {
  if (publisher_ && publisher_->isAccepted()) {
    end(kNoMediaPath, "no way for media was found");
  } else {
    end(kTimedOut, "the server did not answer in time");
  }
}

void Call::leave() {
  if (!isOver()) end(kLeft, "the call was left");
}

void Call::fail(int code, const std::string& reason) {
  inbox_.poster()([this, code, reason] { end(code, reason); });
}

void Call::end(int code, const std::string& reason) {
  if (isOver()) return;
  state_ = State::kOver;
  release();
  peopleChanged_();
  context_.log->write("call " + std::to_string(id_) + " ended: " + reason);
  context_.notifier.notify(&INotifyCallback::NotifyCallConnectionStatus, false);
  context_.notifier.notify(&INotifyCallback::NotifyCallDisconnect, id_, reason, code);
}

void Call::release() {
  timer_.stop();
  localVideo_.setSender(nullptr);
  localVideo_.setSource({});
  participants_.clear();
  publisher_.reset();
  handle_.reset();
  session_.reset();
  audio_.reset();
  turnServers_.reset();
}

}  // namespace webrtc
