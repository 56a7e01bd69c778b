// A way to a TURN server over TLS, for those who speak no TLS.

#ifndef ENGINE_WEBRTC_TLS_TUNNEL_H_
#define ENGINE_WEBRTC_TLS_TUNNEL_H_

#include <gio/gio.h>

#include <cstdint>
#include <functional>
#include <string>

#include "engine/support/worker.h"
#include "engine/webrtc/glib.h"

namespace webrtc {

// Listens on the loopback interface, and carries each connection on to the relay through a TLS
// connection of its own, from the construction to the destruction, on a GLib thread of its own.
// Owned by those who describe TURN servers to WebRTC connections; belongs to the engine's thread.
//
// Any user of this machine can connect to the port. Only this process's own connections are carried
// on. Others would gain nothing by it, since the relay asks each connection for the password, but
// they could use up this process's descriptors.
class TlsTunnel {
 public:
  struct Relay {
    std::string host;  // an address or a name
    std::uint16_t port = 0;
    std::string name;  // whose certificate it is to have
    // PEM certificates that are trusted beside the system's; may be empty.
    std::string authorityFile;
  };

  // Called once, when a connection to the relay did not come about, on the GLib thread: it is to
  // post what it got.
  using Failed = std::function<void(std::string reason)>;

  // Listens. Throws CallFailure when the system has no port.
  TlsTunnel(Relay relay, Failed failed);
  // Ends all connections and the thread. Never waits for the network.
  ~TlsTunnel();
  TlsTunnel(const TlsTunnel&) = delete;
  TlsTunnel& operator=(const TlsTunnel&) = delete;

  // Of 127.0.0.1.
  std::uint16_t port() const { return port_; }

 private:
  // A connection to the port, until it has ended.
  struct Passage;

  void run();
  void accept();
  void carry(ObjectPtr<GSocketConnection> connection);
  void fail(const std::string& reason);
  // What GLib calls back, on the thread.
  static void accepted(GObject* listener, GAsyncResult* result, gpointer tunnel);
  static void connected(GObject* client, GAsyncResult* result, gpointer passage);
  static void secured(GObject* far, GAsyncResult* result, gpointer passage);
  static void ended(GObject* connection, GAsyncResult* result, gpointer passage);

  const Relay relay_;
  const Failed failed_;
  const ContextPtr context_;
  const ObjectPtr<GSocketListener> listener_;
  const ObjectPtr<GSocketConnectable> identity_;
  std::uint16_t port_ = 0;

  // Those of the GLib thread.
  const ObjectPtr<GCancellable> cancellable_;
  const ObjectPtr<GSocketClient> client_;
  bool hasFailed_ = false;
  int pending_ = 0;  // passages, and the wait for the next one

  support::Worker worker_;
};

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_TLS_TUNNEL_H_
