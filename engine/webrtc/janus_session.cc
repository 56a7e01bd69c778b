#include "engine/webrtc/janus_session.h"

#include <utility>

namespace webrtc {
namespace {

using namespace std::chrono_literals;

constexpr support::Time kKeepAlivePeriod = 5s;
// A server that says nothing for so long, not even to what keeps the session alive, has gone.
constexpr support::Time kLongestSilence = 15s;

std::uint64_t identifierAt(const Json& object, const char* name) {
  const Json& member = memberOf(object, name);
  return member.is_number_unsigned() ? member.get<std::uint64_t>() : 0;
}

std::optional<Jsep> jsepOf(const Json& message) {
  const Json& jsep = memberOf(message, "jsep");
  if (!jsep.is_object()) return std::nullopt;
  return Jsep{textAt(jsep, "type"), textAt(jsep, "sdp")};
}

// The plugin's own part of a message.
const Json& dataOf(const Json& message) {
  return memberOf(memberOf(message, "plugindata"), "data");
}

JanusAnswer failure(const Json& error) {
  // An error without a code is one all the same.
  const auto code = static_cast<int>(numberAt(error, "code"));
  return {code == 0 ? -1 : code, textAt(error, "reason"), {}, {}};
}

JanusAnswer pluginAnswer(const Json& message) {
  const Json& data = dataOf(message);
  return {static_cast<int>(numberAt(data, "error_code")), textAt(data, "error"), data,
          jsepOf(message)};
}

JanusSession::End sessionEnd(WebSocket::End end) {
  switch (end) {
    case WebSocket::End::kUnreachable:
      return JanusSession::End::kUnreachable;
    case WebSocket::End::kCertificateRefused:
      return JanusSession::End::kCertificateRefused;
    case WebSocket::End::kNotAWebSocket:
      return JanusSession::End::kNotAnSfu;
    case WebSocket::End::kClosed:
      break;
  }
  return JanusSession::End::kLost;
}

}  // namespace

JanusSession::JanusSession(support::TaskLoop& loop, WebSocketTarget target, std::string token,
                           std::uint64_t replaced, Handlers handlers)
    : token_(std::move(token)),
      replaced_(replaced),
      handlers_(std::move(handlers)),
      inbox_(loop),
      keepAliveTimer_(loop),
      lastHeardAt_(loop.now()) {
  const auto post = inbox_.poster();
  socket_ = std::make_unique<WebSocket>(
      std::move(target),
      WebSocket::Handlers{.opened = [this, post] { post([this] { opened(); }); },
                          .received =
                              [this, post](std::string text) {
                                post([this, kept = std::move(text)] { received(kept); });
                              },
                          .ended =
                              [this, post](WebSocket::End end, std::string reason) {
                                post([this, end, kept = std::move(reason)] {
                                  this->end(sessionEnd(end), kept);
                                });
                              }});
}

JanusSession::~JanusSession() {
  ended_ = true;
  if (id_ != 0) request("destroy", Json::object(), nullptr);
}

void JanusSession::request(const char* janus, Json message, Reply reply) {
  const std::string transaction = std::to_string(++lastTransaction_);
  message["janus"] = janus;
  message["transaction"] = transaction;
  if (id_ != 0) message["session_id"] = id_;
  if (!token_.empty()) message["token"] = token_;
  if (reply) pending_.emplace(transaction, std::move(reply));
  // Texts of the application's that are not UTF-8 are mended rather than thrown at it.
  socket_->send(message.dump(-1, ' ', false, Json::error_handler_t::replace));
}

void JanusSession::opened() {
  if (replaced_ != 0) request("destroy", {{"session_id", replaced_}}, nullptr);
  request("create", Json::object(), [this](const JanusAnswer& answer) {
    if (answer.isError()) {
      end(End::kRefused, answer.errorReason);
      return;
    }
    id_ = identifierAt(answer.data, "id");
    if (id_ == 0) {
      end(End::kNotAnSfu, "the server made a session without an identifier");
      return;
    }
    keepAlive();
    handlers_.opened();
  });
}

void JanusSession::keepAlive() {
  const support::Time now = inbox_.loop().now();
  if (now - lastHeardAt_ > kLongestSilence) {
    end(End::kLost, "the server does not answer");
    return;
  }
  request("keepalive", Json::object(), nullptr);
  keepAliveTimer_.runAt(now + kKeepAlivePeriod, [this] { keepAlive(); });
}

void JanusSession::received(const std::string& text) {
  if (ended_) return;
  lastHeardAt_ = inbox_.loop().now();
  const Json message = Json::parse(text, nullptr, false);
  const std::string kind = textAt(message, "janus");
  const std::string transaction = textAt(message, "transaction");
  if (kind == "ack") return;  // the answer follows
  if (kind == "success") {
    // A plugin answers some requests at once.
    const bool isOfPlugin = message.contains("plugindata");
    answer(transaction,
           isOfPlugin ? pluginAnswer(message) : JanusAnswer{0, {}, memberOf(message, "data"), {}});
  } else if (kind == "error") {
    answer(transaction, failure(memberOf(message, "error")));
  } else if (kind == "event" && pending_.contains(transaction)) {
    answer(transaction, pluginAnswer(message));
  } else if (kind == "timeout") {
    end(End::kLost, "the server ended the session");
  } else if (const auto found = handles_.find(identifierAt(message, "sender"));
             found != handles_.end()) {
    found->second->received(kind, message);
  } else if (kind.empty()) {
    end(End::kNotAnSfu, "the server does not speak the protocol");
  }
}

void JanusSession::answer(const std::string& transaction, const JanusAnswer& answer) {
  const auto found = pending_.find(transaction);
  if (found == pending_.end()) return;
  const Reply reply = std::move(found->second);
  pending_.erase(found);
  reply(answer);
}

void JanusSession::end(End end, const std::string& reason) {
  if (std::exchange(ended_, true)) return;
  keepAliveTimer_.stop();
  handlers_.ended(end, reason);
}

JanusHandle::JanusHandle(JanusSession& session, Handlers handlers)
    : session_(session), handlers_(std::move(handlers)) {}

JanusHandle::~JanusHandle() {
  if (id_ == 0) return;
  request("detach", Json::object(), nullptr);
  session_.handles_.erase(id_);
}

void JanusHandle::attach(const char* plugin, JanusSession::Reply reply) {
  const std::weak_ptr<const void> alive = alive_;
  session_.request(
      "attach", {{"plugin", plugin}},
      [this, alive, &session = session_, kept = std::move(reply)](const JanusAnswer& answer) {
        const std::uint64_t id = identifierAt(answer.data, "id");
        if (alive.expired()) {
          // Nobody wants it any more.
          if (id != 0) session.request("detach", {{"handle_id", id}}, nullptr);
          return;
        }
        // Without an identifier every request is refused.
        if (!answer.isError() && id != 0) {
          id_ = id;
          session_.handles_[id] = this;
        }
        kept(answer);
      });
}

void JanusHandle::ask(Json body, const std::optional<Jsep>& jsep, JanusSession::Reply reply) {
  Json message = {{"body", std::move(body)}};
  if (jsep) message["jsep"] = {{"type", jsep->type}, {"sdp", jsep->sdp}};
  request("message", std::move(message), std::move(reply));
}

void JanusHandle::trickle(unsigned mediaLine, const std::string& candidate) {
  request("trickle", {{"candidate", {{"sdpMLineIndex", mediaLine}, {"candidate", candidate}}}},
          nullptr);
}

void JanusHandle::trickleEnd() {
  request("trickle", {{"candidate", {{"completed", true}}}}, nullptr);
}

void JanusHandle::request(const char* janus, Json message, JanusSession::Reply reply) {
  message["handle_id"] = id_;
  if (!reply) {
    session_.request(janus, std::move(message), nullptr);
    return;
  }
  const std::weak_ptr<const void> alive = alive_;
  session_.request(janus, std::move(message),
                   [alive, kept = std::move(reply)](const JanusAnswer& answer) {
                     if (!alive.expired()) kept(answer);
                   });
}

void JanusHandle::received(const std::string& kind, const Json& message) {
  if (kind == "event") {
    handlers_.event(dataOf(message), jsepOf(message));
  } else if (kind == "trickle") {
    handlers_.trickle(memberOf(message, "candidate"));
  } else if (kind == "hangup") {
    handlers_.hungUp(textAt(message, "reason"));
  }
}

}  // namespace webrtc
