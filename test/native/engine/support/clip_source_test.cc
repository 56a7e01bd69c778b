#include "engine/support/pictures/clip_source.h"

#include <gtest/gtest.h>

#include "test/native/engine/support/temporary_directory.h"

namespace support {
namespace {

class ClipSourceTest : public testing::Test {
 protected:
  static std::string draw(ClipSource&& source, std::uint64_t number) {
    std::string picture(i420Bytes(source.size()), '?');
    EXPECT_TRUE(source.draw(number, 0, reinterpret_cast<std::uint8_t*>(picture.data())));
    return picture;
  }

  const TemporaryDirectory directory_;
  // Two frames of 4x4: rows of luma, then 2x2 of each chroma.
  const std::shared_ptr<const Y4mClip> clip_ = std::make_shared<const Y4mClip>(
      directory_.write("clip.y4m",
                       "YUV4MPEG2 W4 H4\nFRAME\nabcdefghijklmnopUVWXuvwx"
                       "FRAME\nABCDEFGHIJKLMNOP01234567"));
};

TEST_F(ClipSourceTest, PlaysTheClipUnchangedInItsOwnSize) {
  EXPECT_EQ(draw({clip_, true, {4, 4}}, 1), "abcdefghijklmnopUVWXuvwx");
  EXPECT_EQ(draw({clip_, true, {4, 4}}, 2), "ABCDEFGHIJKLMNOP01234567");
  EXPECT_EQ(draw({clip_, true, {4, 4}}, 3), "abcdefghijklmnopUVWXuvwx");
}

TEST_F(ClipSourceTest, ScalesTheClipToAnotherSize) {
  EXPECT_EQ(draw({clip_, true, {2, 2}}, 1), "fhnpXx");
  EXPECT_EQ(draw({clip_, true, {3, 3}}, 2), "ACDIKLMOP01234567");
}

TEST_F(ClipSourceTest, EndsUnlessItIsLooped) {
  const ClipSource once(clip_, false, {4, 4});
  EXPECT_TRUE(once.has(2));
  EXPECT_FALSE(once.has(3));
  EXPECT_TRUE(ClipSource(clip_, true, {4, 4}).has(3));
}

}  // namespace
}  // namespace support
