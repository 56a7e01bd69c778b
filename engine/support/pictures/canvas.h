// Drawing into 4:2:0 pictures.

#ifndef ENGINE_SUPPORT_PICTURES_CANVAS_H_
#define ENGINE_SUPPORT_PICTURES_CANVAS_H_

#include <cstdint>
#include <string_view>

#include "engine/support/pictures/picture.h"

namespace support {

// A colour in limited-range YUV (BT.601).
struct Colour {
  std::uint8_t y = 16;
  std::uint8_t u = 128;
  std::uint8_t v = 128;
};

constexpr Colour kBlack = {16, 128, 128};
constexpr Colour kWhite = {235, 128, 128};

// Each part 0 to 1.
Colour fromRgb(double red, double green, double blue);
// Hue in turns of the colour circle, saturation and value 0 to 1.
Colour fromHsv(double hue, double saturation, double value);

// In pixels; what lies outside a picture is not drawn.
struct Rectangle {
  int x = 0;
  int y = 0;
  int width = 0;
  int height = 0;
};

// Pixels of a character's cell, its spacing included, at scale 1.
constexpr int kGlyphWidth = 6;
constexpr int kGlyphHeight = 8;

// Draws into the pixels of one picture, which it does not own.
class Canvas {
 public:
  // `pixels` holds i420Bytes(size) bytes.
  Canvas(Size size, std::uint8_t* pixels);

  int width() const { return width_; }
  int height() const { return height_; }

  void fill(const Rectangle& area, Colour colour);
  void fillDisc(int centreX, int centreY, int radius, Colour colour);
  // Capital letters, digits and blanks; anything else is drawn as a blank.
  void write(int x, int y, int scale, std::string_view text, Colour colour);

 private:
  static void fillPlane(std::uint8_t* plane, int stride, const Rectangle& area, std::uint8_t value);

  const int width_;
  const int height_;
  const int chromaWidth_;
  std::uint8_t* const y_;
  std::uint8_t* const u_;
  std::uint8_t* const v_;
};

}  // namespace support

#endif  // ENGINE_SUPPORT_PICTURES_CANVAS_H_
