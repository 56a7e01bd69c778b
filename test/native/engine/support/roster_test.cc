#include "engine/support/roster.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>

#include "engine/support/json.h"
#include "engine/support/streams/stream_keys.h"
#include "test/native/engine/support/manual_clock.h"
#include "test/native/engine/support/notification_recorder.h"

namespace support {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(ParticipantsJson, DescribesEachPerson) {
  EXPECT_EQ(participantsJson({}), R"({"participants":[]})");
  EXPECT_EQ(
      participantsJson({{kLocalStream, 4294967295, "g1", "A \"b\" é", true, false, true, false},
                        {remoteStream(7), 5, "g2", "\xff", false, true, false, true}}),
      R"({"participants":[)"
      R"({"stream":{"type":"local","streamIndex":0},"csrc":4294967295,"guid":"g1",)"
      R"("name":"A \"b\" é","audioMuted":true,"videoMuted":false,"speaking":true,)"
      R"("presenting":false},)"
      R"({"stream":{"type":"remote","streamIndex":7},"csrc":5,"guid":"g2",)"
      "\"name\":\"\uFFFD\",\"audioMuted\":false,\"videoMuted\":true,\"speaking\":false,"
      R"("presenting":true}]})");
}

TEST(Roster, IsRequestedByNameWithTheJsonType) {
  EXPECT_TRUE(Roster::isRequested("participants", "application", "json"));
  EXPECT_FALSE(Roster::isRequested("participants", "text", "json"));
  EXPECT_FALSE(Roster::isRequested("participants", "application", "xml"));
  EXPECT_FALSE(Roster::isRequested("participant", "application", "json"));
}

class RosterTest : public testing::Test {
 protected:
  RosterTest() {
    notifier_.setCallback(recorder_);
    loop_.start(nullptr);
  }
  ~RosterTest() override { loop_.stop(); }

  // Runs a function on the engine's thread, and what follows from it.
  void run(std::function<void()> function) {
    loop_.post(std::move(function));
    pass(0s);
  }
  void subscribe(std::uint32_t expires) {
    run([=, this] { roster_.subscribe(expires); });
  }
  // The names in the notifications since the last call.
  std::vector<std::string> takeNames() {
    std::vector<std::string> names;
    for (const auto& line : recorder_->takeLines()) {
      constexpr std::string_view kStart = "event participants ";
      EXPECT_TRUE(line.starts_with(kStart));
      std::string joined = "-";
      const auto body = nlohmann::json::parse(line.substr(kStart.size()));
      for (const auto& person : body.at("participants")) {
        joined += person.at("name").get<std::string>();
      }
      names.push_back(joined);
    }
    return names;
  }
  void setPeople(const std::vector<std::string>& names) {
    people_.clear();
    for (const auto& name : names) people_.emplace_back().name = name;
    roster_.update();
  }
  void pass(Time span) { clock_->pass(span, loop_); }

  const std::shared_ptr<ManualClock> clock_ = std::make_shared<ManualClock>();
  const std::shared_ptr<const Log> log_ = std::make_shared<const Log>("", "");
  const std::shared_ptr<NotificationRecorder> recorder_ = std::make_shared<NotificationRecorder>();
  TaskLoop loop_{clock_, log_};
  Notifier notifier_{log_};
  std::vector<Person> people_;
  Roster roster_{loop_, notifier_, [this] { return people_; }};
};

TEST_F(RosterTest, IsNotifiedAtOnceEvenWithoutParticipants) {
  subscribe(10);
  EXPECT_THAT(takeNames(), ElementsAre("-"));
}

TEST_F(RosterTest, IsNotifiedAtEachChangeOnly) {
  subscribe(10);
  takeNames();
  run([this] { setPeople({"A"}); });
  run([this] { setPeople({"A"}); });
  run([this] { setPeople({"A", "B"}); });
  EXPECT_THAT(takeNames(), ElementsAre("-A", "-AB"));
}

TEST_F(RosterTest, NotifiesSimultaneousChangesOnce) {
  subscribe(10);
  takeNames();
  run([this] {
    setPeople({"A"});
    setPeople({"A", "B"});
  });
  run([this] {
    setPeople({"C"});
    setPeople({"A", "B"});
  });
  EXPECT_THAT(takeNames(), ElementsAre("-AB"));
}

TEST_F(RosterTest, IsNotNotifiedOutsideASubscription) {
  run([this] { setPeople({"A"}); });
  EXPECT_THAT(takeNames(), IsEmpty());
  subscribe(10);
  EXPECT_THAT(takeNames(), ElementsAre("-A"));
  run([this] { roster_.unsubscribe(); });
  run([this] { setPeople({"B"}); });
  EXPECT_THAT(takeNames(), IsEmpty());
}

TEST_F(RosterTest, IsNotifiedAgainWhenASubscriptionIsReplaced) {
  subscribe(1);
  subscribe(3);
  pass(2s);
  run([this] { setPeople({"A"}); });
  EXPECT_THAT(takeNames(), ElementsAre("-", "-", "-A"));
}

TEST_F(RosterTest, IsNotifiedUntilTheSubscriptionExpires) {
  subscribe(2);
  pass(2s);
  run([this] { setPeople({"A"}); });
  pass(1ns);
  run([this] { setPeople({"B"}); });
  EXPECT_THAT(takeNames(), ElementsAre("-", "-A"));
}

TEST_F(RosterTest, IsNotNotifiedToASubscriptionWithExpiryZero) {
  subscribe(5);
  subscribe(0);
  run([this] { setPeople({"A"}); });
  EXPECT_THAT(takeNames(), ElementsAre("-"));
}

}  // namespace
}  // namespace support
