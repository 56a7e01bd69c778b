#include "engine/webrtc/arrival.h"

#include <gtest/gtest.h>

#include <chrono>

namespace webrtc {
namespace {

using namespace std::chrono_literals;

TEST(Arrival, IsMissingOnceItHasStopped) {
  Arrival arrival;
  EXPECT_FALSE(arrival.isMissing(100s, true)) << "nothing has arrived yet";
  arrival.arrived(100s);
  EXPECT_FALSE(arrival.isMissing(101s, true));
  EXPECT_TRUE(arrival.isMissing(102s, true));
  arrival.arrived(102s);
  EXPECT_FALSE(arrival.isMissing(102s, true));
}

TEST(Arrival, IsNotMissingWhileItIsNotExpected) {
  Arrival arrival;
  arrival.arrived(100s);
  EXPECT_FALSE(arrival.isMissing(110s, false));
  EXPECT_FALSE(arrival.isMissing(111s, true)) << "nothing has arrived since it is expected";
  arrival.arrived(111s);
  EXPECT_TRUE(arrival.isMissing(113s, true));
}

}  // namespace
}  // namespace webrtc
