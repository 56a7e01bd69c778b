#include "engine/webrtc/turn_servers.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

namespace webrtc {
namespace {

tsl::TurnServerInfo server(const std::string& protocol, const std::string& address,
                           std::int32_t port = 3478) {
  tsl::TurnServerInfo info;
  info.protocol = protocol;
  info.address = address;
  info.port = port;
  info.username = "a user";
  info.password = "p@ss";
  return info;
}

std::string refusalOf(const tsl::TurnServerInfo& info) {
  try {
    return turnUriOf(info);
  } catch (const std::invalid_argument& error) {
    return error.what();
  }
}

TEST(TurnServers, HaveAUri) {
  gst_init(nullptr, nullptr);
  const std::vector<std::tuple<std::string, std::string, std::string>> uris = {
      {"udp", "192.0.2.1", "192.0.2.1:3478?transport=udp"},
      {"UDP", "relay.example", "relay.example:3478?transport=udp"},
      {"tcp", "192.0.2.1", "192.0.2.1:3478?transport=tcp"},
      {"TLS", "192.0.2.1", "192.0.2.1:3478?transport=tcp"},
      {"udp", "2001:db8::1", "[2001:db8::1]:3478?transport=udp"},
      {"udp", "[2001:db8::1]", "[2001:db8::1]:3478?transport=udp"},
  };
  for (const auto& [protocol, address, uri] : uris) {
    const std::string made = turnUriOf(server(protocol, address));
    EXPECT_EQ(made, "turn://a%20user:p%40ss@" + uri);
    GstUri* const parsed = gst_uri_from_string_escaped(made.c_str());
    ASSERT_NE(parsed, nullptr) << made;
    EXPECT_EQ(gst_uri_get_port(parsed), 3478U);
    gst_uri_unref(parsed);
  }
}

TEST(TurnServers, MustHaveAKnownProtocolAnAddressAndAPort) {
  for (const char* const protocol : {"", "turns", "tls ", "dtls"}) {
    EXPECT_EQ(refusalOf(server(protocol, "192.0.2.1")), "the protocol is none of udp, tcp and tls");
  }
  for (const char* const address :
       {"", "a b", "relay/path", "relay?x", "me@relay", "caf\xc3\xa9"}) {
    EXPECT_EQ(refusalOf(server("udp", address)), "the address is invalid") << address;
  }
  for (const std::int32_t port : {0, -1, 65'536}) {
    EXPECT_EQ(refusalOf(server("tcp", "192.0.2.1", port)), "the port is invalid");
  }
}

}  // namespace
}  // namespace webrtc
