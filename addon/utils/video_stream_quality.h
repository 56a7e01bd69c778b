// The values of video quality and frame rate that the engine knows.

#ifndef ADDON_UTILS_VIDEO_STREAM_QUALITY_H_
#define ADDON_UTILS_VIDEO_STREAM_QUALITY_H_

#include <cstdint>

namespace Utils {

// Picture heights of the quality ladder. Any other value gives 0, "not given".
constexpr std::uint32_t getMappedVideoQuality(std::uint32_t quality) {
  switch (quality) {
    case 45:
    case 90:
    case 180:
    case 360:
    case 720:
      return quality;
    default:
      return 0;
  }
}

// Frames per second. Any other value gives 0, "not given".
constexpr std::uint32_t getMappedVideoFrameRate(std::uint32_t frameRate) {
  switch (frameRate) {
    case 3:
    case 7:
    case 15:
    case 30:
      return frameRate;
    default:
      return 0;
  }
}

}  // namespace Utils

#endif  // ADDON_UTILS_VIDEO_STREAM_QUALITY_H_
