// The drawing of test cards.

#ifndef ENGINE_SUPPORT_PICTURES_CARD_PAINTER_H_
#define ENGINE_SUPPORT_PICTURES_CARD_PAINTER_H_

#include <cstdint>
#include <string>
#include <vector>

#include "engine/support/pictures/canvas.h"
#include "engine/support/pictures/card_code.h"
#include "engine/support/pictures/picture.h"
#include "tesselclient/types.h"

namespace support {

// What tells one card from another.
struct CardSubject {
  StreamKey key;
  std::uint32_t detail = 0;  // of the card's code
  std::string title;         // for people
  double hue = 0;            // in turns of the colour circle
};

// A moving test card: the code of card_code.h, a title, a pattern that differs for the kinds of
// streams, a bouncing ball, the frame's number and a level meter. What does not move is drawn once;
// a frame costs one copy and a few strokes. Belongs to one thread.
class CardPainter {
 public:
  // The size is at least kSmallestCard.
  CardPainter(const CardSubject& subject, Size size);

  // Draws frame `number` into i420Bytes(size) bytes. `level` is how loud the sender is, 0 to 100.
  void draw(std::uint32_t number, std::uint32_t level, std::uint8_t* pixels) const;

 private:
  void drawBars(Canvas& canvas) const;
  void drawSteps(Canvas& canvas) const;
  void drawPage(Canvas& canvas) const;
  void drawTitle(Canvas& canvas, const std::string& title) const;
  void drawBall(Canvas& canvas, std::uint32_t number) const;
  void drawNumber(Canvas& canvas, std::uint32_t number) const;
  void drawLevel(Canvas& canvas, std::uint32_t level) const;

  const StreamKey key_;
  const std::uint32_t detail_;
  const double hue_;
  const Size size_;
  // The card's three zones below the code.
  const Rectangle titleZone_;
  const Rectangle patternZone_;
  const Rectangle stageZone_;
  std::vector<std::uint8_t> still_;
};

}  // namespace support

#endif  // ENGINE_SUPPORT_PICTURES_CARD_PAINTER_H_
