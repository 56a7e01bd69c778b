#include "engine/support/streams/layout.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <vector>

namespace support {
namespace {

using testing::ElementsAre;
using testing::Pair;

using Constraints = std::vector<std::vector<tsl::VideoStreamConstraints>>;

constexpr Reception kUnlimited = {};
constexpr Reception kUnwanted = {.isWanted = false};

Reception atHeight(std::uint32_t height) { return {.height = height}; }

TEST(Layout, RequestsEveryStreamUntilThereAreRequests) {
  EXPECT_THAT(Layout().receptions({7, 8}), ElementsAre(Pair(7, kUnlimited), Pair(8, kUnlimited)));
}

TEST(Layout, RequestsNoStreamThatIsNotListed) {
  Layout layout;
  layout.setWishes({}, {});
  EXPECT_THAT(layout.receptions({7}), ElementsAre(Pair(7, kUnwanted)));
}

TEST(Layout, FindsAStreamByEitherSource) {
  Layout layout;
  layout.setWishes({{7, 0, 0, 0}, {0, 8, 0, 0}, {7, 7, 0, 0}, {99, 98, 0, 0}}, {});
  EXPECT_THAT(layout.receptions({7, 8, 9}),
              ElementsAre(Pair(7, kUnlimited), Pair(8, kUnlimited), Pair(9, kUnwanted)));
}

TEST(Layout, GivesOneTileToAStreamThatIsNamedTwice) {
  Layout layout;
  layout.setWishes({{7, 0, 0, 0}, {0, 7, 0, 0}, {8, 0, 0, 0}}, Constraints(2));
  EXPECT_THAT(layout.receptions({7, 8}), ElementsAre(Pair(7, kUnlimited), Pair(8, kUnlimited)));
}

TEST(Layout, GivesTheTilesToTheHighestPrioritiesFirst) {
  Layout layout;
  layout.setWishes({{7, 0, 0, 1}, {8, 0, 0, 5}, {9, 0, 0, 1}},
                   {{{720, 0, 0, 0}}, {{720, 0, 0, 0}, {90, 0, 0, 0}}});
  EXPECT_THAT(layout.receptions({7, 8, 9}),
              ElementsAre(Pair(7, atHeight(90)), Pair(8, atHeight(720)), Pair(9, kUnwanted)));
}

TEST(Layout, GivesTheTilesInTheOrderOfTheRequestsWherePrioritiesAreEqual) {
  // More than a sort that is not stable leaves in order by chance.
  constexpr std::uint32_t kStreams = 40;
  std::vector<tsl::VideoStreamInfo> wishes;
  std::set<std::uint32_t> present;
  for (std::uint32_t csrc = kStreams; csrc > 0; --csrc) {
    wishes.push_back({csrc, 0, 0, static_cast<std::uint16_t>(csrc % 2)});
    present.insert(csrc);
  }
  Layout layout;
  layout.setWishes(wishes, Constraints(kStreams / 2));
  std::set<std::uint32_t> received;
  for (const auto& [csrc, reception] : layout.receptions(present)) {
    if (reception.isWanted) received.insert(csrc);
  }
  std::set<std::uint32_t> odd;
  for (std::uint32_t csrc = 1; csrc < kStreams; csrc += 2) odd.insert(csrc);
  EXPECT_EQ(received, odd);
  layout.setWishes(wishes, Constraints(3));
  for (const std::uint32_t csrc : {39U, 37U, 35U}) {
    EXPECT_TRUE(layout.receptions(present).at(csrc).isWanted) << csrc;
  }
}

TEST(Layout, AsksForTheLowestQualityAndLimitsToTheTopRung) {
  Layout layout;
  layout.setWishes({{7, 0, 0, 0}, {8, 0, 0, 0}}, {{}, {{0, 0, 200, 0}}});
  EXPECT_EQ(layout.receptions({7, 8}).at(7), Reception{.lowest = 180});
  layout.setTopRung(2);
  EXPECT_EQ(layout.receptions({7, 8}).at(7), (Reception{.lowest = 180, .ceiling = 180}));
  EXPECT_EQ(layout.receptions({7, 8}).at(8), Reception{.ceiling = 180});
  layout.setTopRung(kTopRung);
  EXPECT_EQ(layout.receptions({7, 8}).at(8), kUnlimited);
}

TEST(Layout, UsesTheRowForThePresentNumberOfTiles) {
  Layout layout;
  layout.setWishes({{7, 0, 0, 0}, {8, 0, 0, 0}},
                   {{{720, 0, 0, 0}}, {{360, 0, 0, 0}, {180, 0, 0, 0}}});
  EXPECT_THAT(layout.receptions({8}), ElementsAre(Pair(8, atHeight(720))));
  EXPECT_THAT(layout.receptions({7, 8}),
              ElementsAre(Pair(7, atHeight(360)), Pair(8, atHeight(180))));
}

TEST(Layout, LimitsNothingWhereAnEntryIsMissing) {
  Layout layout;
  layout.setWishes({{7, 0, 0, 0}, {8, 0, 0, 0}}, {{}, {{180, 0, 0, 0}}});
  EXPECT_THAT(layout.receptions({7, 8}), ElementsAre(Pair(7, atHeight(180)), Pair(8, kUnlimited)));
  EXPECT_THAT(layout.receptions({7}), ElementsAre(Pair(7, kUnlimited)));
}

struct Limit {
  std::uint32_t given;
  std::uint32_t used;
};

TEST(Layout, LimitsToTheQualitiesOfTheLadder) {
  for (const auto [given, used] : {Limit{1, 45}, Limit{45, 45}, Limit{89, 45}, Limit{90, 90},
                                   Limit{359, 180}, Limit{720, 720}, Limit{4000, 720}}) {
    Layout layout;
    layout.setWishes({{7, 0, 0, 0}}, {{{given, 0, 0, 0}}});
    EXPECT_EQ(layout.receptions({7}).at(7), atHeight(used)) << given;
  }
}

TEST(Layout, LimitsToTheStepsOfTheFrameRate) {
  for (const auto [given, used] : {Limit{0, 0}, Limit{1, 3}, Limit{3, 3}, Limit{14, 7},
                                   Limit{15, 15}, Limit{29, 15}, Limit{60, 30}}) {
    Layout layout;
    layout.setWishes({{7, 0, 0, 0}}, {{{0, given, 0, 0}}});
    EXPECT_EQ(layout.receptions({7}).at(7).mostPerSecond, used) << given;
  }
}

TEST(CardSize, IsTheCardsOwnWithoutLimits) {
  EXPECT_EQ(cardSize({641, 361}, kUnlimited), (Size{641, 361}));
}

TEST(CardSize, IsTheRequestedQualityOfTheLadder) {
  EXPECT_EQ(cardSize({640, 360}, atHeight(45)), (Size{80, 45}));
  EXPECT_EQ(cardSize({640, 360}, atHeight(90)), (Size{160, 90}));
  EXPECT_EQ(cardSize({640, 360}, atHeight(180)), (Size{320, 180}));
  EXPECT_EQ(cardSize({64, 36}, atHeight(360)), (Size{640, 360}));
  EXPECT_EQ(cardSize({64, 36}, atHeight(720)), (Size{1280, 720}));
}

TEST(CardSize, IsNotBelowTheLowestQualityUnlessAHeightIsRequested) {
  EXPECT_EQ(cardSize({64, 36}, {.lowest = 180}), (Size{320, 180}));
  EXPECT_EQ(cardSize({640, 360}, {.lowest = 180}), (Size{640, 360}));
  EXPECT_EQ(cardSize({240, 180}, {.lowest = 180}), (Size{240, 180}));
  EXPECT_EQ(cardSize({64, 36}, {.height = 90, .lowest = 180}), (Size{160, 90}));
}

TEST(CardSize, DoesNotExceedTheLimit) {
  Layout layout;
  layout.setTopRung(2);
  EXPECT_EQ(cardSize({640, 360}, layout.receptions({7}).at(7)), (Size{320, 180}));
  EXPECT_EQ(cardSize({64, 36}, layout.receptions({7}).at(7)), (Size{64, 36}));
  layout.setWishes({{7, 0, 0, 0}}, {{{720, 0, 360, 0}}});
  EXPECT_EQ(cardSize({640, 360}, layout.receptions({7}).at(7)), (Size{320, 180}));
  layout.setTopRung(4);
  EXPECT_EQ(cardSize({640, 360}, layout.receptions({7}).at(7)), (Size{1280, 720}));
}

TEST(ClipSize, KeepsTheAspectRatioAndIsNeverEnlarged) {
  EXPECT_EQ(shapedSize({640, 480}, kUnlimited), (Size{640, 480}));
  EXPECT_EQ(shapedSize({640, 480}, atHeight(180)), (Size{240, 180}));
  EXPECT_EQ(shapedSize({640, 480}, atHeight(720)), (Size{640, 480}));
  EXPECT_EQ(shapedSize({640, 480}, {.height = 360, .ceiling = 90}), (Size{120, 90}));
  EXPECT_EQ(shapedSize({642, 360}, atHeight(180)), (Size{320, 180}));
  EXPECT_EQ(shapedSize({1, 4096}, atHeight(45)), (Size{2, 45}));
}

}  // namespace
}  // namespace support
