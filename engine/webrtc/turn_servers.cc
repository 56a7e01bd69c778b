#include "engine/webrtc/turn_servers.h"

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace webrtc {
namespace {

std::string escaped(const std::string& text) {
  return TextPtr(g_uri_escape_string(text.c_str(), nullptr, FALSE)).get();
}

std::string hostOf(const tsl::TurnServerInfo& server) {
  return server.address.empty() ? server.fqdn : server.address;
}

std::string authorityOf(const std::string& host, std::int32_t port) {
  const bool isIpv6 = host.find(':') != std::string::npos && !host.starts_with('[');
  return (isIpv6 ? '[' + host + ']' : host) + ':' + std::to_string(port);
}

std::string nameOf(const tsl::TurnServerInfo& server) {
  return authorityOf(hostOf(server), server.port);
}

enum class Protocol { kUdp, kTcp, kTls };

Protocol protocolOf(const tsl::TurnServerInfo& server) {
  const TextPtr name(g_ascii_strdown(server.protocol.c_str(), -1));
  const std::string_view protocol = name.get();
  if (protocol == "udp") return Protocol::kUdp;
  if (protocol == "tcp") return Protocol::kTcp;
  if (protocol == "tls") return Protocol::kTls;
  throw std::invalid_argument("the protocol is none of udp, tcp and tls");
}

std::string turnUri(const tsl::TurnServerInfo& server, const std::string& authority,
                    const char* transport) {
  return "turn://" + escaped(server.username) + ':' + escaped(server.password) + '@' + authority +
         "?transport=" + transport;
}

bool isHost(const std::string& host) {
  return !host.empty() && std::all_of(host.begin(), host.end(), [](char character) {
    return character > ' ' && character < 0x7f &&
           std::string_view("\"%/<>?@\\^`{|}#").find(character) == std::string_view::npos;
  });
}

}  // namespace

std::string turnUriOf(const tsl::TurnServerInfo& server) {
  const Protocol protocol = protocolOf(server);
  if (!isHost(hostOf(server))) throw std::invalid_argument("the address is invalid");
  if (server.port < 1 || server.port > UINT16_MAX) {
    throw std::invalid_argument("the port is invalid");
  }
  return turnUri(server, nameOf(server), protocol == Protocol::kUdp ? "udp" : "tcp");
}

TurnServers::TurnServers(support::EngineContext& context, const tsl::ConnectParams& params,
                         const std::string& authorityFile, std::function<void()> unusable)
    : log_(*context.log), unusable_(std::move(unusable)), inbox_(context.loop) {
  ice_.isRelayForced = params.forceTurn;
  for (const auto& server : params.turnServers) {
    try {
      add(server, authorityFile);
    } catch (const std::invalid_argument& error) {
      logUnused(nameOf(server), error.what());
    }
  }
}

void TurnServers::add(const tsl::TurnServerInfo& server, const std::string& authorityFile) {
  std::string uri = turnUriOf(server);
  if (protocolOf(server) == Protocol::kTls) {
    addTunnel(server, authorityFile);
  } else {
    ice_.turnServers.push_back(std::move(uri));
  }
}

// libnice has no TLS: it would send to such a server in the clear.
void TurnServers::addTunnel(const tsl::TurnServerInfo& server, const std::string& authorityFile) {
  tunnels_.push_back(std::make_unique<TlsTunnel>(
      TlsTunnel::Relay{.host = hostOf(server),
                       .port = static_cast<std::uint16_t>(server.port),
                       .name = server.fqdn.empty() ? server.address : server.fqdn,
                       .authorityFile = authorityFile},
      [this, name = nameOf(server), post = inbox_.poster()](const std::string& reason) {
        post([this, name, reason] { tunnelFailed(name, reason); });
      }));
  ice_.turnServers.push_back(
      turnUri(server, authorityOf("127.0.0.1", tunnels_.back()->port()), "tcp"));
}

void TurnServers::tunnelFailed(const std::string& server, const std::string& reason) {
  logUnused(server, reason);
  ++failed_;
  if (ice_.isRelayForced && failed_ == ice_.turnServers.size()) unusable_();
}

void TurnServers::logUnused(const std::string& server, const std::string& reason) const {
  log_.write("the TURN server " + server + " is not used: " + reason);
}

}  // namespace webrtc
