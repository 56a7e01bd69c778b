#include "engine/support/pictures/y4m_clip.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "test/native/engine/support/temporary_directory.h"

namespace support {
namespace {

// The reason why a clip of this content is refused; empty when it is accepted.
std::string refusal(const std::string& content) {
  const TemporaryDirectory directory;
  try {
    const Y4mClip clip(directory.write("clip.y4m", content));
  } catch (const ClipError& error) {
    EXPECT_EQ(error.kind(), ClipError::Kind::kUnsupported);
    return error.what();
  }
  return "";
}

TEST(Y4mHeader, HasSizeAndRate) {
  const Y4mHeader header = parseY4mHeader("YUV4MPEG2 W641 H361 F30000:1001 Ip A1:1 C420jpeg XA=B");
  EXPECT_EQ(header.size, (Size{641, 361}));
  EXPECT_EQ(header.rate, (FrameRate{30000, 1001}));
}

TEST(Y4mHeader, MayOmitRateAndColourSpace) {
  for (const auto* const line : {"YUV4MPEG2 W2 H3", "YUV4MPEG2  W2  H3 F0:0 "}) {
    EXPECT_EQ(parseY4mHeader(line).rate, (FrameRate{30, 1})) << line;
  }
}

TEST(Y4mHeader, AcceptsEveryEightBit420ColourSpace) {
  for (const std::string space : {"C420", "C420jpeg", "C420paldv", "C420mpeg2"}) {
    EXPECT_EQ(parseY4mHeader("YUV4MPEG2 W2 H2 " + space).size, (Size{2, 2})) << space;
  }
}

struct BadHeader {
  const char* line;
  const char* reason;
};

class Y4mHeaderRefusal : public testing::TestWithParam<BadHeader> {};

TEST_P(Y4mHeaderRefusal, NamesTheReason) {
  try {
    parseY4mHeader(GetParam().line);
    FAIL() << "accepted";
  } catch (const ClipError& error) {
    EXPECT_EQ(error.kind(), ClipError::Kind::kUnsupported);
    EXPECT_STREQ(error.what(), GetParam().reason);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Lines, Y4mHeaderRefusal,
    testing::Values(
        BadHeader{"", "the clip is not a YUV4MPEG2 file"},
        BadHeader{"YUV4MPEG W2 H2", "the clip is not a YUV4MPEG2 file"},
        BadHeader{"YUV4MPEG2X W2 H2", "the clip is not a YUV4MPEG2 file"},
        BadHeader{"YUV4MPEG2", "the clip has no size"},
        BadHeader{"YUV4MPEG2 W2", "the clip has no size"},
        BadHeader{"YUV4MPEG2 H2", "the clip has no size"},
        BadHeader{"YUV4MPEG2 W0 H2", "the clip's size is out of range"},
        BadHeader{"YUV4MPEG2 W2 H-2", "the clip's size is out of range"},
        BadHeader{"YUV4MPEG2 W4097 H2", "the clip's size is out of range"},
        BadHeader{"YUV4MPEG2 W99999999999999999999 H2", "the clip's size is out of range"},
        BadHeader{"YUV4MPEG2 W2x H2", "the clip's size is out of range"},
        BadHeader{"YUV4MPEG2 W H2", "the clip's size is out of range"},
        BadHeader{"YUV4MPEG2 W2 H2 F30", "the clip's frame rate is malformed"},
        BadHeader{"YUV4MPEG2 W2 H2 Fa:b", "the clip's frame rate is malformed"},
        BadHeader{"YUV4MPEG2 W2 H2 F30:0", "the clip's frame rate is out of range"},
        BadHeader{"YUV4MPEG2 W2 H2 F0:1", "the clip's frame rate is out of range"},
        BadHeader{"YUV4MPEG2 W2 H2 F241:1", "the clip's frame rate is out of range"},
        BadHeader{"YUV4MPEG2 W2 H2 F100001:100001", "the clip's frame rate is out of range"},
        BadHeader{"YUV4MPEG2 W2 H2 C422", "the clip's colour space is not 8-bit 4:2:0"},
        BadHeader{"YUV4MPEG2 W2 H2 C420p10", "the clip's colour space is not 8-bit 4:2:0"},
        BadHeader{"YUV4MPEG2 W2 H2 Cmono", "the clip's colour space is not 8-bit 4:2:0"}));

TEST(Y4mClip, ReadsFramesByteForByte) {
  const TemporaryDirectory directory;
  const Y4mClip clip(directory.write(
      "clip.y4m", "YUV4MPEG2 W3 H1 C420\nFRAME\nabcuUvVFRAME Ip\nABCxXyYFRAME\n\n\n\n\n\n\n\n"));
  EXPECT_EQ(clip.frameCount(), 3U);
  EXPECT_EQ(clip.size(), (Size{3, 1}));
  std::string picture(7, '\0');
  auto* const pixels = reinterpret_cast<std::uint8_t*>(picture.data());
  EXPECT_TRUE(clip.readFrame(1, pixels));
  EXPECT_EQ(picture, "ABCxXyY");
  EXPECT_TRUE(clip.readFrame(0, pixels));
  EXPECT_EQ(picture, "abcuUvV");
  EXPECT_TRUE(clip.readFrame(2, pixels));
  EXPECT_EQ(picture, "\n\n\n\n\n\n\n");
}

TEST(Y4mClip, IsRefusedForInvalidContent) {
  EXPECT_EQ(refusal(""), "the clip is not a YUV4MPEG2 file");
  EXPECT_EQ(refusal("YUV4MPEG2 W1 H1"), "the clip is not a YUV4MPEG2 file");
  EXPECT_EQ(refusal("YUV4MPEG2 X" + std::string(2000, 'x') + " W1 H1\nFRAME\nabc"),
            "the clip is not a YUV4MPEG2 file");
  EXPECT_EQ(refusal("YUV4MPEG2 W1 H1\n"), "the clip has no frames");
  EXPECT_EQ(refusal("YUV4MPEG2 W1 H1\nFRAME\nab"), "the clip's last frame is cut short");
  EXPECT_EQ(refusal("YUV4MPEG2 W1 H1\nFRAME\nabcFRAME\n"), "the clip's last frame is cut short");
  EXPECT_EQ(refusal("YUV4MPEG2 W1 H1\nFRAME\nabcFRA"), "the clip has a malformed frame");
  EXPECT_EQ(refusal("YUV4MPEG2 W1 H1\nFRAMEX\nabc"), "the clip has a malformed frame");
  EXPECT_EQ(refusal("YUV4MPEG2 W1 H1\nabc"), "the clip has a malformed frame");
}

TEST(Y4mClip, IsRefusedForTooManyFrames) {
  std::string content = "YUV4MPEG2 W1 H1\n";
  for (int i = 0; i <= 100'000; ++i) content += "FRAME\nabc";
  EXPECT_EQ(refusal(content), "the clip has too many frames");
}

TEST(Y4mClip, IsRefusedAtOnceWhenItIsNotAFile) {
  const TemporaryDirectory directory;
  const std::string pipe = directory.path() / "pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  for (const std::string& path : {directory.path().string(), pipe, std::string("/dev/zero")}) {
    try {
      const Y4mClip clip(path);
      FAIL() << path;
    } catch (const ClipError& error) {
      EXPECT_EQ(error.kind(), ClipError::Kind::kUnreadable);
      EXPECT_STREQ(error.what(), "the clip is not a file");
    }
  }
}

TEST(Y4mClip, HasNoMoreFramesWhenItIsTruncatedWhilePlaying) {
  const TemporaryDirectory directory;
  const std::string path = directory.write("clip.y4m", "YUV4MPEG2 W1 H1\nFRAME\nabc");
  const Y4mClip clip(path);
  std::filesystem::resize_file(path, 20);
  std::uint8_t pixels[3] = {};
  EXPECT_FALSE(clip.readFrame(0, pixels));
}

}  // namespace
}  // namespace support
