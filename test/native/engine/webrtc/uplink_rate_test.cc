#include "engine/webrtc/uplink_rate.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace webrtc {
namespace {

constexpr std::uint32_t kMost = 1'000'000;
constexpr std::uint32_t kStep = kMost / 20;

class UplinkRateTest : public ::testing::Test {
 protected:
  // The rate one second later, in which this share was lost.
  std::uint32_t after(double fractionLost, std::uint32_t most = kMost) {
    if (fractionLost > 0) ++lost_;
    return rate_.update({{7, {.fractionLost = fractionLost, .lost = lost_, .jitterMs = 0}}}, most);
  }

  UplinkRate rate_;
  std::uint32_t lost_ = 0;
};

TEST_F(UplinkRateTest, BeginsWithTheMost) {
  EXPECT_EQ(rate_.update({}, kMost), kMost);
  EXPECT_EQ(after(0), kMost);
}

TEST_F(UplinkRateTest, FollowsTheLosses) {
  struct Row {
    double lost;
    std::uint32_t rate;
  };
  constexpr std::uint32_t kHalf = kMost / 2;
  for (const Row& row : {Row{0, kMost}, Row{0.5, kHalf}, Row{0.05, kHalf}, Row{0.1, kHalf},
                         Row{0.02, kHalf}, Row{0.01, kHalf + kStep}, Row{0, kHalf + 2 * kStep},
                         Row{0.25, 450'000}, Row{0.2, 360'000}}) {
    EXPECT_NEAR(after(row.lost), row.rate, 1) << row.lost;
  }
}

TEST_F(UplinkRateTest, IsTheMostAgainLessThanTwentySecondsAfterEverythingWasLost) {
  EXPECT_EQ(after(1), 150'000U);
  EXPECT_EQ(after(1), 150'000U);
  for (std::uint32_t second = 1; second < 17; ++second)
    EXPECT_EQ(after(0), 150'000U + second * kStep);
  EXPECT_EQ(after(0), kMost);
}

TEST_F(UplinkRateTest, IsTheMostAtOnceWithoutLosses) {
  for (const std::uint32_t most : {kMost, kMost / 4, kMost}) EXPECT_EQ(after(0, most), most);
  after(0.5);
  EXPECT_EQ(after(0, kMost / 4), kMost / 4);
}

TEST_F(UplinkRateTest, TakesAReportIntoAccountOnce) {
  const ReceiverReport half = {.fractionLost = 0.5, .lost = 9, .jitterMs = 0};
  EXPECT_EQ(rate_.update({{7, half}}, kMost), kMost / 2);
  EXPECT_EQ(rate_.update({{7, half}}, kMost), kMost / 2 + kStep);
}

TEST_F(UplinkRateTest, FollowsTheLayerWithTheGreatestLosses) {
  const ReceiverReport none;
  const ReceiverReport half = {.fractionLost = 0.5, .lost = 9, .jitterMs = 0};
  EXPECT_EQ(rate_.update({{7, none}, {8, half}, {9, none}}, kMost), kMost / 2);
}

}  // namespace
}  // namespace webrtc
