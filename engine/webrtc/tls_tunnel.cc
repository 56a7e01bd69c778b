#include "engine/webrtc/tls_tunnel.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <charconv>
#include <filesystem>
#include <memory>
#include <utility>

#include "engine/webrtc/call_end.h"
#include "engine/webrtc/certificate.h"

namespace webrtc {
namespace {

using NameOf = int (*)(int, sockaddr*, socklen_t*);

bool hasName(int socket, NameOf nameOf, const sockaddr_in& expected) {
  sockaddr_in name = {};
  socklen_t size = sizeof name;
  return nameOf(socket, reinterpret_cast<sockaddr*>(&name), &size) == 0 &&
         name.sin_family == AF_INET && name.sin_port == expected.sin_port &&
         name.sin_addr.s_addr == expected.sin_addr.s_addr;
}

// Whether the other end of this connection over the loopback interface is a socket of this process.
bool isOfThisProcess(GSocketConnection* connection) {
  const int socket = g_socket_get_fd(g_socket_connection_get_socket(connection));
  sockaddr_in own = {};
  sockaddr_in other = {};
  socklen_t ownSize = sizeof own;
  socklen_t otherSize = sizeof other;
  if (getsockname(socket, reinterpret_cast<sockaddr*>(&own), &ownSize) != 0 ||
      getpeername(socket, reinterpret_cast<sockaddr*>(&other), &otherSize) != 0) {
    return false;
  }
  std::error_code error;
  const std::filesystem::directory_iterator end;
  for (std::filesystem::directory_iterator entry("/proc/self/fd", error); !error && entry != end;
       entry.increment(error)) {
    const std::string name = entry->path().filename();
    int each = -1;
    std::from_chars(name.data(), name.data() + name.size(), each);
    if (hasName(each, getsockname, other) && hasName(each, getpeername, own)) return true;
  }
  return false;
}

// Packets of media are small and do not wait for each other.
void sendAtOnce(GSocketConnection* connection) {
  g_socket_set_option(g_socket_connection_get_socket(connection), IPPROTO_TCP, TCP_NODELAY, 1,
                      nullptr);
}

std::string reasonOf(const GError& error) {
  if (g_error_matches(&error, G_TLS_ERROR, G_TLS_ERROR_BAD_CERTIFICATE) != FALSE) {
    return "its certificate is refused";
  }
  return std::string("it cannot be reached: ") + error.message;
}

}  // namespace

struct TlsTunnel::Passage {
  TlsTunnel& tunnel;
  const ObjectPtr<GSocketConnection> near;
  ObjectPtr<GIOStream> far = {};

  ~Passage() { --tunnel.pending_; }
};

TlsTunnel::TlsTunnel(Relay relay, Failed failed)
    : relay_(std::move(relay)),
      failed_(std::move(failed)),
      context_(g_main_context_new()),
      listener_(g_socket_listener_new()),
      identity_(g_network_address_new(relay_.name.c_str(), relay_.port)),
      cancellable_(g_cancellable_new()),
      client_(g_socket_client_new()) {
  const ObjectPtr<GInetAddress> loopback(g_inet_address_new_loopback(G_SOCKET_FAMILY_IPV4));
  const ObjectPtr<GSocketAddress> wanted(g_inet_socket_address_new(loopback.get(), 0));
  GSocketAddress* raw = nullptr;
  GError* raised = nullptr;
  g_socket_listener_add_address(listener_.get(), wanted.get(), G_SOCKET_TYPE_STREAM,
                                G_SOCKET_PROTOCOL_TCP, nullptr, &raw, &raised);
  const ObjectPtr<GSocketAddress> bound(raw);
  const ErrorPtr error(raised);
  if (!bound) throw CallFailure(kEngineFailed, "no tunnel to a TURN server: " + textOf(error));
  port_ = g_inet_socket_address_get_port(G_INET_SOCKET_ADDRESS(bound.get()));
  worker_.start([this] { run(); });
}

TlsTunnel::~TlsTunnel() {
  runOn(context_.get(), [this] { g_cancellable_cancel(cancellable_.get()); });
  worker_.finish();
  // GLib keeps those of the handshakes for a while, in case that somebody needs one again.
  g_thread_pool_stop_unused_threads();
}

void TlsTunnel::run() {
  g_main_context_push_thread_default(context_.get());
  // Reads the system's authorities, while the call asks for its room: libnice does not wait long.
  const ObjectPtr<GTlsDatabase> authorities(
      g_tls_backend_get_default_database(g_tls_backend_get_default()));
  // Media would not pass a proxy either.
  g_socket_client_set_enable_proxy(client_.get(), FALSE);
  accept();
  while (pending_ > 0) g_main_context_iteration(context_.get(), TRUE);
  g_main_context_pop_thread_default(context_.get());
}

void TlsTunnel::accept() {
  ++pending_;
  g_socket_listener_accept_async(listener_.get(), cancellable_.get(), &TlsTunnel::accepted, this);
}

void TlsTunnel::accepted(GObject* listener, GAsyncResult* result, gpointer tunnel) {
  auto& self = *static_cast<TlsTunnel*>(tunnel);
  --self.pending_;
  GError* raised = nullptr;
  ObjectPtr<GSocketConnection> connection(g_socket_listener_accept_finish(
      reinterpret_cast<GSocketListener*>(listener), result, nullptr, &raised));
  const ErrorPtr error(raised);
  if (!connection) {
    self.fail(reasonOf(*error));
    return;
  }
  if (isOfThisProcess(connection.get())) self.carry(std::move(connection));
  self.accept();
}

void TlsTunnel::carry(ObjectPtr<GSocketConnection> connection) {
  sendAtOnce(connection.get());
  ++pending_;
  const ObjectPtr<GSocketConnectable> address(
      g_network_address_new(relay_.host.c_str(), relay_.port));
  g_socket_client_connect_async(client_.get(), address.get(), cancellable_.get(),
                                &TlsTunnel::connected, new Passage{*this, std::move(connection)});
}

void TlsTunnel::connected(GObject* client, GAsyncResult* result, gpointer passage) {
  std::unique_ptr<Passage> self(static_cast<Passage*>(passage));
  TlsTunnel& tunnel = self->tunnel;
  GError* raised = nullptr;
  const ObjectPtr<GSocketConnection> plain(
      g_socket_client_connect_finish(reinterpret_cast<GSocketClient*>(client), result, &raised));
  if (plain) {
    sendAtOnce(plain.get());
    self->far.reset(
        g_tls_client_connection_new(G_IO_STREAM(plain.get()), tunnel.identity_.get(), &raised));
  }
  const ErrorPtr error(raised);
  if (!self->far) {
    tunnel.fail(reasonOf(*error));
    return;
  }
  connect(self->far.get(), "accept-certificate",
          std::function([&tunnel](GTlsCertificate* certificate, GTlsCertificateFlags errors) {
            return static_cast<gboolean>(isTrusted(certificate, errors, tunnel.identity_.get(),
                                                   tunnel.relay_.authorityFile));
          }));
  auto* const far = G_TLS_CONNECTION(self->far.get());
  g_tls_connection_handshake_async(far, G_PRIORITY_DEFAULT, tunnel.cancellable_.get(),
                                   &TlsTunnel::secured, self.release());
}

void TlsTunnel::secured(GObject* far, GAsyncResult* result, gpointer passage) {
  std::unique_ptr<Passage> self(static_cast<Passage*>(passage));
  TlsTunnel& tunnel = self->tunnel;
  GError* raised = nullptr;
  const bool isSecured = g_tls_connection_handshake_finish(reinterpret_cast<GTlsConnection*>(far),
                                                           result, &raised) != FALSE;
  const ErrorPtr error(raised);
  if (!isSecured) {
    tunnel.fail(reasonOf(*error));
    return;
  }
  auto* const near = G_IO_STREAM(self->near.get());
  constexpr int kBothClosed = G_IO_STREAM_SPLICE_CLOSE_STREAM1 | G_IO_STREAM_SPLICE_CLOSE_STREAM2;
  g_io_stream_splice_async(near, reinterpret_cast<GIOStream*>(far),
                           static_cast<GIOStreamSpliceFlags>(kBothClosed), G_PRIORITY_DEFAULT,
                           tunnel.cancellable_.get(), &TlsTunnel::ended, self.release());
}

void TlsTunnel::ended(GObject*, GAsyncResult*, gpointer passage) {
  delete static_cast<Passage*>(passage);
}

void TlsTunnel::fail(const std::string& reason) {
  if (g_cancellable_is_cancelled(cancellable_.get()) != FALSE) return;
  if (std::exchange(hasFailed_, true)) return;
  failed_(reason);
}

}  // namespace webrtc
