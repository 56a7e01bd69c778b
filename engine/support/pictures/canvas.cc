#include "engine/support/pictures/canvas.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

namespace support {
namespace {

// Five columns of seven pixels for each character, a row a byte.
using Glyph = std::array<std::uint8_t, 7>;

constexpr std::array<Glyph, 10> kDigits = {{
    {0x0e, 0x11, 0x13, 0x15, 0x19, 0x11, 0x0e},
    {0x04, 0x0c, 0x04, 0x04, 0x04, 0x04, 0x0e},
    {0x0e, 0x11, 0x01, 0x02, 0x04, 0x08, 0x1f},
    {0x1f, 0x02, 0x04, 0x02, 0x01, 0x11, 0x0e},
    {0x02, 0x06, 0x0a, 0x12, 0x1f, 0x02, 0x02},
    {0x1f, 0x10, 0x1e, 0x01, 0x01, 0x11, 0x0e},
    {0x06, 0x08, 0x10, 0x1e, 0x11, 0x11, 0x0e},
    {0x1f, 0x01, 0x02, 0x04, 0x08, 0x08, 0x08},
    {0x0e, 0x11, 0x11, 0x0e, 0x11, 0x11, 0x0e},
    {0x0e, 0x11, 0x11, 0x0f, 0x01, 0x02, 0x0c},
}};

constexpr std::array<Glyph, 26> kLetters = {{
    {0x0e, 0x11, 0x11, 0x1f, 0x11, 0x11, 0x11}, {0x1e, 0x11, 0x11, 0x1e, 0x11, 0x11, 0x1e},
    {0x0e, 0x11, 0x10, 0x10, 0x10, 0x11, 0x0e}, {0x1c, 0x12, 0x11, 0x11, 0x11, 0x12, 0x1c},
    {0x1f, 0x10, 0x10, 0x1e, 0x10, 0x10, 0x1f}, {0x1f, 0x10, 0x10, 0x1e, 0x10, 0x10, 0x10},
    {0x0e, 0x11, 0x10, 0x17, 0x11, 0x11, 0x0f}, {0x11, 0x11, 0x11, 0x1f, 0x11, 0x11, 0x11},
    {0x0e, 0x04, 0x04, 0x04, 0x04, 0x04, 0x0e}, {0x07, 0x02, 0x02, 0x02, 0x02, 0x12, 0x0c},
    {0x11, 0x12, 0x14, 0x18, 0x14, 0x12, 0x11}, {0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x1f},
    {0x11, 0x1b, 0x15, 0x15, 0x11, 0x11, 0x11}, {0x11, 0x11, 0x19, 0x15, 0x13, 0x11, 0x11},
    {0x0e, 0x11, 0x11, 0x11, 0x11, 0x11, 0x0e}, {0x1e, 0x11, 0x11, 0x1e, 0x10, 0x10, 0x10},
    {0x0e, 0x11, 0x11, 0x11, 0x15, 0x12, 0x0d}, {0x1e, 0x11, 0x11, 0x1e, 0x14, 0x12, 0x11},
    {0x0f, 0x10, 0x10, 0x0e, 0x01, 0x01, 0x1e}, {0x1f, 0x04, 0x04, 0x04, 0x04, 0x04, 0x04},
    {0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x0e}, {0x11, 0x11, 0x11, 0x11, 0x11, 0x0a, 0x04},
    {0x11, 0x11, 0x11, 0x15, 0x15, 0x15, 0x0a}, {0x11, 0x11, 0x0a, 0x04, 0x0a, 0x11, 0x11},
    {0x11, 0x11, 0x11, 0x0a, 0x04, 0x04, 0x04}, {0x1f, 0x01, 0x02, 0x04, 0x08, 0x10, 0x1f},
}};

Glyph glyphOf(char character) {
  if (character >= '0' && character <= '9')
    return kDigits[static_cast<std::size_t>(character - '0')];
  if (character >= 'A' && character <= 'Z') {
    return kLetters[static_cast<std::size_t>(character - 'A')];
  }
  return {};
}

std::uint8_t toByte(double value) {
  return static_cast<std::uint8_t>(std::lround(std::clamp(value, 0.0, 255.0)));
}

}  // namespace

Colour fromRgb(double red, double green, double blue) {
  return {toByte(16 + 65.481 * red + 128.553 * green + 24.966 * blue),
          toByte(128 - 37.797 * red - 74.203 * green + 112.0 * blue),
          toByte(128 + 112.0 * red - 93.786 * green - 18.214 * blue)};
}

Colour fromHsv(double hue, double saturation, double value) {
  const auto part = [=](double offset) {
    const double place = std::fmod(offset + hue * 6, 6.0);
    return value - value * saturation * std::clamp(std::min(place, 4 - place), 0.0, 1.0);
  };
  return fromRgb(part(5), part(3), part(1));
}

Canvas::Canvas(Size size, std::uint8_t* pixels)
    : width_(static_cast<int>(size.width)),
      height_(static_cast<int>(size.height)),
      chromaWidth_(static_cast<int>(chromaSize(size).width)),
      y_(pixels),
      u_(y_ + support::pixels(size)),
      v_(u_ + support::pixels(chromaSize(size))) {}

void Canvas::fill(const Rectangle& area, Colour colour) {
  const int left = std::clamp(area.x, 0, width_);
  const int top = std::clamp(area.y, 0, height_);
  const int right = std::clamp(area.x + area.width, left, width_);
  const int bottom = std::clamp(area.y + area.height, top, height_);
  if (left == right || top == bottom) return;
  fillPlane(y_, width_, {left, top, right - left, bottom - top}, colour.y);
  const Rectangle chroma = {left / 2, top / 2, (right + 1) / 2 - left / 2,
                            (bottom + 1) / 2 - top / 2};
  fillPlane(u_, chromaWidth_, chroma, colour.u);
  fillPlane(v_, chromaWidth_, chroma, colour.v);
}

void Canvas::fillDisc(int centreX, int centreY, int radius, Colour colour) {
  for (int dy = -radius; dy <= radius; ++dy) {
    const int half = static_cast<int>(std::sqrt(radius * radius - dy * dy));
    fill({centreX - half, centreY + dy, 2 * half + 1, 1}, colour);
  }
}

void Canvas::write(int x, int y, int scale, std::string_view text, Colour colour) {
  for (const char character : text) {
    const Glyph glyph = glyphOf(character);
    for (int row = 0; row < 7; ++row) {
      for (int column = 0; column < 5; ++column) {
        if ((glyph[static_cast<std::size_t>(row)] >> (4 - column) & 1) == 0) continue;
        fill({x + column * scale, y + row * scale, scale, scale}, colour);
      }
    }
    x += kGlyphWidth * scale;
  }
}

void Canvas::fillPlane(std::uint8_t* plane, int stride, const Rectangle& area, std::uint8_t value) {
  for (int row = area.y; row < area.y + area.height; ++row) {
    std::memset(plane + static_cast<std::ptrdiff_t>(row) * stride + area.x, value,
                static_cast<std::size_t>(area.width));
  }
}

}  // namespace support
