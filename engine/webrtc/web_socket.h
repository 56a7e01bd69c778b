// A WebSocket connection to a server.

#ifndef ENGINE_WEBRTC_WEB_SOCKET_H_
#define ENGINE_WEBRTC_WEB_SOCKET_H_

#include <functional>
#include <memory>
#include <string>

#include "engine/support/worker.h"
#include "engine/webrtc/glib.h"

namespace webrtc {

// Where to connect, and as what.
struct WebSocketTarget {
  std::string url;            // ws or wss
  std::string protocol;       // the subprotocol that is spoken
  std::string authorityFile;  // PEM certificates that are trusted beside the system's; may be empty
};

// One connection on a GLib thread of its own, from the construction to the destruction. Its owner
// calls it from one thread. The handlers run on the GLib thread: they are to post what they got.
class WebSocket {
 public:
  enum class End {
    kUnreachable,         // no connection came about
    kCertificateRefused,  // the server is not the one that it says it is
    kNotAWebSocket,       // the server speaks something else, or another subprotocol
    kClosed,              // an open connection ended
  };

  struct Handlers {
    std::function<void()> opened;
    std::function<void(std::string text)> received;
    // Called at most once, and last.
    std::function<void(End end, std::string reason)> ended;
  };

  WebSocket(WebSocketTarget target, Handlers handlers);
  // Hands what was sent to the system, closes, and ends the thread. Never waits for the server.
  ~WebSocket();
  WebSocket(const WebSocket&) = delete;
  WebSocket& operator=(const WebSocket&) = delete;

  // Dropped when the connection is not open.
  void send(std::string text);

 private:
  class Connection;

  // Runs `task` on the GLib thread.
  void run();

  const WebSocketTarget target_;
  const Handlers handlers_;
  const ContextPtr context_;
  const MainLoopPtr loop_;
  Connection* connection_ = nullptr;  // belongs to the GLib thread
  support::Worker worker_;
};

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_WEB_SOCKET_H_
