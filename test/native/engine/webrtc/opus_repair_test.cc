#include "engine/webrtc/opus_repair.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <vector>

namespace webrtc {
namespace {

constexpr std::uint8_t configuration(unsigned number) {
  return static_cast<std::uint8_t>(number << 3U);
}

TEST(OpusRepair, IsMarkedBehindTheActivityOfEachFrame) {
  struct Case {
    unsigned configuration;
    std::uint8_t mark;
  };
  // 10, 20, 40 and 60 ms of the lower layer; 10 and 20 ms of both.
  for (const auto& [number, mark] : {Case{8, 0x40}, Case{9, 0x40}, Case{10, 0x20}, Case{11, 0x10},
                                     Case{14, 0x40}, Case{15, 0x40}}) {
    const std::uint8_t start = configuration(number);
    EXPECT_TRUE(hasRepairData(std::array{start, mark})) << number;
    EXPECT_FALSE(hasRepairData(std::array{start, static_cast<std::uint8_t>(~mark)})) << number;
  }
}

TEST(OpusRepair, MayBeThatOfTheSideAlone) {
  constexpr std::uint8_t kStereo = 4;
  constexpr std::uint8_t kStart = configuration(9);
  EXPECT_TRUE(hasRepairData(std::array<std::uint8_t, 2>{kStart | kStereo, 0x10}));
  EXPECT_FALSE(hasRepairData(std::array<std::uint8_t, 2>{kStart, 0x10}));
}

TEST(OpusRepair, IsInNoOtherPacket) {
  EXPECT_FALSE(hasRepairData({}));
  EXPECT_FALSE(hasRepairData(std::vector<std::uint8_t>{configuration(9)}));
  EXPECT_FALSE(hasRepairData(std::vector<std::uint8_t>{configuration(31), 0xff}));
  constexpr std::uint8_t kSeveralFrames = 3;
  EXPECT_FALSE(
      hasRepairData(std::vector<std::uint8_t>{configuration(9) | kSeveralFrames, 0xff, 0xff}));
}

}  // namespace
}  // namespace webrtc
