#include "engine/support/pictures/card_code.h"

#include <gtest/gtest.h>

#include <vector>

namespace support {
namespace {

constexpr CardCode kCode = {2, 49, 0x89abcdef, 0x123456};
constexpr std::size_t kGrey = 128;

TEST(CardCode, IsReadBackAtAnySize) {
  for (const Size size : {Size{64, 36}, Size{65, 37}, Size{80, 45}, Size{641, 361}, Size{640, 360},
                          Size{1280, 720}, Size{64, 2000}, Size{2000, 36}, Size{4096, 4096}}) {
    std::vector<std::uint8_t> picture(pixels(size), kGrey);
    writeCode(kCode, size, picture.data());
    EXPECT_EQ(readCode(size, picture.data()), kCode) << toText(size);
  }
}

TEST(CardCode, LiesWhereTheLayoutSays) {
  // Kind 1 and index 2 make the byte 01000010, with which the first row begins.
  constexpr Size kSize = {640, 360};
  std::vector<std::uint8_t> picture(pixels(kSize), kGrey);
  writeCode({1, 2, 0, 0}, kSize, picture.data());
  constexpr std::size_t kSide = 15;
  ASSERT_EQ(blockSide(kSize), kSide);
  const std::vector<int> bits = {0, 1, 0, 0, 0, 0, 1, 0};
  for (std::size_t y = 0; y < kSide; ++y) {
    for (std::size_t x = 0; x < bits.size() * kSide; ++x) {
      EXPECT_EQ(picture[y * kSize.width + x], bits[x / kSide] == 1 ? 235 : 16) << x << ' ' << y;
    }
  }
}

TEST(CardCode, ChangesNoPixelOutsideItsBlocks) {
  constexpr Size kSize = {64, 36};
  std::vector<std::uint8_t> picture(pixels(kSize), kGrey);
  writeCode(kCode, kSize, picture.data());
  for (std::size_t y = 0; y < kSize.height; ++y) {
    for (std::size_t x = 0; x < kSize.width; ++x) {
      const bool isCode = y < 6 && x < 48;
      EXPECT_EQ(picture[y * kSize.width + x] != kGrey, isCode) << x << ' ' << y;
    }
  }
}

TEST(CardCode, IsNotFoundInAnotherPicture) {
  constexpr Size kSize = {640, 360};
  for (const int luminance : {0, 16, 128, 235, 255}) {
    const std::vector<std::uint8_t> picture(pixels(kSize), static_cast<std::uint8_t>(luminance));
    EXPECT_EQ(readCode(kSize, picture.data()), std::nullopt) << luminance;
  }
}

TEST(CardCode, IsNotFoundWhenABitIsFlipped) {
  constexpr Size kSize = {64, 36};
  std::vector<std::uint8_t> picture(pixels(kSize), kGrey);
  writeCode(kCode, kSize, picture.data());
  picture[1 * kSize.width + 1] ^= 0xff;
  EXPECT_EQ(readCode(kSize, picture.data()), std::nullopt);
}

TEST(CardCode, IsNotLookedForInAPictureThatIsTooSmall) {
  const std::vector<std::uint8_t> picture(1);
  EXPECT_EQ(readCode({1, 1}, picture.data()), std::nullopt);
}

TEST(CardCode, DescribesSharedContent) {
  EXPECT_EQ(contentDetail(ContentKind::kScreen, 1), 0x400001U);
  EXPECT_EQ(contentDetail(ContentKind::kWindow, 0xffffffff), 0xffffffU);
}

}  // namespace
}  // namespace support
