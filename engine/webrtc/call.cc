#include "engine/webrtc/call.h"

#include <algorithm>
#include <array>
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
// After the loss of the server no more attempts to come back begin.
constexpr support::Time kLongestReturn = 10s;
constexpr support::Time kRetryPeriod = 500ms;
// A call that is lost sooner after it has come back is still the one that was lost before.
constexpr support::Time kLasting = 5s;
// The others may come back later than us.
constexpr support::Time kPlacesKept = 60s;
constexpr support::Time kArrivalPeriod = 250ms;
constexpr std::array kMedia = {MediaType::kVideo, MediaType::kAudio};

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
           const tsl::ConnectParams& params, Handlers handlers)
    : context_(context),
      pool_(std::move(pool)),
      localVideo_(localVideo),
      id_(id),
      target_(std::move(target)),
      params_(params),
      devices_(devices),
      handlers_(std::move(handlers)),
      ownState_{.guid = params.meetingGuid,
                .isAudioMuted = params.mediaStreamState.outgoingAudioMuted,
                .isVideoMuted = params.mediaStreamState.outgoingVideoMuted,
                .received = std::nullopt},
      ownSpeech_(context.loop, handlers_.peopleChanged),
      incoming_(incomingOf(params.mediaStreamState)),
      isContentReceived_(params.mediaStreamState.contentStreamEnabled),
      inbox_(context.loop),
      timer_(context.loop),
      arrivalTimer_(context.loop),
      placesTimer_(context.loop),
      admission_(kMostParticipants),
      turnServers_(std::make_unique<TurnServers>(context, params, target_.authorityFile, [this] {
        if (!isJoined()) fail(kNoMediaPath, kNoRelay);
      })) {
  layout_.setTopRung(context.configuration->maxVOQualityIndex());
}

Call::~Call() { release(); }

void Call::join() {
  audio_ = std::make_unique<CallAudio>(context_.loop, devices_, target_.microphone);
  audio_->speaker().setMuted(isRemoteAudioMuted_);
  localVideo_.setSource(target_.camera);
  connect();
}

void Call::waitForAnswer() {
  timer_.runAt(context_.loop.now() + kLongestAnswer, [this] { timeOut(); });
}

void Call::connect() {
  waitForAnswer();
  session_ = std::make_unique<JanusSession>(
      context_.loop, WebSocketTarget{requestUrl(target_), kProtocol, target_.authorityFile},
      target_.token, lostSession_,
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
  // The others recognise by it who comes back.
  if (isReturning_) request["id"] = ownId_;
  handle_->ask(std::move(request), std::nullopt,
               [this, isRoomNumber](const JanusAnswer& answer) { entered(answer, isRoomNumber); });
}

void Call::entered(const JanusAnswer& answer, bool isRoomNumber) {
  if (answer.errorCode == kJanusInvalidElement) {
    // A server whose rooms have names may have a name of digits; one whose rooms have numbers has
    // no names.
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
                // The pin was right already.
                const auto refusal = refusalOf({code, reason, {}, {}});
                const bool isFull = refusal.code == kRoomFull;
                fail(isFull ? refusal.code : kNotAnSfu,
                     isFull ? refusal.reason : "the server refused the join");
              },
          .failed = [this](const std::string& reason) { fail(kNoMediaPath, reason); },
          .heard =
              [this](unsigned level) {
                ownLevel_ = level;
                ownSpeech_.heard(level);
                if (isDebugging_) context_.log->write("microphone level " + std::to_string(level));
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
  joinedAt_ = context_.loop.now();
  timer_.stop();
  context_.log->write("call " + std::to_string(id_) + " joined");
  if (!publisher_->video()) {
    context_.log->write("the room takes no video in an encoding of ours: none is sent");
  }
  localVideo_.setSender(publisher_->video());
  if (std::exchange(isReturning_, false)) {
    for (const MediaType type : kMedia) setMissing(type, false);
  } else {
    context_.notifier.notify(&INotifyCallback::NotifyCallConnectionStatus, true);
    for (const auto& [event, isEnabled] : params_.gracefulEvents) {
      if (isEnabled) context_.notifier.notify(&INotifyCallback::NotifyGracefulEvent, event, true);
    }
  }
  for (const auto& [key, participant] : participants_) participant->announce();
  enterContentRoom();
  watchArrival();
  handlers_.peopleChanged();
}

void Call::enterContentRoom() {
  content_ = std::make_unique<ContentRoom>(
      context_, pool_, *session_, audio_->speaker(), turnServers_->ice(),
      ContentRoom::Settings{.meeting = room_["room"],
                            .pin = target_.pin,
                            .token = target_.token,
                            .name = params_.endpointName,
                            .guid = params_.meetingGuid,
                            .ownId = ownId_,
                            .mostBitsPerSecond = bitsPerSecond(params_.maxBandwidth),
                            .isReceiving = isContentReceived_},
      handlers_.peopleChanged);
}

void Call::watchArrival() {
  for (const MediaType type : kMedia) {
    bool isMissing = false;
    for (const auto& [key, participant] : participants_) {
      // Each is asked each time.
      isMissing = participant->isMissing(type) || isMissing;
    }
    setMissing(type, isMissing);
  }
  setMissing(MediaType::kContent, content_->isMissing());
  arrivalTimer_.runAt(context_.loop.now() + kArrivalPeriod, [this] { watchArrival(); });
}

void Call::setMissing(MediaType type, bool isMissing) {
  if (std::exchange(isMissing_[type], isMissing) == isMissing) return;
  context_.notifier.notify(&INotifyCallback::NotifyRtpMediaState, type, !isMissing);
}

std::vector<support::Person> Call::people() const {
  if (!isJoined() && !isReturning_) return {};
  std::vector<support::Person> people = {
      {.stream = support::kLocalStream,
       .csrc = localVideo_.csrc(),
       .guid = params_.meetingGuid,
       .name = params_.endpointName,
       .audioMuted = ownState_.isAudioMuted,
       .videoMuted = ownState_.isVideoMuted,
       .speaking = ownSpeech_.isSpeaking() && !ownState_.isAudioMuted,
       .presenting = content_ && content_->isPresenting(ownId_.dump())}};
  if (isJoined()) {
    for (const auto& [key, participant] : participants_) {
      people.push_back(participant->person());
      people.back().presenting = content_ && content_->isPresenting(key);
    }
  }
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
  moderate(data);
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
    addFeed(*feed);
  }
  updateLayers();
  handlers_.peopleChanged();
}

void Call::addFeed(const Feed& feed) {
  const std::string key = feed.key();
  if (const auto found = participants_.find(key); found != participants_.end()) {
    found->second->update(feed);
    return;
  }
  const bool wasWaiting = admission_.isWaiting(key);
  const auto place = admission_.place(feed);
  if (!place) {
    if (!wasWaiting) context_.log->write("a participant more than can be received waits");
    return;
  }
  try {
    auto participant = std::make_unique<Participant>(
        context_, pool_, *session_, audio_->speaker(), turnServers_->ice(), room_, feed,
        support::remoteStream(*place), incoming_, [this] {
          updateReceptions();
          handlers_.peopleChanged();
        });
    if (isJoined()) participant->announce();
    participants_.emplace(key, std::move(participant));
  } catch (const std::exception& error) {
    // The others are received all the same.
    context_.log->write("participant " + std::to_string(*place) +
                        " cannot be received: " + error.what());
  }
}

void Call::removeFeed(const Json& id) {
  const std::string key = id.dump();
  participants_.erase(key);
  if (const auto next = admission_.remove(key)) addFeed(*next);
  updateReceptions();
  handlers_.peopleChanged();
}

void Call::moderate(const Json& data) {
  const std::string moderation = textAt(data, "moderation");
  if (moderation != "muted" && moderation != "unmuted") return;
  const bool isMuted = moderation == "muted";
  const Json& id = memberOf(data, "id");
  const std::string mid = textAt(data, "mid");
  if (id == ownId_) {
    const auto type = Publisher::typeOf(mid);
    if (type) handlers_.moderated(*type, isMuted);
  } else if (const auto found = participants_.find(id.dump()); found != participants_.end()) {
    found->second->moderate(mid, isMuted);
    handlers_.peopleChanged();
  }
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
  updateLayers();
}

void Call::updateLayers() {
  std::optional<Heights> others;
  ownState_.received.reset();
  for (const auto& [key, participant] : participants_) {
    ownState_.received = together(ownState_.received, participant->receivedHeights());
    others = together(others, participant->heightsReceivedByIt());
  }
  if (!publisher_) return;
  publisher_->setReceived(others);
  publisher_->setState(ownState_);
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

void Call::setContentReceived(bool isReceived) {
  isContentReceived_ = isReceived;
  if (content_) content_->setReceiving(isReceived);
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
  handlers_.peopleChanged();
}

void Call::setVideoMuted(bool isMuted) {
  ownState_.isVideoMuted = isMuted;
  if (publisher_) publisher_->setState(ownState_);
  handlers_.peopleChanged();
}

void Call::collectStatistics(support::Time window, tsl::MeetingStats& stats) {
  if (!isJoined()) return;
  const Traffic sent = publisher_->closeWindow(window);
  std::vector<Traffic> received;
  for (const auto& [key, participant] : participants_) {
    received.push_back(participant->closeWindow(window));
  }
  statistics_.collect(window, sent, received, content_->closeWindow(window), stats);
  constexpr std::uint32_t kMost = std::numeric_limits<std::int32_t>::max();
  stats.outboundBweBps =
      static_cast<std::int32_t>(std::min(publisher_->grantedBitsPerSecond(), kMost));
  stats.audio.transmitLevel = ownState_.isAudioMuted ? 0 : ownLevel_;
  stats.audio.outputLevel = audio_->speaker().level();
}

void Call::timeOut() {
  if (publisher_ && publisher_->isAccepted()) {
    failed(kNoMediaPath, "no way for media was found");
  } else {
    failed(kTimedOut, "the server did not answer in time");
  }
}

void Call::leave() {
  if (!isOver()) end(kLeft, "the call was left");
}

void Call::abort(const std::string& reason) { end(kEngineFailed, reason); }

void Call::fail(int code, const std::string& reason) {
  inbox_.poster()([this, session = releasedSessions_, code, reason] {
    // What an earlier session has posted is of no interest any more.
    if (session == releasedSessions_) failed(code, reason);
  });
}

void Call::failed(int code, const std::string& reason) {
  const bool isLoss = isJoined() && code == kUnreachable;
  // As long as another server, or a load balancer, does not know of the loss.
  const bool mayPass =
      code == kUnreachable || code == kTimedOut || code == kNotAnSfu || code == kNoSuchRoom;
  if (isLoss || (isReturning_ && mayPass)) {
    comeBack(reason);
  } else {
    end(code, reason);
  }
}

void Call::comeBack(const std::string& reason) {
  const support::Time now = context_.loop.now();
  const bool isLoss = !std::exchange(isReturning_, true);
  const bool isFirst = isLoss && (!lostAt_ || now >= joinedAt_ + kLasting);
  if (isLoss) {
    placesTimer_.runAt(now + kPlacesKept, [this] { freePlaces(); });
    for (const MediaType type : kMedia) setMissing(type, true);
  }
  if (isFirst) {
    lostAt_ = now;
    lossReason_ = reason;
  } else if (now >= *lostAt_ + kLongestReturn) {
    end(kUnreachable, lossReason_);
    return;
  }
  context_.log->write("call " + std::to_string(id_) + " comes back: " + reason);
  state_ = State::kConnecting;
  releaseSession();
  handlers_.peopleChanged();
  timer_.runAt(isFirst ? now : now + kRetryPeriod, [this] { connect(); });
}

void Call::freePlaces() {
  if (!isJoined()) {
    placesTimer_.runAt(context_.loop.now() + kPlacesKept, [this] { freePlaces(); });
    return;
  }
  for (const std::string& key : admission_.placed()) {
    if (participants_.contains(key)) continue;
    if (const auto next = admission_.remove(key)) addFeed(*next);
  }
  handlers_.peopleChanged();
}

void Call::end(int code, const std::string& reason) {
  if (isOver()) return;
  state_ = State::kOver;
  isReturning_ = false;
  release();
  // The room's mutes end with the call.
  for (const MediaType type : kMedia) handlers_.moderated(type, false);
  handlers_.peopleChanged();
  context_.log->write("call " + std::to_string(id_) + " ended: " + reason);
  context_.notifier.notify(&INotifyCallback::NotifyCallConnectionStatus, false);
  context_.notifier.notify(&INotifyCallback::NotifyCallDisconnect, id_, reason, code);
}

void Call::releaseSession() {
  ++releasedSessions_;
  arrivalTimer_.stop();
  localVideo_.setSender(nullptr);
  if (content_ && participants_.empty()) content_->remove();
  content_.reset();
  participants_.clear();
  // Of those who have a place, it is kept; the room will name the others again.
  admission_.forgetWaiting();
  publisher_.reset();
  handle_.reset();
  if (session_ && session_->id() != 0) lostSession_ = session_->id();
  session_.reset();
}

void Call::release() {
  timer_.stop();
  placesTimer_.stop();
  releaseSession();
  audio_.reset();
  turnServers_.reset();
  // Last: nobody is told any more which camera captures.
  localVideo_.setSource({});
}

}  // namespace webrtc
