#include "engine/webrtc/video_sender.h"

#include <gtest/gtest.h>

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

}  // namespace
}  // namespace webrtc
