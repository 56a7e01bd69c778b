#include "engine/support/pictures/card_painter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "engine/support/streams/stream_keys.h"

namespace support {
namespace {

using Picture = std::vector<std::uint8_t>;

Picture draw(const CardSubject& subject, Size size, std::uint32_t number, std::uint32_t level = 0) {
  Picture picture(i420Bytes(size));
  CardPainter(subject, size).draw(number, level, picture.data());
  return picture;
}

TEST(CardPainter, CarriesItsCode) {
  for (const Size size : {Size{64, 36}, Size{65, 37}, Size{641, 361}, Size{1280, 720}}) {
    const Picture picture = draw({kContentStream, 0x400002, "SCREEN 2", 0.3}, size, 77);
    EXPECT_EQ(readCode(size, picture.data()), (CardCode{2, 0, 77, 0x400002})) << toText(size);
  }
}

TEST(CardPainter, MovesWithEveryFrame) {
  constexpr Size kSize = {640, 360};
  const CardPainter card({remoteStream(3), 0, "REMOTE 3", 0.3}, kSize);
  Picture before(i420Bytes(kSize));
  Picture after(i420Bytes(kSize));
  for (std::uint32_t number = 1; number < 300; ++number) {
    card.draw(number, 0, before.data());
    card.draw(number + 1, 0, after.data());
    // Below the code, which differs anyway.
    const auto start = static_cast<std::ptrdiff_t>(kSize.width * kSize.height / 4);
    EXPECT_FALSE(std::equal(before.begin() + start, before.end(), after.begin() + start)) << number;
  }
}

TEST(CardPainter, LooksDifferentForEachKindOfStreamAndForEachHue) {
  constexpr Size kSize = {320, 180};
  std::set<Picture> looks;
  for (const StreamKey& key : {kLocalStream, remoteStream(0), kContentStream}) {
    for (const double hue : {0.1, 0.6}) {
      Picture picture = draw({key, 0, "", hue}, kSize, 1);
      picture.erase(picture.begin(), picture.begin() + kSize.width * kSize.height / 4);
      looks.insert(picture);
    }
  }
  EXPECT_EQ(looks.size(), 6U);
}

TEST(CardPainter, ShowsTheLevel) {
  constexpr Size kSize = {320, 180};
  const auto greens = [&](std::uint32_t level) {
    const Picture picture = draw({remoteStream(0), 0, "", 0.9}, kSize, 1, level);
    int count = 0;
    for (std::size_t y = 0; y < kSize.height; ++y) {
      count += picture[(y + 1) * kSize.width - 1] == fromRgb(0.2, 0.9, 0.3).y ? 1 : 0;
    }
    return count;
  };
  EXPECT_EQ(greens(0), 0);
  EXPECT_GT(greens(50), 20);
  EXPECT_GT(greens(100), greens(50));
  EXPECT_EQ(greens(1000), greens(100));
}

}  // namespace
}  // namespace support
