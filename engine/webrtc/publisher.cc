#include "engine/webrtc/publisher.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "engine/webrtc/audio_level.h"
#include "engine/webrtc/feed.h"

namespace webrtc {
namespace {

// webrtcbin names its media lines after their kind and place.
constexpr const char* kVideoMid = "video0";
constexpr const char* kAudioMid = "audio1";

std::vector<LayerSsrcs> chooseLowerLayers(bool isLayered) {
  std::vector<LayerSsrcs> lower(isLayered ? kMostLayers - 1 : 0);
  for (LayerSsrcs& layer : lower) layer = {g_random_int() | 1U, g_random_int() | 1U};
  return lower;
}

}  // namespace

Publisher::Publisher(support::TaskLoop& loop, JanusHandle& handle, const IceOptions& ice,
                     const Settings& settings, Handlers handlers)
    : handle_(handle),
      settings_(settings),
      handlers_(std::move(handlers)),
      lowerLayers_(chooseLowerLayers(settings.isLayered)),
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
                         connection_.watchFeedback();
                         if (video_) video_->start();
                         followUplink();
                         handlers_.connected();
                       },
                   .failed = [this](const std::string& reason) { handlers_.failed(reason); },
                   .receiving = nullptr,
                   .keyFrameRequested =
                       [this, post = inbox_.poster()](std::uint32_t ssrc) {
                         post([this, ssrc] {
                           if (video_) video_->requestKeyFrame(ssrc);
                         });
                       },
                   .told = [this](GstMessage* message) { read(message); }}),
      videoPlace_(connection_.addPlace(VideoSender::formats(settings.videoSsrc))),
      loop_(loop),
      rateTimer_(loop) {
  if (isContent()) {
    // Its receivers do not tell with which heights they receive it.
    received_ = Heights();
  } else {
    audio_.emplace(connection_, settings.state.isAudioMuted);
  }
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

void Publisher::publish(const std::string& madeOffer) {
  std::string offer = madeOffer;
  if (settings_.isLayered) {
    offer = withLowerLayers(offer, lowerLayers_);
    connection_.sendRepetitionsAs(repetitionSsrcs(offer));
  }
  repetitions_ = repetitionSsrcs(offer);
  told_ = descriptions();
  handle_.ask({{"request", "publish"}, {"descriptions", told_}}, Jsep{"offer", offer},
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
  std::vector<std::uint32_t> ssrcs = {settings_.videoSsrc};
  if (VideoSender::canLayer(encoding)) {
    for (const LayerSsrcs& layer : lowerLayers_) ssrcs.push_back(layer.video);
  }
  video_ = std::make_shared<VideoSender>(
      connection_, videoPlace_.get(), encoding,
      VideoSender::Settings{
          .ssrcs = std::move(ssrcs),
          .mostBitsPerSecond = settings_.mostBitsPerSecond,
          .pool = settings_.pool,
          .sizesChanged = [this, post = inbox_.poster()](const std::vector<support::Size>& sizes) {
            post([this, sizes] { setLayerSizes(sizes); });
          }});
  if (isContent()) video_->keepDetails();
  video_->setReceived(received_);
}

void Publisher::setLayerSizes(const std::vector<support::Size>& sizes) {
  layerSizes_ = sizes;
  tellState();
}

void Publisher::setReceived(const std::optional<Heights>& heights) {
  received_ = heights;
  if (video_) video_->setReceived(heights);
}

void Publisher::followUplink() {
  constexpr support::Time kPeriod = std::chrono::seconds(1);
  rateTimer_.runAt(loop_.now() + kPeriod, [this] { followUplink(); });
  const std::uint32_t wanted = video_ ? video_->wantedBitsPerSecond() : 0;
  if (wanted == 0) return;
  std::uint32_t most = std::min(settings_.mostBitsPerSecond, wanted);
  if (const auto granted = connection_.grantedBitsPerSecond()) most = std::min(most, granted);
  auto reports = connection_.counts().reports;
  std::erase_if(reports, [this](const auto& each) { return !repetitions_.contains(each.first); });
  video_->setMost(rate_.update(reports, most));
}

void Publisher::setState(const OwnState& state) {
  state_ = state;
  if (audio_) audio_->setMuted(state.isAudioMuted);
  tellState();
}

void Publisher::tellState() {
  // What changes while the offer is on its way is told once it was accepted.
  Json descriptions = this->descriptions();
  if (!isAccepted_ || descriptions == told_) return;
  told_ = descriptions;
  handle_.ask({{"request", "configure"}, {"descriptions", std::move(descriptions)}}, std::nullopt,
              nullptr);
}

Traffic Publisher::closeWindow(support::Time length) {
  const std::uint32_t ssrc = video_ ? video_->highestSsrc() : settings_.videoSsrc;
  const auto repeated = repetitions_.find(ssrc);
  Traffic traffic =
      meter_.closeWindow(length, connection_.counts(),
                         {.audio = audio_ ? audio_->ssrc() : 0,
                          .video = ssrc,
                          .repeatedVideo = repeated == repetitions_.end() ? 0 : repeated->second},
                         video_ ? video_->encoded() : FrameCounts());
  // Whichever layer it is, it is that stream's.
  traffic.videoSsrc = settings_.videoSsrc;
  return traffic;
}

void Publisher::read(GstMessage* message) const {
  const auto level = levelOf(message);
  if (level) inbox_.poster()([this, level] { handlers_.heard(*level); });
}

Json Publisher::descriptions() const {
  const auto description = [](const char* mid, const Json& state) {
    return Json{{"mid", mid},
                {"description", state.dump(-1, ' ', false, Json::error_handler_t::replace)}};
  };
  Json video = {{"guid", state_.guid}, {"muted", state_.isVideoMuted}};
  if (isContent()) {
    video["presenter"] = settings_.presenter;
    return Json::array({description(kVideoMid, video)});
  }
  video["receives"] = Json::array();
  if (const auto& heights = state_.received) video["receives"] = {heights->least, heights->most};
  if (layerSizes_.size() > 1) {
    for (const auto& size : layerSizes_) video["layers"].push_back(size.height);
  }
  const Json audio = {{"guid", state_.guid}, {"muted", state_.isAudioMuted}};
  return Json::array({description(kVideoMid, video), description(kAudioMid, audio)});
}

}  // namespace webrtc
