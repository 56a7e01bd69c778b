#include "engine/webrtc/feed.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace webrtc {
namespace {

TEST(Feed, DescribesTheMediaOfAPublisher) {
  const auto feed = parseFeed(Json::parse(R"({
    "id": "p1", "display": "Ada",
    "streams": [
      {"type": "video", "mid": "video0", "description": "{\"guid\":\"g\",\"muted\":true}"},
      {"type": "audio", "mid": "audio1", "description": "{\"guid\":\"g\",\"muted\":false}"}
    ]})"));
  ASSERT_TRUE(feed);
  EXPECT_EQ(feed->key(), "\"p1\"");
  EXPECT_EQ(feed->name, "Ada");
  EXPECT_EQ(feed->guid, "g");
  EXPECT_TRUE(feed->isVideoMuted);
  EXPECT_FALSE(feed->isAudioMuted);
}

TEST(Feed, IsNotMutedWithoutAMuteState) {
  const auto feed = parseFeed(Json::parse(
      R"({"id": 7, "streams": [{"type": "video", "description": "my camera"}, {}, 5, null]})"));
  ASSERT_TRUE(feed);
  EXPECT_EQ(feed->key(), "7");
  EXPECT_EQ(feed->name, "");
  EXPECT_EQ(feed->guid, "");
  EXPECT_FALSE(feed->isVideoMuted);
}

TEST(Feed, HasTheStreamsThatTheRoomHasMuted) {
  const auto feed = parseFeed(Json::parse(R"({
    "id": 7,
    "streams": [
      {"type": "audio", "mid": "0", "moderated": true},
      {"type": "video", "mid": "1", "moderated": false},
      {"type": "data", "mid": "2"}
    ]})"));
  ASSERT_TRUE(feed);
  EXPECT_EQ(feed->audioMid, "0");
  EXPECT_EQ(feed->videoMid, "1");
  EXPECT_EQ(feed->moderatedMids, (std::set<std::string>{"0"}));
  EXPECT_FALSE(feed->isAudioMuted);
}

Feed feedWithVideo(const std::string& description) {
  return *parseFeed(
      {{"id", "p1"}, {"streams", {{{"type", "video"}, {"description", description}}}}});
}

TEST(Feed, TellsTheLayersOfItsVideo) {
  const Feed feed = feedWithVideo(R"({"layers":[720,360,180]})");
  EXPECT_EQ(feed.layerHeights, (std::vector<std::uint32_t>{720, 360, 180}));
}

TEST(Feed, HasNoLayersWhenTheirDescriptionIsInvalid) {
  for (const char* const layers : {"[1,2,3,4]", "[720,0]", "[720,-1]", "[720,99999]", "[720,\"x\"]",
                                   "[720,1.5]", "7", "{}", "null"}) {
    const Feed feed = feedWithVideo(std::string(R"({"layers":)") + layers + '}');
    EXPECT_TRUE(feed.layerHeights.empty()) << layers;
  }
}

TEST(Feed, TellsTheHeightsWithWhichItReceives) {
  EXPECT_EQ(feedWithVideo(R"({"receives":[90,360]})").received, (Heights{90, 360}));
  EXPECT_EQ(feedWithVideo(R"({"receives":[720,4294967295]})").received,
            (Heights{720, Heights::kWhole}));
  EXPECT_EQ(feedWithVideo(R"({"receives":[]})").received, std::nullopt);
}

TEST(Feed, ReceivesTheWholeHeightWhenItDoesNotTell) {
  for (const char* const receives :
       {"null", "7", "{}", "[1]", "[1,2,3]", "[-1,2]", "[1,4294967296]", "[1,\"x\"]", "[1.5,2]"}) {
    const Feed feed = feedWithVideo(std::string(R"({"receives":)") + receives + '}');
    EXPECT_EQ(feed.received, Heights()) << receives;
  }
  EXPECT_EQ(feedWithVideo("my camera").received, Heights());
}

TEST(Feed, SendsMoreWhenAStreamIsNewOrEnabled) {
  const auto feed = [](const std::string& streams) {
    return *parseFeed(Json::parse(R"({"id": 7, "streams": [)" + streams + "]}"));
  };
  const std::string audio = R"({"type": "audio", "mid": "0"})";
  const std::string video = R"({"type": "video", "mid": "1"})";
  const std::string disabled = R"({"type": "video", "mid": "1", "disabled": true})";
  const Feed one = feed(audio);
  const Feed both = feed(audio + "," + video);
  EXPECT_TRUE(both.sendsMoreThan(one));
  EXPECT_TRUE(both.sendsMoreThan(feed(audio + "," + disabled)));
  EXPECT_FALSE(one.sendsMoreThan(both));
  EXPECT_FALSE(both.sendsMoreThan(both));
}

TEST(Feed, IsInvalidWithoutAnIdentifier) {
  for (const char* const text : {"null", "5", "{}", R"({"id": null})", R"({"id": [1]})"}) {
    EXPECT_FALSE(parseFeed(Json::parse(text))) << text;
  }
}

TEST(Feed, HasTheSsrcOfTheVideo) {
  const std::string audio = "v=0\r\nm=audio 9 UDP/TLS/RTP/SAVPF 111\r\na=ssrc:11 cname:janus\r\n";
  const std::string video =
      "m=video 9 UDP/TLS/RTP/SAVPF 96\r\na=mid:1\r\na=ssrc:22 cname:janus\r\n";
  const std::string silent = "m=video 9 UDP/TLS/RTP/SAVPF 96\r\na=mid:1\r\n";
  EXPECT_EQ(videoSsrcOf(audio + video), 22U);
  EXPECT_EQ(videoSsrcOf("v=0\r\n" + video + audio.substr(5)), 22U);
  EXPECT_EQ(videoSsrcOf(audio), std::nullopt);
  EXPECT_EQ(videoSsrcOf("v=0\r\n" + silent + audio.substr(5)), std::nullopt);
  EXPECT_EQ(videoSsrcOf("v=0\r\nm=video 9 X 96\r\na=ssrc:99999999999 x\r\n"), std::nullopt);
  EXPECT_EQ(videoSsrcOf(""), std::nullopt);
}

TEST(Feed, HasTheSsrcsOfTheAudioAndOfRepetitions) {
  const std::string offer =
      "v=0\r\nm=audio 9 UDP/TLS/RTP/SAVPF 111\r\na=ssrc:11 cname:janus\r\n"
      "m=video 9 UDP/TLS/RTP/SAVPF 96\r\na=ssrc-group:FID 22 33\r\na=ssrc:22 cname:janus\r\n";
  EXPECT_EQ(audioSsrcOf(offer), 11U);
  EXPECT_EQ(repetitionSsrcOf(offer, 22), 33U);
  EXPECT_EQ(repetitionSsrcOf(offer, 2), std::nullopt);
  EXPECT_EQ(repetitionSsrcOf(offer, 11), std::nullopt);
  EXPECT_EQ(repetitionSsrcOf("v=0\r\na=ssrc-group:FID 22 x\r\n", 22), std::nullopt);
  EXPECT_EQ(repetitionSsrcOf("v=0\r\na=ssrc-group:FID 22 ", 22), std::nullopt);
}

TEST(Answer, HasTheEncodingOfTheVideo) {
  const auto answer = [](const std::string& video) {
    return "v=0\r\nm=audio 9 UDP/TLS/RTP/SAVPF 111\r\na=rtpmap:111 opus/48000/2\r\n" + video;
  };
  for (const auto& [video, encoding] : std::initializer_list<std::pair<const char*, const char*>>{
           {"m=video 9 UDP/TLS/RTP/SAVPF 97 98\r\na=rtpmap:98 rtx/90000\r\na=rtpmap:97 "
            "H264/90000\r\n",
            "H264"},
           {"m=video 9 UDP/TLS/RTP/SAVPF 96\r\na=rtpmap:96 VP8/90000\r\n", "VP8"},
           {"m=video 0 UDP/TLS/RTP/SAVPF 96\r\na=rtpmap:96 VP8/90000\r\n", ""},
           {"m=video 9 UDP/TLS/RTP/SAVPF 96\r\n", ""},
           {"m=video 9 UDP/TLS/RTP/SAVPF x\r\n", ""},
           {"m=video 9 UDP/TLS/RTP/SAVPF\r\n", ""},
           {"m=video\r\n", ""},
           {"", ""},
       }) {
    EXPECT_EQ(videoEncodingOf(answer(video)), encoding) << video;
  }
  EXPECT_EQ(videoEncodingOf(""), "");
  EXPECT_EQ(videoEncodingOf("no description"), "");
}

}  // namespace
}  // namespace webrtc
