#include "engine/webrtc/content_room.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "engine/support/streams/stream_keys.h"

namespace webrtc {
namespace {

constexpr const char* kPlugin = "janus.plugin.videoroom";
// Who has this identity in the room may present.
constexpr const char* kPresenterName = "presenter";
constexpr int kPresenterNumber = 1;
constexpr const char* kSuffix = "-content";
// Numbers of rooms stay exact in a browser.
constexpr std::uint64_t kNumberOffset = 1'000'000'000'000'000;
constexpr const char* kDescription = "content of a meeting";
constexpr int kMostAttempts = 4;
// Enough for text in 1920x1080.
constexpr std::uint32_t kMostBitsPerSecond = 3'000'000;

// The room plugin's own codes.
constexpr int kJanusNoSuchRoom = 426;
constexpr int kJanusRoomExists = 427;
constexpr int kJanusIdExists = 436;

// The room for the content of this meeting; null when it can have none.
Json contentRoomOf(const Json& meeting) {
  if (meeting.is_string()) return meeting.get<std::string>() + kSuffix;
  const auto number = meeting.get<std::uint64_t>();
  return number < kNumberOffset ? Json(kNumberOffset + number) : Json();
}

}  // namespace

ContentRoom::ContentRoom(support::EngineContext& context, std::shared_ptr<support::FramePool> pool,
                         JanusSession& session, Speaker& speaker, const IceOptions& ice,
                         Settings settings, std::function<void()> changed)
    : context_(context),
      pool_(std::move(pool)),
      session_(session),
      speaker_(speaker),
      ice_(ice),
      settings_(std::move(settings)),
      changed_(std::move(changed)),
      isReceiving_(settings_.isReceiving),
      room_({{"room", contentRoomOf(settings_.meeting)}}),
      inbox_(context.loop) {
  if (!settings_.pin.empty()) room_["pin"] = settings_.pin;
  inTurn([this] { enter(); });
}

ContentRoom::~ContentRoom() {
  removePresenter();
  dropToken();
}

void ContentRoom::inTurn(std::function<void()> task) {
  waiting_.push_back(std::move(task));
  if (!isBusy_) endTurn();
}

void ContentRoom::later(std::function<void()> task) {
  inbox_.poster()([this, task = std::move(task)] { inTurn(task); });
}

void ContentRoom::endTurn() {
  isBusy_ = false;
  while (!isBusy_ && !waiting_.empty()) {
    isBusy_ = true;
    const auto task = std::move(waiting_.front());
    waiting_.pop_front();
    task();
  }
}

Json ContentRoom::joinRequest() const {
  Json request = room_;
  request["request"] = "join";
  request["ptype"] = "publisher";
  if (!settings_.token.empty()) request["token"] = settings_.token;
  return request;
}

void ContentRoom::enter() {
  if (room_["room"].is_null()) return giveUp("the room's number is too large");
  listener_ = std::make_unique<JanusHandle>(
      session_,
      JanusHandle::Handlers{
          .event = [this](const Json& data, const std::optional<Jsep>&) { received(data); },
          .trickle = [](const Json&) {},
          .hungUp = [](const std::string&) {}});
  listener_->attach(kPlugin, [this](const JanusAnswer& answer) {
    if (answer.isError()) {
      giveUp(answer.errorReason);
    } else {
      join();
    }
  });
}

void ContentRoom::join() {
  ++attempts_;
  listener_->ask(joinRequest(), std::nullopt,
                 [this](const JanusAnswer& answer) { joined(answer); });
}

void ContentRoom::joined(const JanusAnswer& answer) {
  if (answer.errorCode == kJanusNoSuchRoom && attempts_ < kMostAttempts) return create();
  if (answer.isError()) return giveUp(answer.errorReason);
  attempts_ = 0;
  isThere_ = true;
  // Ties our subscription to us.
  room_["private_id"] = memberOf(answer.data, "private_id");
  addPresenters(answer.data);
  endTurn();
}

void ContentRoom::create() {
  // Only the server's administrator can give a room a list of tokens.
  if (!settings_.token.empty() && settings_.pin.empty()) {
    return giveUp("the server has no room for it, and a new one would be open to everybody");
  }
  Json request = {{"request", "create"},         {"room", room_["room"]},
                  {"description", kDescription}, {"permanent", false},
                  {"is_private", true},          {"publishers", 1},
                  {"require_pvtid", true},       {"bitrate", kMostBitsPerSecond},
                  {"videocodec", "vp8,h264"}};
  if (!settings_.pin.empty()) request["pin"] = settings_.pin;
  listener_->ask(std::move(request), std::nullopt, [this](const JanusAnswer& answer) {
    if (answer.isError() && answer.errorCode != kJanusRoomExists) {
      giveUp("the server creates no room for it: " + answer.errorReason);
    } else {
      join();
    }
  });
}

void ContentRoom::giveUp(const std::string& reason) {
  isThere_ = false;
  context_.log->write("no content can be shared: " + reason);
  endTurn();
}

void ContentRoom::received(const Json& data) {
  if (textAt(data, "videoroom") == "destroyed") {
    later([this] {
      isThere_ = false;
      removePresenter();
      dropToken();
      enter();
    });
    return;
  }
  addPresenters(data);
  for (const char* const gone : {"unpublished", "leaving"}) {
    const Json& id = memberOf(data, gone);
    if (id == "ok" && textAt(data, "reason") == "kicked") {
      later([this] {
        removePresenter();
        dropToken();
        giveUp("the call was removed from the content's room");
      });
    } else if (presenter_ && id == presenter_->id) {
      removePresenter();
    }
  }
}

void ContentRoom::addPresenters(const Json& data) {
  for (const Json& publisher : listAt(data, "publishers")) {
    const auto feed = parseFeed(publisher);
    if (!feed || feed->presenter == settings_.ownId.dump()) continue;
    if (presenter_ && presenter_->id == feed->id) {
      content_->update(*feed);
      continue;
    }
    if (presenter_ || presentation_) {
      context_.log->write("somebody presents who has no token");
      continue;
    }
    try {
      content_ =
          std::make_unique<Participant>(context_, pool_, session_, speaker_, ice_, room_, *feed,
                                        support::kContentStream, incomingOf(isReceiving_), [] {});
    } catch (const std::exception& error) {
      context_.log->write(std::string("the content cannot be received: ") + error.what());
      continue;
    }
    presenter_ = feed;
    context_.notifier.notify(&INotifyCallback::NotifyContentReceiveStatus, true, presenter_->guid);
    content_->announce();
    changed_();
  }
}

void ContentRoom::removePresenter() {
  if (!presenter_) return;
  content_.reset();
  const auto gone = std::exchange(presenter_, std::nullopt);
  context_.notifier.notify(&INotifyCallback::NotifyContentReceiveStatus, false, gone->guid);
  changed_();
}

void ContentRoom::requestToken() {
  inTurn([this] {
    if (isThere_ && !presenter_ && !hasToken_) return askForToken();
    report(hasToken_ ? ShareStatus::kTokenGranted : ShareStatus::kTokenDenied);
    endTurn();
  });
}

void ContentRoom::askForToken() {
  token_ = std::make_unique<JanusHandle>(
      session_,
      JanusHandle::Handlers{
          .event = [this](const Json& data, const std::optional<Jsep>&) { tokenReceived(data); },
          .trickle = [](const Json&) {},
          .hungUp = [](const std::string&) {}});
  token_->attach(kPlugin, [this](const JanusAnswer& attached) {
    if (attached.isError()) return tokenAnswered(attached);
    Json request = joinRequest();
    if (room_["room"].is_string()) {
      request["id"] = kPresenterName;
    } else {
      request["id"] = kPresenterNumber;
    }
    token_->ask(std::move(request), std::nullopt,
                [this](const JanusAnswer& answer) { tokenAnswered(answer); });
  });
}

void ContentRoom::tokenAnswered(const JanusAnswer& answer) {
  // Somebody may present without the token.
  hasToken_ = !answer.isError() && listAt(answer.data, "publishers").empty();
  if (answer.isError() && answer.errorCode != kJanusIdExists) {
    context_.log->write("the token cannot be requested: " + answer.errorReason);
  }
  if (!hasToken_) token_.reset();
  report(hasToken_ ? ShareStatus::kTokenGranted : ShareStatus::kTokenDenied);
  endTurn();
}

void ContentRoom::tokenReceived(const Json& data) {
  // The room's end is told to the listener as well.
  if (memberOf(data, "leaving") != "ok" || textAt(data, "reason") != "kicked") return;
  later([this] {
    dropToken();
    endTurn();
  });
}

void ContentRoom::releaseToken() {
  inTurn([this] {
    if (!hasToken_) return endTurn();
    endPresentation();
    // Once it is said to be free, somebody else gets it.
    token_->ask({{"request", "leave"}}, std::nullopt, [this](const JanusAnswer&) {
      dropToken();
      endTurn();
    });
  });
}

void ContentRoom::dropToken() {
  if (!std::exchange(hasToken_, false)) return;
  endPresentation();
  token_.reset();
  report(ShareStatus::kTokenRelinquished);
}

void ContentRoom::start(const tsl::ContentShareParams& params) {
  inTurn([this, params] {
    if (hasToken_ && !presenter_) return beginPresentation(params);
    // Somebody may present without the token.
    report(hasToken_ ? ShareStatus::kFailed : ShareStatus::kDenied);
    endTurn();
  });
}

void ContentRoom::beginPresentation(const tsl::ContentShareParams& params) {
  if (presentation_) return presentation_->change(params);
  presentation_ = std::make_unique<Presentation>(
      context_, pool_, session_, ice_,
      Presentation::Settings{
          .joinRequest = joinRequest(),
          .name = settings_.name,
          .guid = settings_.guid,
          .presenter = settings_.ownId,
          .mostBitsPerSecond = std::min(settings_.mostBitsPerSecond, kMostBitsPerSecond)},
      params,
      Presentation::Handlers{.started =
                                 [this] {
                                   report(ShareStatus::kStarted);
                                   changed_();
                                   endTurn();
                                 },
                             .notChanged =
                                 [this] {
                                   report(ShareStatus::kFailed);
                                   endTurn();
                                 },
                             .ended =
                                 [this] {
                                   const bool wasPending = presentation_->isPending();
                                   if (wasPending && presentation_->isStarted())
                                     report(ShareStatus::kFailed);
                                   endPresentation();
                                   if (wasPending) endTurn();
                                 }});
}

void ContentRoom::stop() {
  inTurn([this] {
    endPresentation();
    endTurn();
  });
}

void ContentRoom::endPresentation() {
  if (!presentation_) return;
  const bool wasStarted = presentation_->isStarted();
  presentation_.reset();
  report(wasStarted ? ShareStatus::kStopped : ShareStatus::kFailed);
  changed_();
}

void ContentRoom::setReceiving(bool isReceiving) {
  isReceiving_ = isReceiving;
  if (content_) content_->setIncoming(incomingOf(isReceiving));
}

bool ContentRoom::isPresenting(const std::string& key) const {
  if (presentation_ && presentation_->isStarted() && key == settings_.ownId.dump()) return true;
  return presenter_ && presenter_->presenter == key;
}

bool ContentRoom::isMissing() { return content_ && content_->isMissing(MediaType::kVideo); }

ContentTraffic ContentRoom::closeWindow(support::Time length) {
  ContentTraffic traffic;
  if (presentation_) traffic.sent = presentation_->closeWindow(length);
  if (content_) traffic.received = content_->closeWindow(length);
  return traffic;
}

void ContentRoom::report(ShareStatus status) {
  context_.notifier.notify(&INotifyCallback::NotifyScreenShareStatus, status);
}

}  // namespace webrtc
