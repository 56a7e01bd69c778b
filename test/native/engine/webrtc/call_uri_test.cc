#include "engine/webrtc/call_uri.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "engine/webrtc/call_end.h"

namespace webrtc {
namespace {

std::string refusalOf(const std::string& uri) {
  try {
    parseCallUri(uri);
  } catch (const CallFailure& failure) {
    EXPECT_EQ(failure.code(), kBadUri);
    return failure.what();
  }
  return "accepted";
}

TEST(CallUri, NamesAServerAndARoom) {
  const CallTarget target = parseCallUri("janus+ws://192.0.2.1:8188/janus?room=1234");
  EXPECT_EQ(target.url, "ws://192.0.2.1:8188/janus");
  EXPECT_EQ(target.room, "1234");
  EXPECT_EQ(target.pin, "");
  EXPECT_EQ(target.token, "");
  EXPECT_EQ(target.authorityFile, "");
  EXPECT_EQ(target.camera.kind, CameraSource::Kind::kDevice);
  EXPECT_EQ(target.microphone.kind, MicrophoneSource::Kind::kDevice);
}

TEST(CallUri, AcceptsSecureServersAndIpv6Addresses) {
  EXPECT_EQ(parseCallUri("janus+wss://sfu.example?room=a").url, "wss://sfu.example");
  EXPECT_EQ(parseCallUri("janus+ws://[2001:db8::1]:80/?room=a").url, "ws://[2001:db8::1]:80/");
}

TEST(CallUri, AcceptsAnyByteInAValue) {
  const CallTarget target =
      parseCallUri("janus+ws://h/?room=a%26b&pin=%3F%25&token=t&authority=%2Fa%20b.pem");
  EXPECT_EQ(target.room, "a&b");
  EXPECT_EQ(target.pin, "?%");
  EXPECT_EQ(target.token, "t");
  EXPECT_EQ(target.authorityFile, "/a b.pem");
}

TEST(CallUri, ReplacesTheCameraByACardOrAClip) {
  const auto camera = [](const std::string& value) {
    return parseCallUri("janus+ws://h/?room=r&camera=" + value).camera;
  };
  EXPECT_EQ(camera("card"), (CameraSource{CameraSource::Kind::kCard, 0, ""}));
  EXPECT_EQ(camera("card:16777215"), (CameraSource{CameraSource::Kind::kCard, 16777215, ""}));
  EXPECT_EQ(camera("a/b.y4m"), (CameraSource{CameraSource::Kind::kClip, 0, "a/b.y4m"}));
}

TEST(CallUri, ReplacesTheMicrophoneByAToneOrAFile) {
  const auto microphone = [](const std::string& value) {
    return parseCallUri("janus+ws://h/?room=r&microphone=" + value).microphone;
  };
  EXPECT_EQ(microphone("tone:440").kind, MicrophoneSource::Kind::kTone);
  EXPECT_EQ(microphone("tone:440").hertz, 440U);
  EXPECT_EQ(microphone("a/b.wav").kind, MicrophoneSource::Kind::kClip);
  EXPECT_EQ(microphone("a/b.wav").path, "a/b.wav");
}

TEST(CallUri, RefusesInvalidUris) {
  const std::string server = "janus+ws://h/?room=r&";
  const std::vector<std::pair<std::string, std::string>> refused = {
      {"", "the uri's scheme is neither janus+ws nor janus+wss"},
      {"tessel:demo", "the uri's scheme is neither janus+ws nor janus+wss"},
      {"janus+ws:", "the uri's server is missing or malformed"},
      {"janus+ws:h?room=r", "the uri's server is missing or malformed"},
      {"janus+ws:///?room=r", "the uri's server is missing or malformed"},
      {"janus+ws://:80/?room=r", "the uri's server is missing or malformed"},
      {"janus+ws://a b/?room=r", "the uri's server is missing or malformed"},
      {"janus+ws://me:secret@h/?room=r", "the uri's server is missing or malformed"},
      {"janus+ws://h/", "the uri names no room"},
      {"janus+ws://h/?pin=1", "the uri names no room"},
      {"janus+ws://h/?room=", "bad value: room="},
      {server + "room=s", "parameter given twice: room"},
      {server + "colour=red", "unknown parameter: colour"},
      {server + "camera=card:", "bad value: camera=card:"},
      {server + "camera=card:16777216", "bad value: camera=card:16777216"},
      {server + "camera=clip.mp4", "bad value: camera=clip.mp4"},
      {server + "microphone=tone:0", "bad value: microphone=tone:0"},
      {server + "microphone=a.mp3", "bad value: microphone=a.mp3"},
      {server + "microphone=silence", "bad value: microphone=silence"},
      {server + "authority=", "bad value: authority="},
      {"janus+ws://h/?room=" + std::string(257, 'r'), "bad value: room=" + std::string(75, 'r')},
      {"janus+ws://h/?room=r&" + std::string(9000, 'x'), "the uri is too long"},
  };
  for (const auto& [uri, reason] : refused) EXPECT_EQ(refusalOf(uri), reason) << uri;
}

TEST(CallUri, ContainsNoSecretsInItsReasons) {
  EXPECT_EQ(refusalOf("janus+ws://h/?room=r&pin=secret%"), "bad value: pin");
  EXPECT_EQ(refusalOf("janus+ws://h/?room=r&token=secret%zz"), "bad value: token");
  EXPECT_EQ(refusalOf("janus+ws://h/?room=r&pin=secret&pin=other"), "parameter given twice: pin");
  // An & that was not escaped ends the pin.
  EXPECT_EQ(refusalOf("janus+ws://h/?room=r&pin=sec&ret"), "unknown parameter behind pin");
  EXPECT_EQ(refusalOf("janus+ws://h/?token=sec&ret=1&room=r"), "unknown parameter behind token");
  EXPECT_EQ(refusalOf("janus+ws://h/?room=r&pin=sec&camera=ret"), "bad value: camera");
  EXPECT_EQ(refusalOf("janus+ws://h/?room=r&colour=red&pin=secret"), "unknown parameter: colour");
}

}  // namespace
}  // namespace webrtc
