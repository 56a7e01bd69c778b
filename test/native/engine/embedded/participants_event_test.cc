// The event "participants", as the application sees it.

#include <set>

#include "engine/embedded/meeting/meeting_plan.h"
#include "engine/embedded/streams/identity.h"
#include "engine/support/streams/stream_keys.h"
#include "test/native/engine/embedded/engine_test.h"
#include <nlohmann/json.hpp>

namespace embedded {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;
using testing::ElementsAre;
using testing::IsEmpty;

class ParticipantsEventTest : public EngineTest {
 protected:
  void subscribe() {
    manager_->RegisterEvent("participants", 3600, "application", "json");
    pass(0s);
  }

  void join(const std::string& uri, const std::string& name) {
    tsl::ConnectParams params;
    params.uri = uri;
    params.endpointName = name;
    params.mediaStreamState = openState();
    connect(params);
  }

  // The participants of each event since the last call.
  std::vector<json> takeBodies() {
    constexpr std::string_view kStart = "event participants ";
    std::vector<json> bodies;
    for (const auto& line : takeLines()) {
      if (line.starts_with(kStart)) {
        bodies.push_back(json::parse(line.substr(kStart.size())).at("participants"));
      }
    }
    return bodies;
  }

  // One text for each event since the last call: "me" and the participants' numbers, each followed
  // by its state (audio muted, video muted, speaking, presenting).
  Lines takeStates() {
    Lines states;
    for (const json& body : takeBodies()) {
      std::string state;
      for (const json& person : body) {
        const json& stream = person.at("stream");
        const bool isLocal = stream.at("type") == "local";
        state += isLocal ? "me" : " " + std::to_string(stream.at("streamIndex").get<int>());
        if (person.at("audioMuted").get<bool>()) state += 'a';
        if (person.at("videoMuted").get<bool>()) state += 'v';
        if (person.at("speaking").get<bool>()) state += 's';
        if (person.at("presenting").get<bool>()) state += 'p';
      }
      states.push_back(state);
    }
    return states;
  }
};

// Nobody speaks in the meetings of these tests unless they say so.
constexpr const char* kSilence = "speak=me@80000-80001";

std::string quiet(const std::string& parameters) {
  return "tessel:demo?" + parameters + '&' + kSilence;
}

TEST_F(ParticipantsEventTest, DescribesEveryPresentParticipant) {
  join("tessel:demo?participants=2&seed=7&name=1:Zo%C3%AB", "Me");
  subscribe();
  const auto bodies = takeBodies();
  ASSERT_EQ(bodies.size(), 1U);
  const json& people = bodies[0];
  ASSERT_EQ(people.size(), 3U);
  EXPECT_EQ(people[0].at("stream"), json({{"type", "local"}, {"streamIndex", 0}}));
  EXPECT_EQ(people[0].at("name"), "Me");
  EXPECT_EQ(people[1].at("stream"), json({{"type", "remote"}, {"streamIndex", 0}}));
  EXPECT_EQ(people[1].at("csrc"), csrcOf(7, support::remoteStream(0)));
  EXPECT_EQ(people[1].at("guid"), guidOf(7, 0));
  EXPECT_EQ(people[1].at("name"), usualNameOf(7, 0));
  EXPECT_EQ(people[2].at("stream"), json({{"type", "remote"}, {"streamIndex", 1}}));
  EXPECT_EQ(people[2].at("name"), "Zoë");
  EXPECT_EQ(people[0].at("csrc"), frameOf(support::kLocalStream).csrc);
}

TEST_F(ParticipantsEventTest, IsNotifiedAtOnceEvenOutsideACall) {
  subscribe();
  EXPECT_THAT(takeStates(), ElementsAre(""));
}

TEST_F(ParticipantsEventTest, FollowsJoinsAndLeaves) {
  subscribe();
  takeLines();
  connect(quiet("participants=1&come=1@1&leave=0@2"));
  pass(3s);
  manager_->DisconnectCall();
  pass(0s);
  EXPECT_THAT(takeStates(), ElementsAre("me 0", "me 0 1", "me 1", ""));
}

TEST_F(ParticipantsEventTest, FollowsMutes) {
  connect(quiet("participants=1&audiomute=0@1-2,me@3-4&videomute=0@5-6,me@7-8"));
  subscribe();
  pass(9s);
  manager_->MuteLocalAudio(true);
  pass(0s);
  manager_->MuteLocalVideo(true);
  pass(0s);
  manager_->UpdateMediaStreamState(openState());
  pass(0s);
  EXPECT_THAT(takeStates(), ElementsAre("me 0", "me 0a", "me 0", "mea 0", "me 0", "me 0v", "me 0",
                                        "mev 0", "me 0", "mea 0", "meav 0", "me 0"));
}

TEST_F(ParticipantsEventTest, FollowsSpeech) {
  connect("tessel:demo?participants=2&speak=1@1-2,me@3-4&audiomute=1@1.5-1.6");
  subscribe();
  pass(5s);
  EXPECT_THAT(takeStates(), ElementsAre("me 0 1", "me 0 1s", "me 0 1a", "me 0 1s", "me 0 1",
                                        "mes 0 1", "me 0 1"));
}

TEST_F(ParticipantsEventTest, FollowsPresentations) {
  connect(quiet("participants=1&present=0@1-2"));
  subscribe();
  pass(3s);
  manager_->RequestContentShareToken();
  pass(0s);
  manager_->StartPresentation({});
  pass(0s);
  manager_->StopPresentation();
  pass(0s);
  manager_->StartPresentation({});
  pass(0s);
  manager_->ReleaseContentShareToken();
  pass(0s);
  EXPECT_THAT(takeStates(), ElementsAre("me 0", "me 0p", "me 0", "mep 0", "me 0", "mep 0", "me 0"));
}

TEST_F(ParticipantsEventTest, StopsWhenItIsUnsubscribed) {
  connect(quiet("participants=1&come=1@1"));
  subscribe();
  takeLines();
  manager_->UnregisterEvent("participants");
  pass(10s);
  EXPECT_THAT(takeStates(), IsEmpty());
}

TEST_F(ParticipantsEventTest, IsAnOrdinaryEventWithAnotherType) {
  subscribe();
  takeLines();
  manager_->RegisterEvent("participants", 1, "text", "plain");
  connect(quiet("participants=1"));
  takeLines();
  pass(1s);
  EXPECT_THAT(takeLines(), ElementsAre("event participants participants 1"));
}

TEST(UsualNames, DifferWithinAMeetingAndRepeatForASeed) {
  for (const std::uint32_t seed : {0U, 1U, 2U, 4294967295U}) {
    std::set<std::string> names = {usualNameOf(seed, kLocalParticipant)};
    for (int i = 0; i < kMostParticipants; ++i) names.insert(usualNameOf(seed, i));
    EXPECT_EQ(names.size(), std::size_t{kMostParticipants} + 1);
  }
  EXPECT_EQ(usualNameOf(3, 4), usualNameOf(3, 4));
  EXPECT_NE(usualNameOf(1, 0), usualNameOf(2, 0));
}

}  // namespace
}  // namespace embedded
