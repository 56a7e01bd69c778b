#include "engine/embedded/streams/lossy_link.h"

#include <gtest/gtest.h>

#include <vector>

namespace embedded {
namespace {

std::vector<std::uint64_t> losses(LossyLink link, std::uint64_t packets, int times) {
  std::vector<std::uint64_t> lost;
  for (int i = 0; i < times; ++i) lost.push_back(link.send(packets));
  return lost;
}

double lossRate(double asked) {
  LossyLink link(asked, 7);
  constexpr std::uint64_t kPackets = 10'000'000;
  return static_cast<double>(link.send(kPackets)) / kPackets;
}

TEST(LossyLink, LosesTheRequestedFraction) {
  EXPECT_EQ(lossRate(0), 0);
  EXPECT_NEAR(lossRate(0.01), 0.01, 0.001);
  EXPECT_NEAR(lossRate(0.5), 0.5, 0.01);
  EXPECT_EQ(lossRate(1), 1);
}

TEST(LossyLink, LosesTheSameWithTheSameSeed) {
  EXPECT_EQ(losses({0.1, 7}, 50, 1000), losses({0.1, 7}, 50, 1000));
  EXPECT_NE(losses({0.1, 7}, 50, 1000), losses({0.1, 8}, 50, 1000));
}

TEST(LossyLink, LosesInBursts) {
  int intact = 0;
  for (const auto lost : losses({0.05, 7}, 288, 1000)) intact += lost == 0 ? 1 : 0;
  // Independent losses would leave no frame of 288 packets whole.
  EXPECT_GT(intact, 700);
  EXPECT_LT(intact, 950);
}

TEST(LossyLink, SplitsFramesIntoPackets) {
  EXPECT_EQ(packetsOf(0), 0U);
  EXPECT_EQ(packetsOf(1200), 1U);
  EXPECT_EQ(packetsOf(1201), 2U);
  EXPECT_EQ(packetsOf(345'600), 288U);
}

}  // namespace
}  // namespace embedded
