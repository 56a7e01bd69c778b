#include "engine/webrtc/layer_plan.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

namespace webrtc {
namespace {

using Sizes = std::vector<support::Size>;

TEST(LayerSizes, AreTheWholeTheHalfAndTheQuarter) {
  EXPECT_EQ(layerSizes({1280, 720}), (Sizes{{1280, 720}, {640, 360}, {320, 180}}));
  EXPECT_EQ(layerSizes({640, 360}), (Sizes{{640, 360}, {320, 180}, {160, 90}}));
}

TEST(LayerSizes, HaveAUsefulHeightBelowTheHighest) {
  EXPECT_EQ(layerSizes({320, 180}), (Sizes{{320, 180}, {160, 90}}));
  EXPECT_EQ(layerSizes({160, 90}), (Sizes{{160, 90}}));
  EXPECT_EQ(layerSizes({64, 36}), (Sizes{{64, 36}}));
}

TEST(LayerSizes, HaveAnEvenWidth) {
  EXPECT_EQ(layerSizes({322, 182}), (Sizes{{322, 182}, {160, 91}}));
  EXPECT_EQ(layerSizes({1, 400}), (Sizes{{1, 400}, {2, 200}, {2, 100}}));
}

TEST(Layer, IsTheLowestThatIsHighEnough) {
  const std::vector<std::uint32_t> heights = {720, 360, 180};
  const std::vector<std::pair<std::uint32_t, std::size_t>> rows = {
      {Heights::kWhole, 0}, {721, 0}, {720, 0}, {361, 0}, {360, 1}, {181, 1}, {180, 2}, {45, 2}};
  for (const auto& [height, layer] : rows) EXPECT_EQ(layerFor(heights, height), layer) << height;
  EXPECT_EQ(layerFor({360}, 90), 0U);
}

TEST(ReceivedHeights, OfSeveralAreTheLeastAndTheMost) {
  const Heights small = {.least = 90, .most = 180};
  const Heights large = {.least = 360, .most = Heights::kWhole};
  EXPECT_EQ(together(small, large), (Heights{.least = 90, .most = Heights::kWhole}));
  EXPECT_EQ(together(large, small), (Heights{.least = 90, .most = Heights::kWhole}));
  EXPECT_EQ(together(std::nullopt, small), small);
  EXPECT_EQ(together(small, std::nullopt), small);
  EXPECT_EQ(together(std::nullopt, std::nullopt), std::nullopt);
}

constexpr std::uint32_t kNoLimit = UINT32_MAX;
using Rates = std::vector<std::uint32_t>;

Rates ratesFor(const std::optional<Heights>& received, std::uint32_t most) {
  return planLayers(layerSizes({1280, 720}), received, most, {}).bitsPerSecond;
}

TEST(LayerPlan, HasTheLayersThatAreReceived) {
  constexpr std::uint32_t k720 = 2'764'800;
  constexpr std::uint32_t k360 = k720 / 4;
  constexpr std::uint32_t k180 = k360 / 4;
  constexpr std::uint32_t kWhole = Heights::kWhole;
  EXPECT_EQ(ratesFor(std::nullopt, kNoLimit), (Rates{k720, 0, 0}));
  EXPECT_EQ(ratesFor(Heights{kWhole, kWhole}, kNoLimit), (Rates{k720, 0, 0}));
  EXPECT_EQ(ratesFor(Heights{180, kWhole}, kNoLimit), (Rates{k720, k360, k180}));
  EXPECT_EQ(ratesFor(Heights{360, 720}, kNoLimit), (Rates{k720, k360, 0}));
  EXPECT_EQ(ratesFor(Heights{90, 180}, kNoLimit), (Rates{0, 0, k180}));
  EXPECT_EQ(ratesFor(Heights{180, 360}, kNoLimit), (Rates{0, k360, k180}));
}

TEST(LayerPlan, WantsWhatAllLayersThatAreReceivedNeed) {
  const auto wanted = [](const std::optional<Heights>& received, std::uint32_t most) {
    return planLayers(layerSizes({1280, 720}), received, most, {}).wantedBitsPerSecond;
  };
  for (const std::uint32_t most : {1'000U, 1'000'000U, kNoLimit}) {
    EXPECT_EQ(wanted(std::nullopt, most), 2'764'800U);
    EXPECT_EQ(wanted(Heights{180, 720}, most), 2'764'800U + 691'200 + 172'800);
    EXPECT_EQ(wanted(Heights{180, 180}, most), 172'800U);
  }
  EXPECT_EQ(planLayers({{64, 36}}, std::nullopt, kNoLimit, {}).wantedBitsPerSecond, 150'000U);
}

TEST(LayerPlan, LeavesNothingOutThatIsNotReceived) {
  LayerPlan small = planLayers(layerSizes({1280, 720}), Heights{180, 180}, 2'000'000, {});
  EXPECT_EQ(small.leftOut, 0U);
  EXPECT_EQ(planLayers(layerSizes({1280, 720}), Heights{180, 720}, 2'000'000, small).first, 0U);
}

TEST(LayerPlan, SharesTheBitsAmongTheLayersInProportion) {
  const LayerPlan plan = planLayers(layerSizes({1280, 720}), Heights{180, 720}, 2'100'000, {});
  EXPECT_EQ(plan.bitsPerSecond, (Rates{1'600'000, 400'000, 100'000}));
  EXPECT_TRUE(plan.isStrict);
  EXPECT_FALSE(planLayers(layerSizes({1280, 720}), Heights{180, 720}, 4'000'000, {}).isStrict);
}

// 0.3 of their bits are enough for the layers to stay, and 0.5 for the highest to return.
TEST(LayerPlan, LeavesTheHighestLayersOutThatDoNotFit) {
  const std::optional<Heights> nobody;
  const Heights all = {180, 720};
  struct Row {
    std::optional<Heights> received;
    std::uint32_t most;
    std::size_t leftOutBefore;
    std::size_t first;
  };
  for (const Row& row :
       {Row{nobody, 830'000, 0, 0}, Row{nobody, 829'000, 0, 1}, Row{nobody, 1'382'000, 1, 1},
        Row{nobody, 1'383'000, 1, 0}, Row{nobody, 207'000, 1, 2}, Row{nobody, 345'000, 2, 2},
        Row{nobody, 346'000, 2, 1}, Row{nobody, 1'000, 0, 2}, Row{all, 1'089'000, 0, 0},
        Row{all, 1'088'000, 0, 1}, Row{all, 1'814'000, 1, 1}, Row{all, 1'815'000, 1, 0},
        Row{all, 260'000, 0, 1}, Row{all, 259'000, 0, 2}}) {
    LayerPlan before;
    before.leftOut = row.leftOutBefore;
    const LayerPlan plan = planLayers(layerSizes({1280, 720}), row.received, row.most, before);
    EXPECT_EQ(plan.first, row.first) << row.most;
    EXPECT_EQ(plan.leftOut, row.first) << row.most;
    for (std::size_t layer = 0; layer < 3; ++layer) {
      EXPECT_EQ(plan.bitsPerSecond[layer] > 0, plan.isSent(layer)) << row.most;
    }
  }
}

TEST(LayerPlan, GivesTheOnlyLayerWhatThereIs) {
  const std::vector<support::Size> one = {{1280, 720}};
  EXPECT_EQ(planLayers(one, Heights{90, 90}, 200'000, {}).bitsPerSecond, (Rates{200'000}));
  EXPECT_EQ(planLayers(one, std::nullopt, 1'000, {}).bitsPerSecond, (Rates{150'000}));
  EXPECT_EQ(planLayers({{64, 36}}, std::nullopt, kNoLimit, {}).bitsPerSecond, (Rates{150'000}));
}

}  // namespace
}  // namespace webrtc
