#include "engine/webrtc/presentation.h"

#include <chrono>
#include <utility>

#include "engine/support/streams/stream_keys.h"

namespace webrtc {
namespace {

// Of the server's answers and the way for media, together.
constexpr support::Time kLongestStart = std::chrono::seconds(15);

}  // namespace

Presentation::Presentation(support::EngineContext& context,
                           std::shared_ptr<support::FramePool> pool, JanusSession& session,
                           const IceOptions& ice, Settings settings,
                           const tsl::ContentShareParams& params, Handlers handlers)
    : context_(context),
      pool_(std::move(pool)),
      session_(session),
      ice_(ice),
      settings_(std::move(settings)),
      handlers_(std::move(handlers)),
      // 0 stands for no SSRC.
      stream_(std::make_shared<support::VideoStream>(support::kContentStream, g_random_int() | 1,
                                                     context.log)),
      timer_(context.loop),
      inbox_(context.loop) {
  capture(params);
}

Presentation::~Presentation() {
  next_.reset();
  capture_.reset();
  publisher_.reset();
  if (!isAdded_) return;
  context_.streams.remove(stream_->key());
  context_.notifier.notify(&INotifyCallback::NotifyStreamRemoved, stream_->key(), stream_->csrc());
}

void Presentation::change(const tsl::ContentShareParams& params) { capture(params); }

void Presentation::capture(const tsl::ContentShareParams& params) {
  const std::uint64_t number = ++lastCapture_;
  next_ = std::make_unique<ScreenCapture>(
      params, pool_, [this, number](const auto& frame) { show(number, frame); },
      [this, number, post = inbox_.poster()](const std::string& reason) {
        post([this, number, reason] { failed(number, reason); });
      });
}

void Presentation::show(std::uint64_t capture, const std::shared_ptr<support::Frame>& frame) {
  std::shared_ptr<VideoSender> sender;
  {
    base::MutexLock lock(mutex_);
    if (capture < shown_) return;
    if (capture > shown_) {
      shown_ = capture;
      inbox_.poster()([this] { captured(); });
    }
    frame->id = ++lastId_;
    sender = sender_;
  }
  frame->csrc = stream_->csrc();
  frame->capturedAt = context_.loop.now();
  stream_->publish(frame);
  if (sender) sender->send(frame);
}

void Presentation::captured() {
  capture_ = std::move(next_);
  capturing_ = lastCapture_;
  context_.log->write("presenting " + capture_->title());
  if (isStarted_) {
    context_.notifier.notify(&INotifyCallback::NotifyStreamUpdated, stream_->key(),
                             stream_->csrc());
    const auto started = handlers_.started;
    started();
    return;
  }
  isAdded_ = true;
  context_.streams.add(stream_);
  context_.notifier.notify(&INotifyCallback::NotifyStreamAdded, stream_->key(), stream_->csrc());
  timer_.runAt(context_.loop.now() + kLongestStart,
               [this] { end("the server did not take it in time"); });
  attach();
}

void Presentation::failed(std::uint64_t capture, const std::string& reason) {
  if (capture == capturing_ && next_) {
    // The next one may take its place.
    capture_.reset();
  } else if (capture == lastCapture_ && next_ && capture_) {
    next_.reset();
    context_.log->write("not presented: " + reason);
    const auto notChanged = handlers_.notChanged;
    notChanged();
  } else if (capture == lastCapture_ || capture == capturing_) {
    end(reason);
  }
}

void Presentation::attach() {
  const auto fail = [this](const std::string& reason) {
    // Not at once: who calls belongs to what ends.
    inbox_.poster()([this, reason] { end(reason); });
  };
  handle_.emplace(session_,
                  JanusHandle::Handlers{.event = [](const Json&, const std::optional<Jsep>&) {},
                                        .trickle =
                                            [this](const Json& candidate) {
                                              if (publisher_) publisher_->addCandidate(candidate);
                                            },
                                        .hungUp = fail});
  handle_->attach("janus.plugin.videoroom", [this, fail](const JanusAnswer& attached) {
    if (attached.isError()) return fail(attached.errorReason);
    Json request = settings_.joinRequest;
    request["display"] = settings_.name;
    handle_->ask(std::move(request), std::nullopt, [this, fail](const JanusAnswer& joined) {
      if (joined.isError()) {
        fail(joined.errorReason);
      } else {
        publish();
      }
    });
  });
}

void Presentation::publish() {
  const auto fail = [this](const std::string& reason) {
    inbox_.poster()([this, reason] { end(reason); });
  };
  publisher_.emplace(
      context_.loop, *handle_, ice_,
      Publisher::Settings{.videoSsrc = stream_->csrc(),
                          .mostBitsPerSecond = settings_.mostBitsPerSecond,
                          .pool = pool_,
                          .state = {.guid = settings_.guid, .received = std::nullopt},
                          .presenter = settings_.presenter},
      Publisher::Handlers{.accepted = [] {},
                          .connected = [this] { inbox_.poster()([this] { sent(); }); },
                          .refused = [fail](int, const std::string& reason) { fail(reason); },
                          .failed = fail,
                          .heard = [](unsigned) {}});
  publisher_->start();
}

void Presentation::sent() {
  // A connection that was interrupted is connected again.
  if (isStarted_) return;
  if (!publisher_->video()) return end("the room takes no video in an encoding of ours");
  timer_.stop();
  {
    base::MutexLock lock(mutex_);
    sender_ = publisher_->video();
  }
  isStarted_ = true;
  const auto started = handlers_.started;
  started();
}

void Presentation::end(const std::string& reason) {
  context_.log->write("presenting has ended: " + reason);
  const auto ended = handlers_.ended;
  ended();
}

Traffic Presentation::closeWindow(support::Time length) {
  return publisher_ ? publisher_->closeWindow(length) : Traffic();
}

}  // namespace webrtc
