#include "engine/webrtc/participant.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <utility>

#include "engine/support/streams/stream_keys.h"

namespace webrtc {
namespace {

using namespace std::chrono_literals;

// Between the end of a connection and the next one; doubled each time, unless one has lasted.
constexpr support::Time kShortestDelay = 500ms;
constexpr support::Time kLongestDelay = 4s;
constexpr support::Time kLasting = 10s;

std::uint32_t mostHeight(const support::Reception& reception) {
  std::uint32_t most = Heights::kWhole;
  for (const std::uint32_t limit : {reception.height, reception.ceiling}) {
    if (limit != 0) most = std::min(most, limit);
  }
  return most;
}

}  // namespace

Incoming incomingOf(const tsl::MediaStreamState& state) {
  return {.audio = state.incomingAudioEnabled, .video = state.incomingVideoEnabled};
}

Participant::Participant(support::EngineContext& context, std::shared_ptr<support::FramePool> pool,
                         JanusSession& session, Speaker& speaker, const IceOptions& ice, Json room,
                         Feed feed, StreamKey key, Incoming incoming, std::function<void()> changed)
    : context_(context),
      pool_(std::move(pool)),
      session_(session),
      ice_(ice),
      room_(std::move(room)),
      key_(key),
      feed_(std::move(feed)),
      incoming_(incoming),
      changed_(std::move(changed)),
      voice_(speaker.addInput()),
      speech_(context.loop, changed_),
      timer_(context.loop),
      inbox_(context.loop) {
  connectOrRetry();
}

Participant::~Participant() {
  connection_.reset();
  notifyRemoved();
}

std::string Participant::title() const {
  return key_ == support::kContentStream ? "the content"
                                         : "participant " + std::to_string(key_.second);
}

void Participant::connect() {
  ++connections_;
  connectedAt_ = context_.loop.now();
  connection_.emplace(
      context_.loop, ice_,
      PeerConnection::Handlers{.candidate =
                                   [this](unsigned mediaLine, const std::string& candidate) {
                                     handle_->trickle(mediaLine, candidate);
                                   },
                               .allCandidatesFound = [this] { handle_->trickleEnd(); },
                               .connected = [] {},
                               .failed = [this](const std::string& reason) { fail(reason); },
                               .receiving = [this](GstPad* pad) { receive(pad); },
                               .keyFrameRequested = nullptr,
                               .told =
                                   [this, post = inbox_.poster()](GstMessage* message) {
                                     const auto level = levelOf(message);
                                     if (level) post([this, level] { speech_.heard(*level); });
                                   }});
  handle_.emplace(
      session_,
      JanusHandle::Handlers{
          .event =
              [this](const Json& data, const std::optional<Jsep>& jsep) {
                // The participant sends something else than before.
                if (jsep && jsep->type == "offer") accept(jsep->sdp, data);
              },
          .trickle = [this](const Json& candidate) { connection_->addCandidate(candidate); },
          .hungUp = [this](const std::string& reason) { fail(reason); }});
  connection_->start();
  handle_->attach("janus.plugin.videoroom", [this](const JanusAnswer& answer) {
    if (answer.isError()) {
      fail(answer.errorReason);
    } else {
      subscribe();
    }
  });
}

void Participant::disconnect() {
  connection_.reset();
  handle_.reset();
  kinds_.clear();
  const bool wasVideoShown = isVideoShown();
  isSubscribed_ = false;
  if (wasVideoShown) showVideo();
}

void Participant::subscribe() {
  Json request = room_;
  request["request"] = "join";
  request["ptype"] = "subscriber";
  request["streams"] = Json::array({{{"feed", feed_.id}}});
  handle_->ask(std::move(request), std::nullopt, [this](const JanusAnswer& answer) {
    if (answer.jsep) {
      accept(answer.jsep->sdp, answer.data);
    } else {
      fail(answer.errorReason);
    }
  });
}

void Participant::fail(const std::string& reason) {
  // Not at once: who calls may belong to the connection or to the handle.
  inbox_.poster()([this, reason, number = connections_] {
    if (!connection_ || number != connections_) return;
    context_.log->write(title() + " is not received: " + reason);
    reconnectLater();
  });
}

void Participant::reconnect() {
  inbox_.poster()([this, number = connections_] {
    if (!connection_ || number != connections_) return;
    if (context_.loop.now() - connectedAt_ < kShortestDelay) {
      reconnectLater();
    } else {
      disconnect();
      connectOrRetry();
    }
  });
}

void Participant::connectOrRetry() {
  try {
    connect();
  } catch (const std::exception& error) {
    context_.log->write(title() + " is not received: " + error.what());
    reconnectLater();
  }
}

void Participant::reconnectLater() {
  disconnect();
  const support::Time now = context_.loop.now();
  const bool wasLasting = now - connectedAt_ > kLasting;
  delay_ = wasLasting ? kShortestDelay : std::clamp(2 * delay_, kShortestDelay, kLongestDelay);
  timer_.runAt(now + delay_, [this] {
    context_.log->write(title() + " is requested again");
    connectOrRetry();
  });
}

void Participant::accept(const std::string& offer, const Json& data) {
  kinds_.clear();
  for (const Json& stream : listAt(data, "streams")) {
    kinds_[textAt(stream, "mid")] = textAt(stream, "type");
  }
  asked_ = {};
  const std::uint32_t csrc = videoSsrcOf(offer).value_or(0);
  const bool isNew = !stream_ || csrc != stream_->csrc();
  if (isNew && isSubscribed_) {
    // The elements that decode belong to the present stream.
    reconnect();
    return;
  }
  const bool wasSubscribed = std::exchange(isSubscribed_, true);
  if (isNew) {
    makeStream(csrc);
  } else if (!wasSubscribed && isVideoShown()) {
    showVideo();
  }
  tracks_ = {.audio = audioSsrcOf(offer).value_or(0),
             .video = stream_->csrc(),
             .repeatedVideo = repetitionSsrcOf(offer, stream_->csrc()).value_or(0)};
  askForWanted();
  connection_->acceptOffer(offer, [this](const std::string& sdp) { answer(sdp); });
}

// The lowest layer that is enough: what it has too much is reduced when it has arrived.
Participant::Wanted Participant::wanted() const {
  Wanted wanted = {.audio = incoming_.audio, .video = incoming_.video && reception_.isWanted};
  const auto& heights = feed_.layerHeights;
  if (heights.size() < 2 || !wanted.video) return wanted;
  wanted.layer = kHighestLayer - static_cast<int>(layerFor(heights, mostHeight(reception_)));
  return wanted;
}

std::optional<Heights> Participant::receivedHeights() const {
  if (!wanted().video) return std::nullopt;
  const std::uint32_t height = mostHeight(reception_);
  return Heights{.least = height, .most = height};
}

void Participant::askForWanted() {
  if (kinds_.empty() || wanted() == asked_) return;
  asked_ = wanted();
  Json streams = Json::array();
  for (const auto& [mid, kind] : kinds_) {
    if (kind == "audio") {
      streams.push_back({{"mid", mid}, {"send", asked_.audio}});
    } else {
      streams.push_back({{"mid", mid}, {"send", asked_.video}, {"substream", asked_.layer}});
    }
  }
  handle_->ask({{"request", "configure"}, {"streams", std::move(streams)}}, std::nullopt, nullptr);
}

void Participant::answer(const std::string& sdp) {
  handle_->ask({{"request", "start"}}, Jsep{"answer", sdp}, [this](const JanusAnswer& answer) {
    if (answer.isError()) fail("the server refused an answer: " + answer.errorReason);
  });
}

void Participant::makeStream(std::uint32_t csrc) {
  notifyRemoved();
  stream_ = std::make_shared<support::VideoStream>(key_, csrc, context_.log);
  videoReceiver_ = std::make_shared<VideoReceiver>(stream_, pool_);
  videoReceiver_->setReception(reception_);
  changed_();
  videoReceiver_->setShowing(isVideoShown());
  if (isAnnounced_) notifyAdded();
}

void Participant::announce() {
  if (std::exchange(isAnnounced_, true)) return;
  if (stream_) notifyAdded();
}

support::Person Participant::person() const {
  return {.stream = key_,
          .csrc = csrc(),
          .guid = feed_.guid,
          .name = feed_.name,
          .audioMuted = isAudioMuted(),
          .videoMuted = isVideoMuted(),
          .speaking = speech_.isSpeaking() && !isAudioMuted()};
}

void Participant::notifyAdded() {
  isAdded_ = true;
  context_.streams.add(stream_);
  context_.notifier.notify(&INotifyCallback::NotifyStreamAdded, stream_->key(), stream_->csrc());
}

void Participant::notifyRemoved() {
  if (!std::exchange(isAdded_, false)) return;
  context_.streams.remove(stream_->key());
  context_.notifier.notify(&INotifyCallback::NotifyStreamRemoved, stream_->key(), stream_->csrc());
}

void Participant::update(const Feed& feed) {
  const bool wasVideoShown = isVideoShown();
  const bool sendsMore = feed.sendsMoreThan(feed_);
  // What the room has muted is told by events; not every list of publishers has it.
  auto moderatedMids = std::move(feed_.moderatedMids);
  feed_ = feed;
  feed_.moderatedMids = std::move(moderatedMids);
  askForWanted();
  if (isVideoShown() != wasVideoShown) showVideo();
  if (sendsMore) reconnect();
}

void Participant::moderate(const std::string& mid, bool isMuted) {
  const bool wasVideoShown = isVideoShown();
  if (isMuted) {
    feed_.moderatedMids.insert(mid);
  } else {
    feed_.moderatedMids.erase(mid);
  }
  if (isVideoShown() != wasVideoShown) showVideo();
}

void Participant::setIncoming(Incoming incoming) {
  if (incoming == incoming_) return;
  const bool wasVideoShown = isVideoShown();
  incoming_ = incoming;
  askForWanted();
  if (isVideoShown() != wasVideoShown) showVideo();
}

void Participant::receive(const support::Reception& reception) {
  if (reception == reception_) return;
  const bool wasVideoShown = isVideoShown();
  reception_ = reception;
  askForWanted();
  if (videoReceiver_) videoReceiver_->setReception(reception);
  if (wasVideoShown || isVideoShown()) showVideo();
}

bool Participant::sends(MediaType type) const {
  return type == MediaType::kVideo ? feed_.mids.contains(feed_.videoMid) && !isVideoMuted()
                                   : feed_.mids.contains(feed_.audioMid) && !isAudioMuted();
}

bool Participant::isMissing(MediaType type) {
  const support::Time now = context_.loop.now();
  return type == MediaType::kVideo ? videoArrival_.isMissing(now, wanted().video && sends(type))
                                   : audioArrival_.isMissing(now, wanted().audio && sends(type));
}

Traffic Participant::closeWindow(support::Time length) {
  Traffic traffic =
      meter_.closeWindow(length, connection_ ? connection_->counts() : RtpCounts(), tracks_,
                         videoReceiver_ ? videoReceiver_->decoded() : FrameCounts());
  traffic.audio.repaired = voice_->takeRepairedPackets();
  return traffic;
}

void Participant::showVideo() {
  if (!videoReceiver_) return;
  videoReceiver_->setShowing(isVideoShown());
  if (!isAdded_) return;
  context_.notifier.notify(&INotifyCallback::NotifyStreamUpdated, stream_->key(), stream_->csrc());
}

void Participant::receive(GstPad* pad) {
  const CapsPtr caps(gst_pad_get_current_caps(pad));
  const GstStructure* const format = caps ? gst_caps_get_structure(caps.get(), 0) : nullptr;
  const char* const media = format ? gst_structure_get_string(format, "media") : nullptr;
  const char* const encoding = format ? gst_structure_get_string(format, "encoding-name") : nullptr;
  GstElement* bin = nullptr;
  const bool isVideo = media && std::string_view(media) == "video";
  // The connection ends before this object does.
  handleBuffers(pad, [this, &arrival = isVideo ? videoArrival_ : audioArrival_] {
    arrival.arrived(context_.loop.now());
  });
  if (isVideo && encoding) {
    bin = videoReceiver_->makeDecoder(encoding);
  } else if (media && encoding && std::string_view(media) == "audio" &&
             std::string_view(encoding) == "OPUS") {
    bin = voice_->makeDecoder();
  }
  if (!bin) bin = makeBin("fakesink sync=false async=false");
  connection_->addReceiver(bin, pad);
}

}  // namespace webrtc
