#include "engine/webrtc/admission.h"

#include <gtest/gtest.h>

namespace webrtc {
namespace {

Feed feed(int id, const std::string& name = "") {
  Feed made;
  made.id = id;
  made.name = name;
  return made;
}

constexpr std::size_t kMostWaiting = 3;

TEST(Admission, GivesTheLowestFreePlace) {
  Admission admission(3, kMostWaiting);
  EXPECT_EQ(admission.place(feed(10)), 0);
  EXPECT_EQ(admission.place(feed(11)), 1);
  EXPECT_EQ(admission.place(feed(10)), 0);
  EXPECT_EQ(admission.remove("10"), std::nullopt);
  EXPECT_EQ(admission.place(feed(12)), 0);
  EXPECT_EQ(admission.place(feed(13)), 2);
}

TEST(Admission, LetsWhoFindsNoPlaceWaitForOne) {
  Admission admission(2, kMostWaiting);
  admission.place(feed(10));
  admission.place(feed(11));
  EXPECT_FALSE(admission.isWaiting("12"));
  EXPECT_EQ(admission.place(feed(12, "before")), std::nullopt);
  EXPECT_EQ(admission.place(feed(13)), std::nullopt);
  EXPECT_EQ(admission.place(feed(14)), std::nullopt);
  EXPECT_EQ(admission.place(feed(12, "now")), std::nullopt);
  EXPECT_TRUE(admission.isWaiting("12"));

  EXPECT_EQ(admission.remove("13"), std::nullopt) << "nobody who waits makes room";
  const auto next = admission.remove("10");
  ASSERT_TRUE(next);
  EXPECT_EQ(next->name, "now");
  EXPECT_EQ(admission.place(*next), 0);
  EXPECT_FALSE(admission.isWaiting("12"));
  const auto last = admission.remove("11");
  ASSERT_TRUE(last);
  EXPECT_EQ(last->key(), "14");
}

TEST(Admission, KeepsThePlacesOfThoseWhoAreAwayAndForgetsWhoWaited) {
  Admission admission(2, kMostWaiting);
  admission.place(feed(10));
  admission.place(feed(11));
  admission.place(feed(12));
  admission.forgetWaiting();
  EXPECT_FALSE(admission.isWaiting("12"));
  EXPECT_EQ(admission.placed(), (std::vector<std::string>{"10", "11"}));
  EXPECT_EQ(admission.place(feed(13)), std::nullopt);
  EXPECT_EQ(admission.place(feed(11)), 1);
}

TEST(Admission, ForgetsWhoWouldBeOneTooManyToWait) {
  Admission admission(1, kMostWaiting);
  for (int id = 10; id < 16; ++id) admission.place(feed(id));
  EXPECT_TRUE(admission.isWaiting("13"));
  EXPECT_FALSE(admission.isWaiting("14"));
}

}  // namespace
}  // namespace webrtc
