// Test cards as the pictures of a stream.

#ifndef ENGINE_SUPPORT_PICTURES_CARD_SOURCE_H_
#define ENGINE_SUPPORT_PICTURES_CARD_SOURCE_H_

#include "engine/support/pictures/card_painter.h"
#include "engine/support/pictures/picture_source.h"

namespace support {

class CardSource final : public PictureSource {
 public:
  CardSource(const CardSubject& subject, Size size) : size_(size), card_(subject, size) {}

  Size size() const override { return size_; }
  bool has(std::uint64_t) const override { return true; }
  bool draw(std::uint64_t number, std::uint32_t level, std::uint8_t* pixels) override {
    card_.draw(static_cast<std::uint32_t>(number), level, pixels);
    return true;
  }

 private:
  const Size size_;
  const CardPainter card_;
};

}  // namespace support

#endif  // ENGINE_SUPPORT_PICTURES_CARD_SOURCE_H_
