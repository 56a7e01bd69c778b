#include "engine/webrtc/web_socket.h"

#include <libsoup/soup.h>

#include <array>
#include <utility>

#include "engine/webrtc/certificate.h"

namespace webrtc {
namespace {

// A room with hundreds of participants still fits into one message.
constexpr guint64 kLargestMessage = guint64{4} << 20;

constexpr guint16 kUsualPort = 443;

// Without waiting.
void runReady(GMainContext* context) {
  while (g_main_context_iteration(context, FALSE)) {
  }
}

WebSocket::End endOf(const GError& error) {
  if (g_error_matches(&error, G_TLS_ERROR, G_TLS_ERROR_BAD_CERTIFICATE)) {
    return WebSocket::End::kCertificateRefused;
  }
  const bool isProtocol =
      error.domain == SOUP_WEBSOCKET_ERROR || error.domain == SOUP_SESSION_ERROR;
  return isProtocol ? WebSocket::End::kNotAWebSocket : WebSocket::End::kUnreachable;
}

}  // namespace

// What lives on the GLib thread.
class WebSocket::Connection {
 public:
  Connection(const WebSocketTarget& target, const Handlers& handlers)
      : target_(target),
        handlers_(handlers),
        session_(soup_session_new()),
        cancellable_(g_cancellable_new()) {}
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  void open();
  void send(const std::string& text);
  // What was sent goes before the closing.
  void close(GMainContext* context);

 private:
  static void opened(GObject* session, GAsyncResult* result, gpointer data);
  void adopt(SoupWebsocketConnection* socket);
  void end(End end, const std::string& reason);

  const WebSocketTarget& target_;
  const Handlers& handlers_;
  const ObjectPtr<SoupSession> session_;
  const ObjectPtr<GCancellable> cancellable_;
  ObjectPtr<SoupMessage> request_;
  ObjectPtr<GSocketConnection> tcp_;  // below any encryption
  ObjectPtr<SoupWebsocketConnection> socket_;
  bool isOpening_ = false;
  bool ended_ = false;
};

void WebSocket::Connection::open() {
  // Media would not pass a proxy either.
  soup_session_set_proxy_resolver(session_.get(), nullptr);
  request_.reset(soup_message_new("GET", target_.url.c_str()));
  if (!request_) {
    end(End::kUnreachable, "the address is not one");
    return;
  }
  connect(request_.get(), "accept-certificate",
          std::function([this](GTlsCertificate* certificate, GTlsCertificateFlags errors) {
            const ObjectPtr<GSocketConnectable> server(
                g_network_address_parse_uri(target_.url.c_str(), kUsualPort, nullptr));
            return static_cast<gboolean>(
                isTrusted(certificate, errors, server.get(), target_.authorityFile));
          }));
  connect(request_.get(), "network-event",
          std::function([this](GSocketClientEvent event, GIOStream* stream) {
            if (event == G_SOCKET_CLIENT_CONNECTED) tcp_ = share(G_SOCKET_CONNECTION(stream));
          }));
  isOpening_ = true;
  std::array<char*, 2> protocols = {const_cast<char*>(target_.protocol.c_str()), nullptr};
  soup_session_websocket_connect_async(session_.get(), request_.get(), nullptr, protocols.data(),
                                       G_PRIORITY_DEFAULT, cancellable_.get(), &Connection::opened,
                                       this);
}

void WebSocket::Connection::opened(GObject* session, GAsyncResult* result, gpointer data) {
  GError* raised = nullptr;
  auto* const socket = soup_session_websocket_connect_finish(
      reinterpret_cast<SoupSession*>(session), result, &raised);
  const ErrorPtr error(raised);
  auto& self = *static_cast<Connection*>(data);
  self.isOpening_ = false;
  if (socket) {
    self.adopt(socket);
  } else {
    self.end(endOf(*error), error->message);
  }
}

void WebSocket::Connection::adopt(SoupWebsocketConnection* socket) {
  socket_.reset(socket);
  if (ended_) return;
  const char* const protocol = soup_websocket_connection_get_protocol(socket);
  if (!protocol || target_.protocol != protocol) {
    end(End::kNotAWebSocket, "the server does not speak the protocol");
    return;
  }
  soup_websocket_connection_set_max_incoming_payload_size(socket, kLargestMessage);
  connect(socket, "message", std::function([this](int type, GBytes* message) {
            if (type != SOUP_WEBSOCKET_DATA_TEXT) return;
            gsize size = 0;
            const auto* const bytes = static_cast<const char*>(g_bytes_get_data(message, &size));
            handlers_.received({bytes, size});
          }));
  connect(socket, "closed",
          std::function([this] { end(End::kClosed, "the server closed the connection"); }));
  handlers_.opened();
}

void WebSocket::Connection::end(End end, const std::string& reason) {
  if (std::exchange(ended_, true)) return;
  handlers_.ended(end, reason);
}

void WebSocket::Connection::send(const std::string& text) {
  if (!socket_ || soup_websocket_connection_get_state(socket_.get()) != SOUP_WEBSOCKET_STATE_OPEN) {
    return;
  }
  soup_websocket_connection_send_text(socket_.get(), text.c_str());
}

void WebSocket::Connection::close(GMainContext* context) {
  ended_ = true;
  // What is cancelled ends without the network.
  g_cancellable_cancel(cancellable_.get());
  while (isOpening_) g_main_context_iteration(context, TRUE);
  if (socket_ && soup_websocket_connection_get_state(socket_.get()) == SOUP_WEBSOCKET_STATE_OPEN) {
    soup_websocket_connection_close(socket_.get(), SOUP_WEBSOCKET_CLOSE_NORMAL, nullptr);
  }
  runReady(context);
  if (!socket_) return;
  // What goes with the last reference closes the stream, and keeps the context until it has.
  const auto stream = share(soup_websocket_connection_get_io_stream(socket_.get()));
  socket_.reset();
  // A server that does not read what was sent would not read the end of the encryption either: to
  // wait for it would be to wait for the network.
  GSocket* const tcp = g_socket_connection_get_socket(tcp_.get());
  if ((g_socket_condition_check(tcp, G_IO_OUT) & G_IO_OUT) == 0) {
    g_socket_shutdown(tcp, TRUE, TRUE, nullptr);
  }
  while (!g_io_stream_is_closed(stream.get())) g_main_context_iteration(context, TRUE);
  runReady(context);
}

WebSocket::WebSocket(WebSocketTarget target, Handlers handlers)
    : target_(std::move(target)),
      handlers_(std::move(handlers)),
      context_(g_main_context_new()),
      loop_(g_main_loop_new(context_.get(), FALSE)) {
  worker_.start([this] { run(); });
}

WebSocket::~WebSocket() {
  runOn(context_.get(), [this] { g_main_loop_quit(loop_.get()); });
  worker_.finish();
}

void WebSocket::send(std::string text) {
  runOn(context_.get(), [this, kept = std::move(text)] {
    if (connection_) connection_->send(kept);
  });
}

void WebSocket::run() {
  g_main_context_push_thread_default(context_.get());
  {
    Connection connection(target_, handlers_);
    connection_ = &connection;
    connection.open();
    g_main_loop_run(loop_.get());
    connection.close(context_.get());
    connection_ = nullptr;
  }
  g_main_context_pop_thread_default(context_.get());
}

}  // namespace webrtc
