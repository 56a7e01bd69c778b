// Subscribed events, as the application sees them.

#include "test/native/engine/embedded/engine_test.h"

namespace embedded {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

class EventSubscriptionsTest : public EngineTest {
 protected:
  void subscribe(const std::string& name, unsigned expires, const std::string& subType = "plain") {
    manager_->RegisterEvent(name, expires, subType == "json" ? "application" : "text", subType);
    pass(0s);
  }
};

TEST_F(EventSubscriptionsTest, AnEventIsNotifiedOnceASecondUntilItExpires) {
  subscribe("x", 3);
  pass(999ms);
  EXPECT_THAT(takeLines(), IsEmpty());
  pass(1ms);
  EXPECT_THAT(takeLines(), ElementsAre("event x x 1"));
  pass(1h);
  EXPECT_THAT(takeLines(), ElementsAre("event x x 2", "event x x 3"));
}

TEST_F(EventSubscriptionsTest, TheBodyIsJsonForTheJsonType) {
  subscribe("a\"b", 1, "json");
  pass(1s);
  EXPECT_THAT(takeLines(), ElementsAre(R"(event a"b {"event":"a\"b","sequence":1})"));
}

TEST_F(EventSubscriptionsTest, AnEventStopsWhenItIsUnsubscribed) {
  subscribe("x", 100);
  subscribe("y", 100);
  manager_->UnregisterEvent("x");
  manager_->UnregisterEvent("z");
  pass(1s);
  EXPECT_THAT(takeLines(), ElementsAre("event y y 1"));
}

TEST_F(EventSubscriptionsTest, ANewSubscriptionReplacesThePreviousOne) {
  subscribe("x", 1);
  pass(500ms);
  subscribe("x", 2);
  pass(600ms);
  EXPECT_THAT(takeLines(), IsEmpty());
  pass(10s);
  EXPECT_THAT(takeLines(), ElementsAre("event x x 1", "event x x 2"));
}

TEST_F(EventSubscriptionsTest, ASubscriptionWithExpiryZeroIsNeverNotified) {
  subscribe("x", 5);
  subscribe("x", 0);
  pass(10s);
  EXPECT_THAT(takeLines(), IsEmpty());
}

TEST_F(EventSubscriptionsTest, ASubscriptionMayHaveTheLongestExpiry) {
  subscribe("x", 4294967295);
  pass(1000s);
  EXPECT_EQ(takeLines().size(), 1000U);
}

TEST_F(EventSubscriptionsTest, TheNumberOfSubscriptionsIsLimited) {
  for (int i = 0; i <= 1000; ++i) manager_->RegisterEvent(std::to_string(i), 1, "text", "plain");
  manager_->RegisterEvent("0", 1, "text", "plain");
  pass(1s);
  EXPECT_EQ(takeLines().size(), 1000U);
}

}  // namespace
}  // namespace embedded
