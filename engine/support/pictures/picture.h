// Sizes of pictures, and where their pixels lie.

#ifndef ENGINE_SUPPORT_PICTURES_PICTURE_H_
#define ENGINE_SUPPORT_PICTURES_PICTURE_H_

#include <cstddef>
#include <cstdint>
#include <string>

namespace support {

// Of a picture, in pixels.
struct Size {
  std::uint32_t width = 0;
  std::uint32_t height = 0;

  bool operator==(const Size&) const = default;
};

inline std::string toText(Size size) {
  return std::to_string(size.width) + 'x' + std::to_string(size.height);
}

// Of the chroma planes of a 4:2:0 picture.
constexpr Size chromaSize(Size size) { return {(size.width + 1) / 2, (size.height + 1) / 2}; }

constexpr std::size_t pixels(Size size) {
  return static_cast<std::size_t>(size.width) * size.height;
}

// Bytes of a 4:2:0 picture with tightly packed rows: Y, then U, then V.
constexpr std::size_t i420Bytes(Size size) { return pixels(size) + 2 * pixels(chromaSize(size)); }

// Frames per second, as a fraction.
struct FrameRate {
  std::uint32_t numerator = 30;
  std::uint32_t denominator = 1;

  bool operator==(const FrameRate&) const = default;
  double perSecond() const { return static_cast<double>(numerator) / denominator; }
};

}  // namespace support

#endif  // ENGINE_SUPPORT_PICTURES_PICTURE_H_
