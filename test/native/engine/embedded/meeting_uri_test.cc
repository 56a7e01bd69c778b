#include "engine/embedded/meeting/meeting_uri.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace embedded {
namespace {

using namespace std::chrono_literals;

TEST(MeetingUri, NamesARoomAndUsesDefaultsForTheRest) {
  const MeetingPlan plan = parseMeetingUri("tessel:demo");
  EXPECT_EQ(plan.room, "demo");
  EXPECT_EQ(plan.participants, 3);
  EXPECT_EQ(plan.seed, 1U);
  EXPECT_EQ(plan.size, (support::Size{640, 360}));
  EXPECT_EQ(plan.rate, std::nullopt);
  EXPECT_EQ(plan.clipPath, "");
  EXPECT_TRUE(plan.isClipLooped);
  EXPECT_EQ(plan.joinDelay, 0s);
  EXPECT_EQ(plan.refusal, std::nullopt);
  EXPECT_EQ(plan.dropAfter, std::nullopt);
  EXPECT_TRUE(plan.events.empty());
}

TEST(MeetingUri, SetsEveryParameter) {
  const MeetingPlan plan = parseMeetingUri(
      "tessel:big-room_1.~?participants=50&seed=4294967295&size=1281x721&fps=60&video=a%20b%26c.y4m"
      "&loop=0&join=0.25&refuse=486&drop=86400");
  EXPECT_EQ(plan.room, "big-room_1.~");
  EXPECT_EQ(plan.participants, 50);
  EXPECT_EQ(plan.seed, 4294967295U);
  EXPECT_EQ(plan.size, (support::Size{1281, 721}));
  EXPECT_EQ(plan.rate, (support::FrameRate{60, 1}));
  EXPECT_EQ(plan.clipPath, "a b&c.y4m");
  EXPECT_FALSE(plan.isClipLooped);
  EXPECT_EQ(plan.joinDelay, 250ms);
  EXPECT_EQ(plan.refusal, 486);
  EXPECT_EQ(plan.dropAfter, 24h);
}

TEST(MeetingUri, OrdersEventsByTime) {
  const MeetingPlan plan = parseMeetingUri("tessel:demo?leave=2@9.5,1@1&come=40@0.125&leave=40@1");
  std::vector<std::pair<int, support::Time>> events;
  for (const auto& event : plan.events) events.emplace_back(event.participant, event.at);
  EXPECT_THAT(events, testing::ElementsAre(std::pair(40, 125ms), std::pair(1, 1s),
                                           std::pair(40, 1s), std::pair(2, 9500ms)));
  EXPECT_EQ(plan.events[0].kind, PlannedEvent::Kind::kJoin);
  EXPECT_EQ(plan.events[1].kind, PlannedEvent::Kind::kLeave);
}

TEST(MeetingUri, PlansWhoSpeaks) {
  const MeetingPlan plan = parseMeetingUri("tessel:demo?speak=1@2-3.5,me@4-5");
  ASSERT_EQ(plan.speech.size(), 2U);
  EXPECT_EQ(plan.speech[0].participant, 1);
  EXPECT_EQ(plan.speech[0].from, 2s);
  EXPECT_EQ(plan.speech[0].to, 3500ms);
  EXPECT_EQ(plan.speech[1].participant, kLocalParticipant);
}

TEST(MeetingUri, PlansTheStartAndTheEndOfASpan) {
  using Kind = PlannedEvent::Kind;
  const MeetingPlan plan = parseMeetingUri(
      "tessel:demo?videomute=1@1-2&audiomute=me@3&present=0@4-5&cut=2@6-7"
      "&plug=camera-2@8&unplug=speaker-0@9");
  std::vector<std::tuple<Kind, int, support::Time, std::string>> events;
  for (const auto& event : plan.events) {
    events.emplace_back(event.kind, event.participant, event.at, event.device);
  }
  using Event = std::tuple<Kind, int, support::Time, std::string>;
  EXPECT_THAT(events, testing::ElementsAre(
                          Event(Kind::kMuteVideo, 1, 1s, ""), Event(Kind::kUnmuteVideo, 1, 2s, ""),
                          Event(Kind::kMuteAudio, kLocalParticipant, 3s, ""),
                          Event(Kind::kPresent, 0, 4s, ""), Event(Kind::kStopPresenting, 0, 5s, ""),
                          Event(Kind::kCutLink, 2, 6s, ""), Event(Kind::kRestoreLink, 2, 7s, ""),
                          Event(Kind::kPlug, kLocalParticipant, 8s, "camera-2"),
                          Event(Kind::kUnplug, kLocalParticipant, 9s, "speaker-0")));
}

TEST(MeetingUri, NamesTheLossOfAllLinksOrOfOne) {
  const MeetingPlan plan = parseMeetingUri("tessel:demo?loss=0.05,2:1&loss=1:0");
  EXPECT_EQ(plan.lossOf(0), 0.05);
  EXPECT_EQ(plan.lossOf(1), 0);
  EXPECT_EQ(plan.lossOf(2), 1);
  EXPECT_EQ(parseMeetingUri("tessel:demo").lossOf(0), 0);
}

TEST(MeetingUri, NamesParticipants) {
  const std::string longest(64, 'x');
  const MeetingPlan plan = parseMeetingUri("tessel:demo?name=0:Ada%20B.,2:a:b&name=1:" + longest);
  EXPECT_THAT(plan.names, testing::ElementsAre(std::pair(0, "Ada B."), std::pair(1, longest),
                                               std::pair(2, "a:b")));
  EXPECT_THROW(parseMeetingUri("tessel:demo?name=0:x" + longest), JoinRefused);
}

TEST(MeetingUri, NamesMonitors) {
  const auto monitors =
      parseMeetingUri("tessel:demo?monitors=1920x1080@0:0,640x480@-640:-10").monitors;
  ASSERT_TRUE(monitors);
  ASSERT_EQ(monitors->size(), 2U);
  EXPECT_EQ((*monitors)[1].x, -640);
  EXPECT_EQ((*monitors)[1].y, -10);
  EXPECT_EQ((*monitors)[1].width, 640);
  EXPECT_EQ((*monitors)[1].height, 480);
  EXPECT_EQ((*monitors)[1].engineValue, 1);
  EXPECT_EQ(parseMeetingUri("tessel:demo").monitors, std::nullopt);
}

struct BadUri {
  std::string uri;
  const char* reason;
};

class MeetingUriRefusal : public testing::TestWithParam<BadUri> {};

TEST_P(MeetingUriRefusal, NamesTheReason) {
  try {
    parseMeetingUri(GetParam().uri);
    FAIL() << "accepted";
  } catch (const JoinRefused& refusal) {
    EXPECT_EQ(refusal.code(), 400);
    EXPECT_STREQ(refusal.what(), GetParam().reason);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Uris, MeetingUriRefusal,
    testing::Values(BadUri{"", "the uri's scheme is not tessel"},
                    BadUri{"tessel", "the uri's scheme is not tessel"},
                    BadUri{"Tessel:demo", "the uri's scheme is not tessel"},
                    BadUri{"https://example.org", "the uri's scheme is not tessel"},
                    BadUri{"tessel:", "the uri's room is missing or malformed"},
                    BadUri{"tessel:?seed=1", "the uri's room is missing or malformed"},
                    BadUri{"tessel:a/b", "the uri's room is missing or malformed"},
                    BadUri{"tessel:" + std::string(65, 'a'),
                           "the uri's room is missing or malformed"},
                    BadUri{"tessel:a?" + std::string(9000, 'a'), "the uri is too long"},
                    BadUri{"tessel:a?", "unknown parameter: "},
                    BadUri{"tessel:a?seed=1&", "unknown parameter: "},
                    BadUri{"tessel:a?Seed=1", "unknown parameter: Seed"},
                    BadUri{"tessel:a?colour=red", "unknown parameter: colour"},
                    BadUri{"tessel:a?seed=1&seed=1", "parameter given twice: seed"},
                    BadUri{"tessel:a?seed", "bad value: seed"},
                    BadUri{"tessel:a?seed=", "bad value: seed="},
                    BadUri{"tessel:a?seed=-1", "bad value: seed=-1"},
                    BadUri{"tessel:a?seed=4294967296", "bad value: seed=4294967296"},
                    BadUri{"tessel:a?seed=1x", "bad value: seed=1x"},
                    BadUri{"tessel:a?participants=51", "bad value: participants=51"},
                    BadUri{"tessel:a?size=63x36", "bad value: size=63x36"},
                    BadUri{"tessel:a?size=64x35", "bad value: size=64x35"},
                    BadUri{"tessel:a?size=1921x36", "bad value: size=1921x36"},
                    BadUri{"tessel:a?size=640", "bad value: size=640"},
                    BadUri{"tessel:a?size=640x360x2", "bad value: size=640x360x2"},
                    BadUri{"tessel:a?fps=0", "bad value: fps=0"},
                    BadUri{"tessel:a?fps=61", "bad value: fps=61"},
                    BadUri{"tessel:a?video=", "bad value: video="},
                    BadUri{"tessel:a?video=a%2", "bad value: video=a%2"},
                    BadUri{"tessel:a?video=a%zz", "bad value: video=a%zz"},
                    BadUri{"tessel:a?video=a%00b", "bad value: video=a%00b"},
                    BadUri{"tessel:a?loop=2", "bad value: loop=2"},
                    BadUri{"tessel:a?join=1.2345", "bad value: join=1.2345"},
                    BadUri{"tessel:a?join=1.", "bad value: join=1."},
                    BadUri{"tessel:a?join=.5", "bad value: join=.5"},
                    BadUri{"tessel:a?join=1.2.3", "bad value: join=1.2.3"},
                    BadUri{"tessel:a?join=86401", "bad value: join=86401"},
                    BadUri{"tessel:a?refuse=299", "bad value: refuse=299"},
                    BadUri{"tessel:a?refuse=700", "bad value: refuse=700"},
                    BadUri{"tessel:a?come=5", "bad value: come=5"},
                    BadUri{"tessel:a?come=50@1", "bad value: come=50@1"},
                    BadUri{"tessel:a?come=5@1,", "bad value: come=5@1,"},
                    BadUri{"tessel:a?leave=3@1", "there is no participant 3"},
                    BadUri{"tessel:a?speak=3@1-2", "there is no participant 3"},
                    BadUri{"tessel:a?speak=1@2", "bad value: speak=1@2"},
                    BadUri{"tessel:a?speak=1@2-2", "bad value: speak=1@2-2"},
                    BadUri{"tessel:a?videomute=you@1", "bad value: videomute=you@1"},
                    BadUri{"tessel:a?videomute=1@2-1", "bad value: videomute=1@2-1"},
                    BadUri{"tessel:a?videomute=1@2-3-4", "bad value: videomute=1@2-3-4"},
                    BadUri{"tessel:a?present=me@1", "bad value: present=me@1"},
                    BadUri{"tessel:a?cut=3@1", "there is no participant 3"},
                    BadUri{"tessel:a?loss=1.1", "bad value: loss=1.1"},
                    BadUri{"tessel:a?loss=-0.1", "bad value: loss=-0.1"},
                    BadUri{"tessel:a?loss=nan", "bad value: loss=nan"},
                    BadUri{"tessel:a?loss=1e-1", "bad value: loss=1e-1"},
                    BadUri{"tessel:a?loss=0.1.2", "bad value: loss=0.1.2"},
                    BadUri{"tessel:a?loss=.", "bad value: loss=."},
                    BadUri{"tessel:a?loss=", "bad value: loss="},
                    BadUri{"tessel:a?loss=1:0.1:2", "bad value: loss=1:0.1:2"},
                    BadUri{"tessel:a?loss=3:0.1", "there is no participant 3"},
                    BadUri{"tessel:a?name=Ada", "bad value: name=Ada"},
                    BadUri{"tessel:a?name=0:", "bad value: name=0:"},
                    BadUri{"tessel:a?name=me:Ada", "bad value: name=me:Ada"},
                    BadUri{"tessel:a?name=0:A,0:B", "bad value: name=0:A,0:B"},
                    BadUri{"tessel:a?name=3:Ada", "there is no participant 3"},
                    BadUri{"tessel:a?plug=camera-3@1", "bad value: plug=camera-3@1"},
                    BadUri{"tessel:a?unplug=camera-1", "bad value: unplug=camera-1"},
                    BadUri{"tessel:a?attributes=a,,b", "bad value: attributes=a,,b"},
                    BadUri{"tessel:a?monitors=", "bad value: monitors="},
                    BadUri{"tessel:a?monitors=1x1", "bad value: monitors=1x1"},
                    BadUri{"tessel:a?monitors=0x1@0:0", "bad value: monitors=0x1@0:0"},
                    BadUri{"tessel:a?monitors=1x16385@0:0", "bad value: monitors=1x16385@0:0"},
                    BadUri{"tessel:a?monitors=1x1@100001:0", "bad value: monitors=1x1@100001:0"},
                    BadUri{"tessel:a?monitors=1x1@--1:0", "bad value: monitors=1x1@--1:0"},
                    BadUri{"tessel:a?monitors=none,1x1@0:0", "bad value: monitors=none,1x1@0:0"}));

TEST(MeetingUri, AcceptsAtMostAThousandEvents) {
  std::string uri = "tessel:a?leave=";
  for (int i = 0; i < 1000; ++i) uri += "0@1,";
  EXPECT_EQ(parseMeetingUri(uri.substr(0, uri.size() - 1)).events.size(), 1000U);
  EXPECT_THROW(parseMeetingUri(uri + "0@1"), JoinRefused);
}

}  // namespace
}  // namespace embedded
