#include "engine/webrtc/publisher.h"

#include <utility>

#include "engine/webrtc/audio_level.h"
#include "engine/webrtc/feed.h"

namespace webrtc {
namespace {

// As kVideoMid.
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
                         if (video_) video_->start();
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
      videoPlace_(
          connection_.addPlace(VideoSender::formats(settings.videoSsrc, settings.isLayered))),
      audio_(connection_, settings.state.isAudioMuted) {}

void Publisher::start() {
  connection_.start();
  connection_.makeOffer([this](const std::string& offer) { publish(offer); });
}

void Publisher::publish(const std::string& offer) {
  told_ = descriptions();
  handle_.ask({{"request", "publish"}, {"descriptions", told_}}, Jsep{"offer", offer},
              [this](const JanusAnswer& answer) {
                if (answer.isError()) {
                  handlers_.refused(answer.errorCode, answer.errorReason);
                } else if (!answer.jsep) {
                  handlers_.failed("the server did not answer the offer");
                } else {
                  isAccepted_ = true;
                  connection_.acceptAnswer(answer.jsep->sdp);
                  addVideo(answer.jsep->sdp);
                  tellState();
                }
              });
}

void Publisher::addVideo(const std::string& answer) {
  const std::string encoding = videoEncodingOf(answer);
  if (!VideoSender::canEncode(encoding)) return;
  const bool isLayered =
      settings_.isLayered && VideoSender::canLayer(encoding) && acceptsLayers(answer);
  video_ = std::make_shared<VideoSender>(
      connection_, videoPlace_.get(), encoding, settings_.isLayered,
      VideoSender::Settings{
          .ssrc = settings_.videoSsrc,
          .isLayered = isLayered,
          .mostBitsPerSecond = settings_.mostBitsPerSecond,
          .pool = settings_.pool,
          .formatChanged = [this, post = inbox_.poster()](const VideoSender::Format& format) {
            post([this, format] { setFormat(format); });
          }});
  video_->setLowerLayers(areLowerLayersUsed_);
}

void Publisher::setFormat(const VideoSender::Format& format) {
  format_ = format;
  tellState();
}

void Publisher::setLowerLayers(bool areUsed) {
  areLowerLayersUsed_ = areUsed;
  if (video_) video_->setLowerLayers(areUsed);
}

void Publisher::setState(const OwnState& state) {
  state_ = state;
  audio_.setMuted(state.isAudioMuted);
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

void Publisher::read(GstMessage* message) const {
  const auto level = levelOf(message);
  if (level) inbox_.poster()([this, level] { handlers_.heard(*level); });
}

Json Publisher::descriptions() const {
  const auto description = [](const char* mid, const Json& state) {
    return Json{{"mid", mid},
                {"description", state.dump(-1, ' ', false, Json::error_handler_t::replace)}};
  };
  const Json audio = {{"guid", state_.guid}, {"muted", state_.isAudioMuted}};
  Json video = {{"guid", state_.guid},
                {"muted", state_.isVideoMuted},
                {"usesLowerLayers", state_.usesLowerLayers}};
  if (format_.sizes.size() > 1) {
    video["rate"] = format_.framesPerSecond;
    for (const auto& size : format_.sizes) video["layers"].push_back(size.height);
  }
  return Json::array({description(kVideoMid, video), description(kAudioMid, audio)});
}

}  // namespace webrtc
