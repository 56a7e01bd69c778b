#include "engine/embedded/streams/traffic_meter.h"

#include <gtest/gtest.h>

namespace embedded {
namespace {

using namespace std::chrono_literals;

TEST(TrafficMeter, ReportsTheTrafficOfAWindow) {
  TrafficMeter meter;
  for (int i = 0; i < 15; ++i) meter.addFrame({80, 45}, 1000, 2);
  const auto window = meter.closeWindow(500ms);
  EXPECT_EQ(window.stats.width, 80);
  EXPECT_EQ(window.stats.height, 45);
  EXPECT_EQ(window.stats.fps, 30);
  EXPECT_EQ(window.stats.totalBitrateBps, 240'000);
  EXPECT_EQ(window.stats.fractionLost, 0);
  EXPECT_EQ(window.bytes, 15'000U);
  EXPECT_EQ(window.packets, 30U);
}

TEST(TrafficMeter, StartsANewWindowAfterEachReport) {
  TrafficMeter meter;
  meter.addFrame({80, 45}, 1000, 1);
  meter.closeWindow(1s);
  const auto window = meter.closeWindow(1s);
  EXPECT_EQ(window.stats.fps, 0);
  EXPECT_EQ(window.stats.totalBitrateBps, 0);
  EXPECT_EQ(window.stats.width, 80) << "of the newest frame there was";
}

TEST(TrafficMeter, CountsLossesOfTheWindowAndInTotal) {
  TrafficMeter meter;
  meter.addFrame({80, 45}, 1000, 6);
  meter.addLostFrame(4, 2);
  auto window = meter.closeWindow(1s);
  EXPECT_EQ(window.stats.fractionLost, 0.2);
  EXPECT_EQ(window.stats.cumulativeLost, 2U);
  EXPECT_EQ(window.stats.fps, 1);
  meter.addLostFrame(3, 3);
  window = meter.closeWindow(1s);
  EXPECT_EQ(window.stats.fractionLost, 1);
  EXPECT_EQ(window.stats.cumulativeLost, 5U);
  EXPECT_EQ(window.lostPackets, 3U);
}

TEST(TrafficMeter, SaturatesValuesThatExceedTheirField) {
  TrafficMeter meter;
  meter.addFrame({4096, 4096}, std::size_t{1} << 30, 1);
  EXPECT_EQ(meter.closeWindow(1s).stats.totalBitrateBps, 2'147'483'647);
}

}  // namespace
}  // namespace embedded
