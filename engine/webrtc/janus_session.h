// A session with a Janus server, and the handles to its plugins.

#ifndef ENGINE_WEBRTC_JANUS_SESSION_H_
#define ENGINE_WEBRTC_JANUS_SESSION_H_

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "engine/support/task_loop.h"
#include "engine/webrtc/inbox.h"
#include "engine/webrtc/janus_message.h"
#include "engine/webrtc/web_socket.h"

namespace webrtc {

class JanusHandle;

// Asks a server over one WebSocket, and hands out what it answers and tells. Owned by a call;
// belongs to the engine's thread, on which all handlers run. Handlers may end the call, and with it
// the session, only by posting.
class JanusSession {
 public:
  enum class End {
    kUnreachable,         // no connection came about
    kCertificateRefused,  // the server is not the one that it says it is
    kNotAnSfu,            // the server speaks something else
    kRefused,             // the server makes no session for us
    kLost,                // the session is over
  };

  struct Handlers {
    std::function<void()> opened;
    // Called at most once.
    std::function<void(End end, std::string reason)> ended;
  };

  using Reply = std::function<void(const JanusAnswer& answer)>;

  // `token` is what the server asks of all requests, if it asks for one. `replaced` is the
  // identifier of a session of ours that was lost, or 0: the server, which may not know of the
  // loss, ends it first.
  JanusSession(support::TaskLoop& loop, WebSocketTarget target, std::string token,
               std::uint64_t replaced, Handlers handlers);
  // Ends the session at the server, without waiting for it.
  ~JanusSession();
  JanusSession(const JanusSession&) = delete;
  JanusSession& operator=(const JanusSession&) = delete;

  // At the server; 0 until it has made the session.
  std::uint64_t id() const { return id_; }

 private:
  friend class JanusHandle;

  // Sends a request of the kind `janus`, with its further members. `reply` may be empty.
  void request(const char* janus, Json message, Reply reply);
  void opened();
  void received(const std::string& text);
  void answer(const std::string& transaction, const JanusAnswer& answer);
  void end(End end, const std::string& reason);
  void keepAlive();

  const std::string token_;
  const std::uint64_t replaced_;
  const Handlers handlers_;
  Inbox inbox_;
  support::Timer keepAliveTimer_;
  std::uint64_t id_ = 0;
  std::uint64_t lastTransaction_ = 0;
  support::Time lastHeardAt_ = {};
  bool ended_ = false;
  std::map<std::string, Reply> pending_;           // by transaction
  std::map<std::uint64_t, JanusHandle*> handles_;  // by their identifiers at the server
  std::unique_ptr<WebSocket> socket_;              // last: its handlers use the rest
};

// What a plugin of the server does for us. Owned by whoever uses it, who outlives none of its
// session; belongs to the engine's thread.
class JanusHandle {
 public:
  struct Handlers {
    // What the plugin tells without having been asked.
    std::function<void(const Json& data, const std::optional<Jsep>& jsep)> event;
    // A candidate of the server's, or that there are no more of them.
    std::function<void(const Json& candidate)> trickle;
    // The server gave up the media.
    std::function<void(std::string reason)> hungUp;
  };

  JanusHandle(JanusSession& session, Handlers handlers);
  // Gives the handle up at the server.
  ~JanusHandle();
  JanusHandle(const JanusHandle&) = delete;
  JanusHandle& operator=(const JanusHandle&) = delete;

  // Called first; `reply` is given before anything else may be asked.
  void attach(const char* plugin, JanusSession::Reply reply);
  // The reply is what the plugin answers, which may be an error.
  void ask(Json body, const std::optional<Jsep>& jsep, JanusSession::Reply reply);
  // A candidate of ours, in the form of a browser's.
  void trickle(unsigned mediaLine, const std::string& candidate);
  void trickleEnd();

 private:
  friend class JanusSession;

  void request(const char* janus, Json message, JanusSession::Reply reply);
  void received(const std::string& kind, const Json& message);

  JanusSession& session_;
  const Handlers handlers_;
  std::uint64_t id_ = 0;  // at the server; 0 until attached
  // Replies that come after the handle has gone are dropped.
  const std::shared_ptr<const void> alive_ = std::make_shared<char>();
};

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_JANUS_SESSION_H_
