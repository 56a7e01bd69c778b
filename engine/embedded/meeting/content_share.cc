#include "engine/embedded/meeting/content_share.h"

#include <algorithm>
#include <utility>

#include "engine/embedded/random.h"
#include "engine/embedded/streams/identity.h"
#include "engine/support/pictures/card_source.h"
#include "engine/support/streams/stream_keys.h"

namespace embedded {
namespace {

constexpr support::Size kContentSize = {1280, 720};
constexpr support::FrameRate kContentRate = {15, 1};

// What the content's card says.
struct Subject {
  support::ContentKind kind = support::ContentKind::kParticipant;
  std::uint32_t id = 0;
  std::string title;
};

Subject subject(support::ContentKind kind, const std::string& name, std::int32_t id) {
  return {kind, static_cast<std::uint32_t>(id), name + ' ' + std::to_string(id)};
}

// Nothing when there is no such thing to share. Screens are those that are listed, the first one
// when none is named; which applications and windows there are is the desktop's business.
std::optional<Subject> subjectOf(const tsl::ContentShareParams& params, std::size_t screens) {
  switch (params.type) {
    case tsl::ShareType::kScreen: {
      const std::int32_t id = params.screenId == -1 ? 0 : params.screenId;
      if (id < 0 || static_cast<std::size_t>(id) >= screens) return std::nullopt;
      return subject(support::ContentKind::kScreen, "SCREEN", id);
    }
    case tsl::ShareType::kApplication:
      if (params.applicationId < 0) return std::nullopt;
      return subject(support::ContentKind::kApplication, "APPLICATION", params.applicationId);
    case tsl::ShareType::kWindow:
      if (params.windowId < 0) return std::nullopt;
      return subject(support::ContentKind::kWindow, "WINDOW", params.windowId);
  }
  return std::nullopt;
}

std::unique_ptr<support::PictureSource> cardOf(const MeetingPlan& plan, const Subject& subject) {
  const support::CardSubject card = {support::kContentStream,
                                     support::contentDetail(subject.kind, subject.id),
                                     subject.title, hueOf(plan.seed, support::kContentStream)};
  return std::make_unique<support::CardSource>(card, kContentSize);
}

}  // namespace

ContentShare::ContentShare(const StreamMaker& streams, support::Notifier& notifier,
                           std::shared_ptr<const support::Log> log,
                           const support::Published<std::vector<tsl::ScreenMonitor>>& monitors,
                           const MeetingPlan& plan, bool isReceiving)
    : streams_(streams),
      notifier_(notifier),
      log_(std::move(log)),
      monitors_(monitors),
      plan_(plan),
      isReceiving_(isReceiving) {}

void ContentShare::requestToken() {
  if (!holder_) holder_ = kLocalParticipant;
  report(holder_ == kLocalParticipant ? ShareStatus::kTokenGranted : ShareStatus::kTokenDenied);
}

void ContentShare::releaseToken() {
  if (holder_ != kLocalParticipant) return;
  stop();
  holder_.reset();
  report(ShareStatus::kTokenRelinquished);
}

void ContentShare::start(const tsl::ContentShareParams& params) {
  if (holder_ != kLocalParticipant) {
    report(ShareStatus::kDenied);
    return;
  }
  const auto subject = subjectOf(params, monitors_.get().size());
  if (!subject) {
    report(ShareStatus::kFailed);
    return;
  }
  log_->write("sharing " + subject->title);
  if (stream_) {
    stream_->sender().change(cardOf(plan_, *subject), 0);
    stream_->notifyUpdated();
  } else {
    addStream({0, 0});
    stream_->sender().start(cardOf(plan_, *subject), kContentRate, 0);
  }
  report(ShareStatus::kStarted);
}

void ContentShare::stop() {
  if (holder_ != kLocalParticipant || !stream_) return;
  removeStream();
  report(ShareStatus::kStopped);
}

void ContentShare::present(int participant, bool isCut) {
  if (holder_) {
    log_->write("participant " + std::to_string(participant) + " gets no token");
    return;
  }
  constexpr std::uint64_t kContentLossUse = 22;
  holder_ = participant;
  isCut_ = isCut;
  notifier_.notify(&INotifyCallback::NotifyContentReceiveStatus, true,
                   guidOf(plan_.seed, participant));
  const std::uint64_t seed =
      chance(plan_.seed, kContentLossUse, static_cast<std::uint64_t>(participant));
  addStream({plan_.lossOf(participant), seed});
  updateReception();
}

void ContentShare::stopPresenting(int participant) {
  if (holder_ != participant) return;
  isReceived_ = false;
  removeStream();
  holder_.reset();
  notifier_.notify(&INotifyCallback::NotifyContentReceiveStatus, false,
                   guidOf(plan_.seed, participant));
}

void ContentShare::setCut(int participant, bool isCut) {
  if (holder_ != participant || isCut == isCut_) return;
  isCut_ = isCut;
  if (updateReception()) stream_->notifyUpdated();
  notifier_.notify(&INotifyCallback::NotifyRtpMediaState, MediaType::kContent, !isCut);
}

void ContentShare::setReceiving(bool isReceiving) {
  isReceiving_ = isReceiving;
  if (updateReception()) stream_->notifyUpdated();
}

void ContentShare::end() {
  if (holder_ && holder_ != kLocalParticipant) stopPresenting(*holder_);
  releaseToken();
}

void ContentShare::addStream(LossyLink link) {
  const auto silence = [] { return 0U; };
  stream_ = streams_.make(support::kContentStream, csrcOf(plan_.seed, support::kContentStream),
                          link, silence);
  stream_->addToTable();
  stream_->notifyAdded();
}

void ContentShare::removeStream() {
  const auto removed = std::move(stream_);
  removed->removeFromTable();
  removed->notifyRemoved();
}

bool ContentShare::updateReception() {
  const bool isWanted = holder_ && holder_ != kLocalParticipant && isReceiving_ && !isCut_;
  if (isWanted == std::exchange(isReceived_, isWanted)) return false;
  if (isWanted) {
    const Subject shown = subject(support::ContentKind::kParticipant, "SHARE OF REMOTE", *holder_);
    stream_->sender().start(cardOf(plan_, shown), kContentRate, 0);
  } else {
    stream_->sender().stop();
  }
  return true;
}

void ContentShare::report(ShareStatus status) {
  notifier_.notify(&INotifyCallback::NotifyScreenShareStatus, status);
}

}  // namespace embedded
