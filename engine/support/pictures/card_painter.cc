#include "engine/support/pictures/card_painter.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>

namespace support {
namespace {

// The rows between two fractions of a picture's height, in its full width.
Rectangle rows(Size size, double from, double to) {
  const int top = static_cast<int>(size.height * from);
  return {0, top, static_cast<int>(size.width), static_cast<int>(size.height * to) - top};
}

// A point that runs to and fro between 0 and `length`, `step` pixels a frame.
int bounce(std::uint32_t number, int step, int length) {
  if (length <= 0) return 0;
  const auto period = static_cast<std::uint64_t>(length) * 2;
  const auto place = static_cast<int>(number * static_cast<std::uint64_t>(step) % period);
  return length - std::abs(length - place);
}

}  // namespace

CardPainter::CardPainter(const CardSubject& subject, Size size)
    : key_(subject.key),
      detail_(subject.detail),
      hue_(subject.hue),
      size_(size),
      titleZone_(rows(size, 0.18, 0.30)),
      patternZone_(rows(size, 0.32, 0.62)),
      stageZone_(rows(size, 0.62, 1)),
      still_(i420Bytes(size)) {
  Canvas canvas(size, still_.data());
  canvas.fill({0, 0, canvas.width(), canvas.height()}, fromHsv(hue_, 0.6, 0.3));
  const int side = static_cast<int>(blockSide(size));
  canvas.fill({0, 0, side * static_cast<int>(kCodeColumns), side * static_cast<int>(kCodeRows)},
              kBlack);
  switch (key_.first) {
    case TSLM_STREAM_LOCAL:
      drawSteps(canvas);
      break;
    case TSLM_STREAM_REMOTE:
      drawBars(canvas);
      break;
    case TSLM_STREAM_CONTENT:
      drawPage(canvas);
      break;
  }
  drawTitle(canvas, subject.title);
}

void CardPainter::draw(std::uint32_t number, std::uint32_t level, std::uint8_t* pixels) const {
  std::memcpy(pixels, still_.data(), still_.size());
  Canvas canvas(size_, pixels);
  drawLevel(canvas, level);
  drawBall(canvas, number);
  drawNumber(canvas, number);
  writeCode({static_cast<std::uint8_t>(key_.first), static_cast<std::uint8_t>(key_.second), number,
             detail_},
            size_, pixels);
}

void CardPainter::drawBars(Canvas& canvas) const {
  struct Rgb {
    double red, green, blue;
  };
  constexpr std::array<Rgb, 7> kBars = {
      {{1, 1, 1}, {1, 1, 0}, {0, 1, 1}, {0, 1, 0}, {1, 0, 1}, {1, 0, 0}, {0, 0, 1}}};
  constexpr int kCount = kBars.size();
  for (int i = 0; i < kCount; ++i) {
    const auto [red, green, blue] = kBars[static_cast<std::size_t>(i)];
    const int left = canvas.width() * i / kCount;
    canvas.fill(
        {left, patternZone_.y, canvas.width() * (i + 1) / kCount - left, patternZone_.height},
        fromRgb(0.75 * red, 0.75 * green, 0.75 * blue));
  }
  canvas.fill(stageZone_, fromHsv(hue_, 0.7, 0.55));
}

void CardPainter::drawSteps(Canvas& canvas) const {
  constexpr int kSteps = 12;
  for (int i = 0; i < kSteps; ++i) {
    const int left = canvas.width() * i / kSteps;
    const int width = canvas.width() * (i + 1) / kSteps - left;
    const double share = static_cast<double>(i) / (kSteps - 1);
    canvas.fill({left, patternZone_.y, width, patternZone_.height}, fromRgb(share, share, share));
    canvas.fill({left, stageZone_.y, width, stageZone_.height},
                fromHsv(hue_ + share / 6, 0.8, 0.7));
  }
}

void CardPainter::drawPage(Canvas& canvas) const {
  const Colour paper = fromRgb(0.97, 0.97, 0.94);
  const Colour ink = fromRgb(0.55, 0.58, 0.62);
  canvas.fill(patternZone_, paper);
  canvas.fill(stageZone_, paper);
  const int margin = canvas.width() / 16;
  const int lineHeight = std::max(4, canvas.height() / 18);
  for (int y = patternZone_.y + lineHeight, line = 0; y + lineHeight < stageZone_.y;
       y += lineHeight, ++line) {
    // Lines of different lengths look like text.
    const int length = (canvas.width() - 2 * margin) * (10 - line * 3 % 5) / 10;
    canvas.fill({margin, y, length, lineHeight / 2}, ink);
  }
  canvas.fill({margin, stageZone_.y, canvas.width() - 2 * margin, 1}, fromHsv(hue_, 0.9, 0.7));
}

void CardPainter::drawTitle(Canvas& canvas, const std::string& title) const {
  const int length = static_cast<int>(title.size()) * kGlyphWidth;
  if (length == 0) return;
  const int scale = std::min(titleZone_.height / kGlyphHeight, canvas.width() / length);
  if (scale > 0) canvas.write(scale * 2, titleZone_.y, scale, title, kWhite);
}

void CardPainter::drawBall(Canvas& canvas, std::uint32_t number) const {
  const int radius = std::max(1, std::min(canvas.width(), stageZone_.height) / 8);
  const int x =
      radius + bounce(number, std::max(1, canvas.width() / 100), canvas.width() - 2 * radius - 1);
  const int y =
      stageZone_.y + radius +
      bounce(number, std::max(1, stageZone_.height / 40), stageZone_.height - 2 * radius - 1);
  canvas.fillDisc(x, y, radius, fromHsv(hue_ + 0.5, 0.25, 1));
}

void CardPainter::drawNumber(Canvas& canvas, std::uint32_t number) const {
  const int scale = stageZone_.height / 4 / kGlyphHeight;
  if (scale == 0) return;
  const Colour colour = key_.first == TSLM_STREAM_CONTENT ? kBlack : kWhite;
  canvas.write(scale * 2, canvas.height() - scale * kGlyphHeight, scale, std::to_string(number),
               colour);
}

void CardPainter::drawLevel(Canvas& canvas, std::uint32_t level) const {
  const int height = stageZone_.height * static_cast<int>(std::min(level, 100U)) / 100;
  const int width = std::max(2, canvas.width() / 40);
  canvas.fill({canvas.width() - width, canvas.height() - height, width, height},
              fromRgb(0.2, 0.9, 0.3));
}

}  // namespace support
