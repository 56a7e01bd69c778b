#include "engine/embedded/content_share.h"

#include <algorithm>
#include <utility>

#include "engine/embedded/identity.h"
#include "engine/embedded/random.h"
#include "engine/support/card_source.h"
#include "engine/support/stream_keys.h"

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

std::unique_ptr<support::PictureSource> film(const MeetingPlan& plan, const Subject& subject) {
  const support::CardSubject card = {support::kContentStream,
                                     support::contentDetail(subject.kind, subject.id),
                                     subject.title, hueOf(plan.seed, support::kContentStream)};
  return std::make_unique<support::CardSource>(card, kContentSize);
}

}  // namespace

ContentShare::ContentShare(EngineParts& parts, const MeetingPlan& plan, bool isReceiving)
    : parts_(parts), plan_(plan), isReceiving_(isReceiving) {}

void ContentShare::requestToken() {
  if (!holder_) holder_ = kMyself;
  report(holder_ == kMyself ? ShareStatus::kTokenGranted : ShareStatus::kTokenDenied);
}

void ContentShare::releaseToken() {
  if (holder_ != kMyself) return;
  stop();
  holder_.reset();
  report(ShareStatus::kTokenRelinquished);
}

void ContentShare::start(const tsl::ContentShareParams& params) {
  if (holder_ != kMyself) {
    report(ShareStatus::kDenied);
    return;
  }
  const auto subject = subjectOf(params, parts_.monitors.get().size());
  if (!subject) {
    report(ShareStatus::kFailed);
    return;
  }
  parts_.log->write("sharing " + subject->title);
  if (sender_) {
    sender_->change(film(plan_, *subject), 0);
    notifyUpdate();
  } else {
    addStream({0, 0});
    sender_->start(film(plan_, *subject), kContentRate, 0);
  }
  report(ShareStatus::kStarted);
}

void ContentShare::stop() {
  if (holder_ != kMyself || !sender_) return;
  removeStream();
  report(ShareStatus::kStopped);
}

void ContentShare::present(int participant, bool isCut) {
  if (holder_) {
    parts_.log->write("participant " + std::to_string(participant) + " gets no token");
    return;
  }
  constexpr std::uint64_t kContentLossUse = 22;
  holder_ = participant;
  isCut_ = isCut;
  parts_.notifier.notify(&INotifyCallback::NotifyContentReceiveStatus, true,
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
  parts_.notifier.notify(&INotifyCallback::NotifyContentReceiveStatus, false,
                         guidOf(plan_.seed, participant));
}

void ContentShare::setCut(int participant, bool isCut) {
  if (holder_ != participant || isCut == isCut_) return;
  isCut_ = isCut;
  if (updateReception()) notifyUpdate();
  parts_.notifier.notify(&INotifyCallback::NotifyRtpMediaState, MediaType::kContent, !isCut);
}

void ContentShare::setReceiving(bool isReceiving) {
  isReceiving_ = isReceiving;
  if (updateReception()) notifyUpdate();
}

void ContentShare::end() {
  if (holder_ && holder_ != kMyself) stopPresenting(*holder_);
  releaseToken();
}

void ContentShare::addStream(LossyLink link) {
  const auto silence = [] { return 0U; };
  auto stream = std::make_shared<support::VideoStream>(
      support::kContentStream, csrcOf(plan_.seed, support::kContentStream), parts_.log);
  sender_ = std::make_unique<Sender>(parts_, stream, link, silence);
  parts_.streams.add(stream);
  parts_.notifier.notify(&INotifyCallback::NotifyStreamAdded, support::kContentStream,
                         stream->csrc());
}

void ContentShare::removeStream() {
  const std::uint32_t csrc = sender_->stream()->csrc();
  sender_.reset();
  parts_.streams.remove(support::kContentStream);
  parts_.notifier.notify(&INotifyCallback::NotifyStreamRemoved, support::kContentStream, csrc);
}

bool ContentShare::updateReception() {
  const bool isWanted = holder_ && holder_ != kMyself && isReceiving_ && !isCut_;
  if (isWanted == std::exchange(isReceived_, isWanted)) return false;
  if (isWanted) {
    const Subject shown = subject(support::ContentKind::kParticipant, "SHARE OF REMOTE", *holder_);
    sender_->start(film(plan_, shown), kContentRate, 0);
  } else {
    sender_->stop();
  }
  return true;
}

void ContentShare::notifyUpdate() {
  parts_.notifier.notify(&INotifyCallback::NotifyStreamUpdated, support::kContentStream,
                         sender_->stream()->csrc());
}

void ContentShare::report(ShareStatus status) {
  parts_.notifier.notify(&INotifyCallback::NotifyScreenShareStatus, status);
}

}  // namespace embedded
