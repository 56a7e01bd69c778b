#include "engine/webrtc/publisher.h"

#include <utility>

#include "engine/webrtc/audio_level.h"
#include "engine/webrtc/feed.h"

namespace webrtc {
namespace {

// webrtcbin names its media lines after their kind and place.
constexpr const char* kVideoMid = "video0";
constexpr const char* kAudioMid = "audio1";

}  // namespace

Publisher::Publisher(support::TaskLoop& loop, JanusHandle& handle, const IceOptions& ice,
                     const Settings& settings, Handlers handlers)
    : handle_(handle),
      settings_(settings),
      handlers_(std::move(handlers)),
      state_(settings.state),
      inbox_(loop),
      connection_(loop, ice,
                  {.candidate =
                       [this](unsigned mediaLine, const std::string& candidate) {
                         handle_.trickle(mediaLine, candidate);
                       },
                   .allCandidatesFound = [this] { handle_.trickleEnd(); },
                   .connected =
                       [this] {
                         connection_.watchGrantedRate();
                         if (video_) video_->start();
                         handlers_.connected();
                       },
                   .failed = [this](const std::string& reason) { handlers_.failed(reason); },
                   .receiving = nullptr,
                   .told = [this](GstMessage* message) { read(message); }}),
      videoPlace_(connection_.addPlace(VideoSender::formats(settings.videoSsrc))) {
  if (!isContent()) audio_.emplace(connection_, settings.state.isAudioMuted);
}

std::optional<MediaType> Publisher::typeOf(const std::string& mid) {
  if (mid == kVideoMid) return MediaType::kVideo;
  if (mid == kAudioMid) return MediaType::kAudio;
  return std::nullopt;
}

void Publisher::start() {
  connection_.start();
  connection_.makeOffer([this](const std::string& offer) { publish(offer); });
}

void Publisher::publish(const std::string& offer) {
  repeatedVideoSsrc_ = repetitionSsrcOf(offer, settings_.videoSsrc).value_or(0);
  toldState_ = state_;
  handle_.ask({{"request", "publish"}, {"descriptions", descriptions()}}, Jsep{"offer", offer},
              [this](const JanusAnswer& answer) {
                if (answer.isError()) {
                  handlers_.refused(answer.errorCode, answer.errorReason);
                } else if (!answer.jsep) {
                  handlers_.failed("the server did not answer the offer");
                } else {
                  isAccepted_ = true;
                  handlers_.accepted();
                  connection_.acceptAnswer(answer.jsep->sdp);
                  addVideo(videoEncodingOf(answer.jsep->sdp));
                  tellState();
                }
              });
}

void Publisher::addVideo(const std::string& encoding) {
  if (!VideoSender::canEncode(encoding)) return;
  video_ = std::make_shared<VideoSender>(connection_, videoPlace_.get(), encoding,
                                         settings_.videoSsrc, settings_.mostBitsPerSecond);
  if (isContent()) video_->keepDetails();
}

void Publisher::setState(const OwnState& state) {
  state_ = state;
  if (audio_) audio_->setMuted(state.isAudioMuted);
  tellState();
}

void Publisher::tellState() {
  // What changes while the offer is on its way is told once it was accepted.
  if (!isAccepted_ || state_ == toldState_) return;
  toldState_ = state_;
  handle_.ask({{"request", "configure"}, {"descriptions", descriptions()}}, std::nullopt, nullptr);
}

Traffic Publisher::closeWindow(support::Time length) {
  return meter_.closeWindow(length, connection_.counts(),
                            {.audio = audio_ ? audio_->ssrc() : 0,
                             .video = settings_.videoSsrc,
                             .repeatedVideo = repeatedVideoSsrc_},
                            video_ ? video_->encoded() : FrameCounts());
}

void Publisher::read(GstMessage* message) const {
  const auto level = levelOf(message);
  if (level) inbox_.poster()([this, level] { handlers_.heard(*level); });
}

Json Publisher::descriptions() const {
  const auto description = [this](const char* mid, bool isMuted) {
    Json state = {{"guid", state_.guid}, {"muted", isMuted}};
    if (isContent()) state["presenter"] = settings_.presenter;
    return Json{{"mid", mid},
                {"description", state.dump(-1, ' ', false, Json::error_handler_t::replace)}};
  };
  Json all = Json::array({description(kVideoMid, state_.isVideoMuted)});
  if (audio_) all.push_back(description(kAudioMid, state_.isAudioMuted));
  return all;
}

}  // namespace webrtc
